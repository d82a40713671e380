#include "AllocationFault.h"

#include <atomic>
#include <cstdlib>
#include <new>

#include "CallLog.h"

namespace {

std::atomic<bool> g_counting{false};
std::atomic<std::int64_t> g_count{0};
std::atomic<std::int64_t> g_failing{-1};

void* allocate(std::size_t size) noexcept {
    if (g_counting && !FakeScope::isActive() && g_count.fetch_add(1) == g_failing) {
        return nullptr;
    }
    return std::malloc(size == 0 ? 1 : size);
}

} // namespace

AllocationFault::AllocationFault(std::int64_t number) noexcept {
    g_count = 0;
    g_failing = number;
    g_counting = true;
}

AllocationFault::~AllocationFault() { g_counting = false; }

std::int64_t AllocationFault::count() noexcept { return g_count; }

void* operator new(std::size_t size) {
    if (void* const memory = allocate(size)) {
        return memory;
    }
    throw std::bad_alloc();
}

void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept { return allocate(size); }

void operator delete(void* memory) noexcept { std::free(memory); }

void operator delete(void* memory, std::size_t /*size*/) noexcept { std::free(memory); }
