#include "AllocationCounter.h"

#include <cstdlib>
#include <new>

namespace {

struct Tally {
    bool active = false;
    std::size_t count = 0;
    std::size_t bytes = 0;
};
thread_local Tally t_tally;

} // namespace

AllocationCounter::AllocationCounter() { t_tally = {true, 0, 0}; }
AllocationCounter::~AllocationCounter() { t_tally.active = false; }
std::size_t AllocationCounter::count() const { return t_tally.count; }
std::size_t AllocationCounter::bytes() const { return t_tally.bytes; }

void* operator new(std::size_t size) {
    if (t_tally.active) {
        ++t_tally.count;
        t_tally.bytes += size;
    }
    if (void* const memory = std::malloc(size)) {
        return memory;
    }
    throw std::bad_alloc();
}

void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
