#include <gtest/gtest.h>

#include "PlatformFaults.h"
#include "PlatformModule.h"
#include "TestClock.h"

namespace {

using KvTest::PlatformCall;
using KvTest::PlatformFault;

TEST(PlatformFault, MeetsTheChosenCallsOnly) {
    HANDLE event = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    {
        const PlatformFault fault(PlatformCall::SetEvent,
                                  {.after = 1, .times = 2, .lastError = ERROR_ACCESS_DENIED});
        EXPECT_TRUE(SetEvent(event));
        EXPECT_FALSE(SetEvent(event));
        EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
        EXPECT_FALSE(SetEvent(event));
        EXPECT_TRUE(SetEvent(event));
        EXPECT_EQ(fault.failed(), 2U);
    }
    {
        const PlatformFault fault(PlatformCall::WaitForSingleObject, {.result = WAIT_ABANDONED});
        EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_ABANDONED);
    }
    EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_OBJECT_0);
    CloseHandle(event);
    const PlatformFault fault(PlatformCall::CreateEventA, {});
    EXPECT_EQ(CreateEventA(nullptr, TRUE, FALSE, nullptr), nullptr);
}

TEST(TestClock, StopsAndMovesTheCounter) {
    LARGE_INTEGER first{};
    LARGE_INTEGER second{};
    {
        KvTest::TestClock clock;
        QueryPerformanceCounter(&first);
        QueryPerformanceCounter(&second);
        EXPECT_EQ(first.QuadPart, second.QuadPart);
        clock.advance(std::chrono::seconds(3));
        QueryPerformanceCounter(&second);
        LARGE_INTEGER frequency{};
        QueryPerformanceFrequency(&frequency);
        EXPECT_EQ(second.QuadPart - first.QuadPart, 3 * frequency.QuadPart);
    }
    QueryPerformanceCounter(&second);
    EXPECT_GT(second.QuadPart, first.QuadPart);
}

} // namespace
