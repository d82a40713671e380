#pragma once

#include <cstddef>

// What this thread takes from the heap through operator new while the object lives.
class AllocationCounter {
public:
    AllocationCounter();
    ~AllocationCounter();
    AllocationCounter(const AllocationCounter&) = delete;
    AllocationCounter& operator=(const AllocationCounter&) = delete;

    [[nodiscard]] std::size_t count() const;
    [[nodiscard]] std::size_t bytes() const; // of all allocations, freed or not
};
