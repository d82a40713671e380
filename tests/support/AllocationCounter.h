#pragma once

#include <cstdint>

// Counts the heap allocations that the calling thread makes while the object lives. A program that uses it
// links AllocationCounter.cpp, which replaces operator new.
class AllocationCounter {
public:
    AllocationCounter() noexcept;
    AllocationCounter(const AllocationCounter&) = delete;
    AllocationCounter& operator=(const AllocationCounter&) = delete;
    ~AllocationCounter();

    [[nodiscard]] std::uint64_t count() const noexcept;

private:
    std::uint64_t m_start;
};
