#include "AllocationCounter.h"

#include <cstdlib>
#include <new>

namespace {
thread_local std::uint64_t t_allocations = 0;
} // namespace

AllocationCounter::AllocationCounter() noexcept : m_start(t_allocations) {}

AllocationCounter::~AllocationCounter() = default;

std::uint64_t AllocationCounter::count() const noexcept { return t_allocations - m_start; }

void* operator new(std::size_t size) {
    ++t_allocations;
    if (void* const memory = std::malloc(size == 0 ? 1 : size)) {
        return memory;
    }
    throw std::bad_alloc();
}

void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    ++t_allocations;
    return std::malloc(size == 0 ? 1 : size);
}

void operator delete(void* memory) noexcept { std::free(memory); }

void operator delete(void* memory, std::size_t /*size*/) noexcept { std::free(memory); }
