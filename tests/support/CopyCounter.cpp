#include "CopyCounter.h"

#include <cstddef>

#include "FakeScope.h"

namespace {
thread_local std::uint64_t t_copiedBytes = 0;
} // namespace

// The linker sends every call of memcpy and memmove here (see kv_copy_counter in tests/CMakeLists.txt).
extern "C" {
void* __real_memcpy(void* destination, const void* source, std::size_t size);
void* __real_memmove(void* destination, const void* source, std::size_t size);

void* __wrap_memcpy(void* destination, const void* source, std::size_t size) {
    t_copiedBytes += FakeScope::isActive() ? 0 : size;
    return __real_memcpy(destination, source, size);
}
void* __wrap_memmove(void* destination, const void* source, std::size_t size) {
    t_copiedBytes += FakeScope::isActive() ? 0 : size;
    return __real_memmove(destination, source, size);
}
}

CopyCounter::CopyCounter() noexcept : m_start(t_copiedBytes) {}
std::uint64_t CopyCounter::bytes() const noexcept { return t_copiedBytes - m_start; }
