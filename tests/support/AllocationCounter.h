#pragma once

#include <cstdint>

// A program that uses these links AllocationCounter.cpp, which replaces operator new.

// Counts the heap allocations that the calling thread makes while the object lives.
class AllocationCounter {
public:
    AllocationCounter() noexcept;
    AllocationCounter(const AllocationCounter&) = delete;
    AllocationCounter& operator=(const AllocationCounter&) = delete;
    ~AllocationCounter() = default;

    [[nodiscard]] std::uint64_t count() const noexcept;

private:
    std::uint64_t m_start;
};

// While it lives, heap allocations of the calling thread fail.
class AllocationFailure {
public:
    AllocationFailure() noexcept;
    AllocationFailure(const AllocationFailure&) = delete;
    AllocationFailure& operator=(const AllocationFailure&) = delete;
    ~AllocationFailure();
};
