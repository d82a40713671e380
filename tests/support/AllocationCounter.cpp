#include "AllocationCounter.h"

#include <cstdlib>
#include <new>

namespace {
thread_local std::uint64_t t_allocations = 0;
thread_local bool t_failing = false;

void* allocate(std::size_t size) noexcept {
    ++t_allocations;
    return t_failing ? nullptr : std::malloc(size == 0 ? 1 : size);
}
} // namespace

AllocationCounter::AllocationCounter() noexcept : m_start(t_allocations) {}

std::uint64_t AllocationCounter::count() const noexcept { return t_allocations - m_start; }

AllocationFailure::AllocationFailure() noexcept { t_failing = true; }

AllocationFailure::~AllocationFailure() { t_failing = false; }

void* operator new(std::size_t size) {
    if (void* const memory = allocate(size)) {
        return memory;
    }
    throw std::bad_alloc();
}

void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept { return allocate(size); }

void operator delete(void* memory) noexcept { std::free(memory); }

void operator delete(void* memory, std::size_t /*size*/) noexcept { std::free(memory); }
