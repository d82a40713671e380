#pragma once

#include <cstdint>

// A program that uses these links AllocationCounter.cpp, which replaces operator new. What the fakes do for
// themselves (FakeScope) neither counts nor fails.

// Counts the heap allocations that the calling thread makes while the object lives.
class AllocationCounter {
public:
    AllocationCounter() noexcept;
    [[nodiscard]] std::uint64_t count() const noexcept;
    [[nodiscard]] std::uint64_t bytes() const noexcept; // of all allocations, freed or not
    // All allocations of the process, those of fakes too, that are not freed yet.
    [[nodiscard]] static std::int64_t live() noexcept;

private:
    std::uint64_t m_startCount;
    std::uint64_t m_startBytes;
};

// While it lives, allocations on whatever thread are counted from 0, and `failures` of them fail from number
// `first` on. One at a time.
struct AllocationFault {
    static constexpr std::int64_t kNever = INT64_MAX;

    explicit AllocationFault(std::int64_t first = kNever, std::int64_t failures = 1) noexcept;
    ~AllocationFault();
    AllocationFault(const AllocationFault&) = delete;
    AllocationFault& operator=(const AllocationFault&) = delete;

    [[nodiscard]] static std::int64_t count() noexcept;
};
