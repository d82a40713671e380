#include "TestClock.h"

#include <dlfcn.h>

#include <atomic>

#include "PlatformCompiler.h"
#include "PlatformKernel.h"

namespace KvTest {

namespace {

// The stopped counter; below 0 while the real clock runs.
constinit std::atomic<std::int64_t> g_stoppedAt{-1};

std::int64_t realCounter() {
    static const auto original =
        reinterpret_cast<BOOL (*)(LARGE_INTEGER*)>(dlsym(RTLD_NEXT, "QueryPerformanceCounter"));
    LARGE_INTEGER counter{};
    original(&counter);
    return counter.QuadPart;
}

} // namespace

TestClock::TestClock() { g_stoppedAt = realCounter(); }

TestClock::~TestClock() { g_stoppedAt = -1; }

void TestClock::advance(std::chrono::nanoseconds time) {
    LARGE_INTEGER frequency{};
    QueryPerformanceFrequency(&frequency);
    const auto seconds = std::chrono::floor<std::chrono::seconds>(time);
    const std::int64_t rest = (time - seconds).count() * frequency.QuadPart / std::nano::den;
    g_stoppedAt += seconds.count() * frequency.QuadPart + rest;
}

} // namespace KvTest

extern "C" KV_EXPORT BOOL QueryPerformanceCounter(LARGE_INTEGER* counter) {
    const std::int64_t stoppedAt = KvTest::g_stoppedAt;
    counter->QuadPart = stoppedAt >= 0 ? stoppedAt : KvTest::realCounter();
    return TRUE;
}
