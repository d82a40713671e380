#pragma once

#include <atomic>
#include <cstdint>

namespace KorvelVideo::NetworkSource {

// Counts what one thread at a time does; any thread reads it. Counting takes no locked instruction, which
// would hold up all other memory accesses of a delivery.
class Counter {
public:
    void add(std::uint64_t count) noexcept {
        m_value.store(m_value.load(std::memory_order_relaxed) + count, std::memory_order_relaxed);
    }
    operator std::uint64_t() const noexcept { // NOLINT(google-explicit-constructor): reads like a number
        return m_value.load(std::memory_order_relaxed);
    }

private:
    std::atomic<std::uint64_t> m_value{0};
};

} // namespace KorvelVideo::NetworkSource
