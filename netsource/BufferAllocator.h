#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "StreamingSdk.h"

namespace KorvelVideo::NetworkSource {

// The buffer allocator behind CreateBufferAllocator. All buffers have one size. They are taken from slabs of
// `count` buffers, the last one given back is lent first (its bytes are still in the cache), and memory that
// was never lent is never touched. Any thread. Once grown to what a stream needs, it allocates nothing.
class BufferAllocator final : public MainConcept::NetworkStreaming::SdkBufferAllocator {
public:
    // Up to this many times `limit` is lent, so that a single access unit may be far larger than `limit`.
    static constexpr std::uint32_t kLentPerLimit = 16;
    static constexpr std::size_t kAlignment = 64;

    // Throws std::bad_alloc.
    BufferAllocator(std::uint32_t count, std::uint32_t limit, std::uint32_t bufferSize);

    // Gives slabs that nobody holds a buffer of back to the system, down to `limit` bytes of free buffers but
    // not below the first slab. Lent buffers stay lent. 0 on success; `value` other than 0 fails.
    std::int32_t Reset(std::uint32_t value) override;
    std::uint8_t* AllocateBuffer(std::uint32_t* capacity, void* reserved) override;
    // Fails for a buffer that is not lent and for a length beyond its size.
    std::int32_t ConfirmBufferSize(std::uint8_t* buffer, std::uint32_t dataLength) override;
    // Ignores a buffer that is not lent.
    void ReleaseBuffer(std::uint8_t* buffer) override;

    void ReservedSlot1() override {}
    void ReservedSlot2() override {}
    void ReservedSlot4() override {}
    void ReservedSlot5() override {}
    void ReservedSlot6() override {}
    void ReservedSlot7() override {}

private:
    struct AlignedDelete {
        void operator()(std::uint8_t* memory) const noexcept;
    };
    struct Slab {
        std::unique_ptr<std::uint8_t[], AlignedDelete> memory;
        std::vector<bool> lent;
        std::uint32_t lentCount = 0;
    };
    struct Place {
        Slab* slab = nullptr;
        std::size_t index = 0;
        [[nodiscard]] bool isLent() const noexcept { return slab != nullptr && slab->lent[index]; }
    };

    void addSlab();
    // Where a buffer of ours lies; an empty place for any other address.
    [[nodiscard]] Place find(const std::uint8_t* buffer) noexcept;

    const std::uint32_t m_count;
    const std::uint64_t m_limit;
    const std::uint32_t m_bufferSize;
    std::mutex m_mutex;
    std::vector<Slab> m_slabs; // by address
    std::vector<std::uint8_t*> m_free;
};

} // namespace KorvelVideo::NetworkSource
