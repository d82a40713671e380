#pragma once

#include <cstdint>

// Fails one heap allocation of the module, on whatever thread; what the fakes do for themselves (FakeScope)
// neither counts nor fails. A program that uses it links AllocationFault.cpp, which replaces operator new.
// One at a time.
class AllocationFault {
public:
    // Fails allocation number `number`, counted from 0; with the default only counts.
    explicit AllocationFault(std::int64_t number = -1) noexcept;
    AllocationFault(const AllocationFault&) = delete;
    AllocationFault& operator=(const AllocationFault&) = delete;
    ~AllocationFault();

    [[nodiscard]] static std::int64_t count() noexcept;
};
