#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "BufferStore.h"
#include "StreamingSdk.h"

namespace KorvelVideo::NetworkSource {

// The buffer allocator behind CreateBufferAllocator: lends buffers of one size, out of the process's store
// for that size. Any thread. Once there are as many buffers as the streams need, nothing is allocated.
class BufferAllocator final : public MainConcept::NetworkStreaming::SdkBufferAllocator {
public:
    // Up to this many times `limit` is lent, so that a single access unit may be far larger than `limit`.
    static constexpr std::uint32_t kLentPerLimit = 16;

    // Throws std::bad_alloc.
    BufferAllocator(std::uint32_t count, std::uint32_t limit, std::uint32_t bufferSize);
    BufferAllocator(const BufferAllocator&) = delete;
    BufferAllocator& operator=(const BufferAllocator&) = delete;
    // Leaves no more free buffers behind for the others than a reset does.
    ~BufferAllocator() override;

    // Gives free buffers back to the system, down to `limit` bytes. Lent buffers stay lent. 0 on success;
    // `value` other than 0 fails.
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
    // The lent ones, the latest last. What is still lent when the allocator ends is freed and not lent on:
    // its holder might still write to it.
    using Lent = std::vector<BufferStore::Buffer>;

    [[nodiscard]] Lent::iterator find(const std::uint8_t* buffer) noexcept;

    const std::size_t m_mostLent;
    const std::uint32_t m_limit;
    const std::uint32_t m_bufferSize;
    const std::shared_ptr<BufferStore> m_store;
    Lent m_lent;
};

} // namespace KorvelVideo::NetworkSource
