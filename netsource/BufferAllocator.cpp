#include "BufferAllocator.h"

#include <algorithm>
#include <mutex>
#include <new>
#include <utility>

namespace KorvelVideo::NetworkSource {

namespace {

constexpr std::int32_t kOk = 0;
constexpr std::int32_t kInvalidParameter = 2;

} // namespace

BufferAllocator::BufferAllocator(std::uint32_t count, std::uint32_t limit, std::uint32_t bufferSize)
    : m_mostLent(std::max<std::size_t>(count, std::size_t{limit} * kLentPerLimit / bufferSize)),
      m_limit(limit), m_bufferSize(bufferSize), m_store(BufferStore::shared(bufferSize)) {
    m_lent.reserve(count);
}

BufferAllocator::~BufferAllocator() { BufferAllocator::Reset(0); }

BufferAllocator::Lent::iterator BufferAllocator::find(const std::uint8_t* buffer) noexcept {
    return std::find_if(m_lent.begin(), m_lent.end(),
                        [buffer](const BufferStore::Buffer& lent) { return lent.get() == buffer; });
}

std::uint8_t* BufferAllocator::AllocateBuffer(std::uint32_t* capacity, void* /*reserved*/) {
    if (capacity == nullptr) {
        return nullptr;
    }
    *capacity = 0;
    const std::lock_guard lock(m_store->mutex());
    if (m_lent.size() == m_mostLent) {
        return nullptr;
    }
    try {
        m_lent.push_back(m_store->take());
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
    *capacity = m_bufferSize;
    return m_lent.back().get();
}

std::int32_t BufferAllocator::ConfirmBufferSize(std::uint8_t* buffer, std::uint32_t dataLength) {
    const std::lock_guard lock(m_store->mutex());
    return find(buffer) != m_lent.end() && dataLength <= m_bufferSize ? kOk : kInvalidParameter;
}

void BufferAllocator::ReleaseBuffer(std::uint8_t* buffer) {
    const std::lock_guard lock(m_store->mutex());
    if (const auto place = find(buffer); place != m_lent.end()) {
        m_store->putBack(std::move(*place));
        *place = std::move(m_lent.back());
        m_lent.pop_back();
    }
}

std::int32_t BufferAllocator::Reset(std::uint32_t value) {
    if (value != 0) {
        return kInvalidParameter;
    }
    const std::lock_guard lock(m_store->mutex());
    m_store->trim(m_limit);
    return kOk;
}

} // namespace KorvelVideo::NetworkSource
