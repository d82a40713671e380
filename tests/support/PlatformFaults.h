#pragma once

#include <chrono>
#include <cstdint>

#include "PlatformKernel.h"

namespace KvTest {

// The platform operations that a test can make fail.
enum class PlatformCall {
    CloseHandle,
    CoCreateInstance,
    CoUninitialize,
    CreateEventA,
    RegCloseKey,
    RegCreateKeyW,
    RegSetValueExW,
    RegSetValueW,
    ResetEvent,
    SetEvent,
    WaitForSingleObject,
    beginthreadex,
};

// Which calls fail, and how.
struct Fault {
    std::int64_t result = 0; // what the call returns: a result code, a status, or 0 for a null handle
    unsigned after = 0;      // calls that still succeed before the first failing one
    unsigned times = 1;      // failing calls; after them calls succeed again
};

// While it lives, calls of one platform operation return what the test chose, without being made, on whatever
// thread. One at a time for each operation. A program that links this library has its platform calls pass
// through it; without a fault they are made as usual.
class PlatformFault {
public:
    PlatformFault(PlatformCall call, Fault fault);
    ~PlatformFault();
    PlatformFault(const PlatformFault&) = delete;
    PlatformFault& operator=(const PlatformFault&) = delete;

private:
    const PlatformCall m_call;
};

// Calls of one operation since the program began, failed ones included.
std::uint64_t platformCalls(PlatformCall call);

// While it lives, a wait with a limit lasts 1 ms at most, so that a test need not sit out the quiet that ends
// a stream. Waits without a limit are left alone.
struct ShortWaits {
    ShortWaits();
    ~ShortWaits();
    ShortWaits(const ShortWaits&) = delete;
    ShortWaits& operator=(const ShortWaits&) = delete;
};

// Stops the performance counter for the whole process while it lives; the test moves it. The counter begins
// at the real clock's time. One at a time.
struct TestClock {
    TestClock();
    ~TestClock();
    TestClock(const TestClock&) = delete;
    TestClock& operator=(const TestClock&) = delete;

    static void advance(std::chrono::nanoseconds time);
};

} // namespace KvTest
