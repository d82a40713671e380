#include "MonotonicClock.h"

#include "PlatformKernel.h"

std::int64_t getMonotonicNanoseconds() noexcept {
    constexpr std::int64_t kNanosecondsPerSecond = 1'000'000'000;
    LARGE_INTEGER frequency{};
    LARGE_INTEGER counter{};
    QueryPerformanceFrequency(&frequency);
    QueryPerformanceCounter(&counter);
    const std::int64_t seconds = counter.QuadPart / frequency.QuadPart;
    const std::int64_t rest = counter.QuadPart % frequency.QuadPart;
    return seconds * kNanosecondsPerSecond + rest * kNanosecondsPerSecond / frequency.QuadPart;
}
