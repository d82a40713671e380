#include "BufferAllocator.h"

#include <algorithm>
#include <functional>
#include <new>

namespace KorvelVideo::NetworkSource {

namespace {

constexpr std::int32_t kOk = 0;
constexpr std::int32_t kInvalidParameter = 2;

} // namespace

void BufferAllocator::AlignedDelete::operator()(std::uint8_t* memory) const noexcept {
    ::operator delete[](memory, std::align_val_t{kAlignment});
}

BufferAllocator::BufferAllocator(std::uint32_t count, std::uint32_t limit, std::uint32_t bufferSize)
    : m_count(count), m_limit(limit), m_bufferSize(bufferSize) {
    addSlab();
}

void BufferAllocator::addSlab() {
    const std::size_t size = std::size_t{m_count} * m_bufferSize;
    Slab slab;
    slab.lent.resize(m_count);
    slab.memory.reset(static_cast<std::uint8_t*>(::operator new[](size, std::align_val_t{kAlignment})));
    m_free.reserve((m_slabs.size() + 1) * m_count);
    std::uint8_t* const memory = slab.memory.get();
    const auto place = std::find_if(m_slabs.begin(), m_slabs.end(), [memory](const Slab& other) {
        return std::less<>()(memory, other.memory.get());
    });
    m_slabs.insert(place, std::move(slab));
    for (std::size_t index = m_count; index-- > 0;) {
        m_free.push_back(memory + index * m_bufferSize);
    }
}

BufferAllocator::Place BufferAllocator::find(const std::uint8_t* buffer) noexcept {
    const auto after = std::find_if(m_slabs.begin(), m_slabs.end(), [buffer](const Slab& slab) {
        return std::less<>()(buffer, slab.memory.get());
    });
    if (after == m_slabs.begin()) {
        return {};
    }
    Slab& slab = *std::prev(after);
    const std::uintptr_t offset =
        reinterpret_cast<std::uintptr_t>(buffer) - reinterpret_cast<std::uintptr_t>(slab.memory.get());
    const std::size_t index = offset / m_bufferSize;
    return index < m_count && offset % m_bufferSize == 0 ? Place{&slab, index} : Place{};
}

std::uint8_t* BufferAllocator::AllocateBuffer(std::uint32_t* capacity, void* /*reserved*/) {
    if (capacity == nullptr) {
        return nullptr;
    }
    *capacity = 0;
    const std::lock_guard lock(m_mutex);
    if (m_free.empty()) {
        const std::uint64_t grown = (m_slabs.size() + 1) * std::uint64_t{m_count} * m_bufferSize;
        if (grown > std::max(m_limit * kLentPerLimit, std::uint64_t{m_count} * m_bufferSize)) {
            return nullptr;
        }
        try {
            addSlab();
        } catch (const std::bad_alloc&) {
            return nullptr;
        }
    }
    std::uint8_t* const buffer = m_free.back();
    m_free.pop_back();
    const Place place = find(buffer);
    place.slab->lent[place.index] = true;
    ++place.slab->lentCount;
    *capacity = m_bufferSize;
    return buffer;
}

std::int32_t BufferAllocator::ConfirmBufferSize(std::uint8_t* buffer, std::uint32_t dataLength) {
    const std::lock_guard lock(m_mutex);
    return find(buffer).isLent() && dataLength <= m_bufferSize ? kOk : kInvalidParameter;
}

void BufferAllocator::ReleaseBuffer(std::uint8_t* buffer) {
    const std::lock_guard lock(m_mutex);
    const Place place = find(buffer);
    if (place.isLent()) {
        place.slab->lent[place.index] = false;
        --place.slab->lentCount;
        m_free.push_back(buffer);
    }
}

std::int32_t BufferAllocator::Reset(std::uint32_t value) {
    if (value != 0) {
        return kInvalidParameter;
    }
    const std::lock_guard lock(m_mutex);
    const std::uint64_t slabSize = std::uint64_t{m_count} * m_bufferSize;
    for (auto slab = m_slabs.begin(); slab != m_slabs.end();) {
        const bool surplus = m_free.size() * std::uint64_t{m_bufferSize} >= m_limit + slabSize;
        if (slab->lentCount != 0 || !surplus || m_slabs.size() == 1) {
            ++slab;
            continue;
        }
        const std::uint8_t* const begin = slab->memory.get();
        std::erase_if(m_free, [begin, slabSize](const std::uint8_t* buffer) {
            return !std::less<>()(buffer, begin) && std::less<>()(buffer, begin + slabSize);
        });
        slab = m_slabs.erase(slab);
    }
    return kOk;
}

} // namespace KorvelVideo::NetworkSource
