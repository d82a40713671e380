#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

namespace KorvelVideo::NetworkSource {

// The free buffers that all allocators of one buffer size share. The last one that came back is lent first,
// whoever had it: its bytes are still in the cache, so what one stream has just delivered is where the next
// stream's data goes. Memory that was never lent is never touched.
//
// Any thread, with `mutex` held, which guards what the allocators have lent too: an operation takes one lock.
class BufferStore {
public:
    static constexpr std::size_t kAlignment = 64;

    struct AlignedDelete {
        void operator()(std::uint8_t* memory) const noexcept;
    };
    using Buffer = std::unique_ptr<std::uint8_t[], AlignedDelete>;

    // The process's store for buffers of this size; it ends with its last holder. Throws std::bad_alloc.
    [[nodiscard]] static std::shared_ptr<BufferStore> shared(std::uint32_t bufferSize);

    explicit BufferStore(std::uint32_t bufferSize) noexcept : m_bufferSize(bufferSize) {}

    [[nodiscard]] std::mutex& mutex() noexcept { return m_mutex; }
    // Throws std::bad_alloc; allocates nothing while there are free buffers.
    [[nodiscard]] Buffer take();
    void putBack(Buffer buffer) noexcept;
    // Gives free buffers beyond `bytes` back to the system.
    void trim(std::uint64_t bytes) noexcept;

private:
    const std::uint32_t m_bufferSize;
    std::mutex m_mutex;
    std::vector<Buffer> m_free;
};

} // namespace KorvelVideo::NetworkSource
