#include "BufferStore.h"

#include <algorithm>
#include <map>
#include <new>
#include <utility>

namespace KorvelVideo::NetworkSource {

void BufferStore::AlignedDelete::operator()(std::uint8_t* memory) const noexcept {
    ::operator delete[](memory, std::align_val_t{kAlignment});
}

std::shared_ptr<BufferStore> BufferStore::shared(std::uint32_t bufferSize) {
    static std::mutex mutex;
    static std::map<std::uint32_t, std::weak_ptr<BufferStore>> stores;
    const std::lock_guard lock(mutex);
    std::erase_if(stores, [](const auto& store) { return store.second.expired(); });
    std::shared_ptr<BufferStore> store = stores[bufferSize].lock();
    if (!store) {
        store = std::make_shared<BufferStore>(bufferSize);
        stores[bufferSize] = store;
    }
    return store;
}

BufferStore::Buffer BufferStore::take() {
    if (!m_free.empty()) {
        Buffer buffer = std::move(m_free.back());
        m_free.pop_back();
        return buffer;
    }
    return Buffer(static_cast<std::uint8_t*>(::operator new[](m_bufferSize, std::align_val_t{kAlignment})));
}

void BufferStore::putBack(Buffer buffer) noexcept {
    try {
        m_free.push_back(std::move(buffer));
    } catch (const std::bad_alloc&) { // then the buffer is freed
    }
}

void BufferStore::trim(std::uint64_t bytes) noexcept {
    m_free.resize(std::min<std::uint64_t>(m_free.size(), bytes / m_bufferSize));
}

} // namespace KorvelVideo::NetworkSource
