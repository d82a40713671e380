#include "AllocationCounter.h"

#include <atomic>
#include <cstdlib>
#include <new>

#include "FakeScope.h"

namespace {

thread_local std::uint64_t t_allocations = 0;
thread_local std::uint64_t t_bytes = 0;
std::atomic<std::int64_t> g_live{0};
std::atomic<bool> g_faulty{false};
std::atomic<std::int64_t> g_count{0};
std::atomic<std::int64_t> g_first{0};
std::atomic<std::int64_t> g_failures{0};

void* allocate(std::size_t size) noexcept {
    if (!FakeScope::isActive()) {
        ++t_allocations;
        t_bytes += size;
        const std::int64_t behindFirst = g_faulty ? g_count++ - g_first : -1;
        if (behindFirst >= 0 && behindFirst < g_failures) {
            return nullptr;
        }
    }
    ++g_live;
    return std::malloc(size == 0 ? 1 : size);
}

void release(void* memory) noexcept {
    g_live -= memory == nullptr ? 0 : 1;
    std::free(memory);
}

} // namespace

AllocationCounter::AllocationCounter() noexcept : m_startCount(t_allocations), m_startBytes(t_bytes) {}
std::uint64_t AllocationCounter::count() const noexcept { return t_allocations - m_startCount; }
std::uint64_t AllocationCounter::bytes() const noexcept { return t_bytes - m_startBytes; }
std::int64_t AllocationCounter::live() noexcept { return g_live; }

AllocationFault::AllocationFault(std::int64_t first, std::int64_t failures) noexcept {
    g_count = 0;
    g_first = first;
    g_failures = failures;
    g_faulty = true;
}
AllocationFault::~AllocationFault() { g_faulty = false; }
std::int64_t AllocationFault::count() noexcept { return g_count; }

void* operator new(std::size_t size) {
    if (void* const memory = allocate(size)) {
        return memory;
    }
    throw std::bad_alloc();
}
void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept { return allocate(size); }
void operator delete(void* memory) noexcept { release(memory); }
void operator delete(void* memory, std::size_t /*size*/) noexcept { release(memory); }
