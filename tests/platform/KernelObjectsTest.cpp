#include <gtest/gtest.h>

#include <thread>

#include "PlatformKernel.h"

namespace {

struct EventCase {
    const char* name;
    BOOL manualReset;
    BOOL initialState;
    bool setFirst;
    bool thenReset;
    DWORD firstWait;
    DWORD secondWait;
};

constexpr EventCase eventCases[] = {
    {"ManualStartsClear", TRUE, FALSE, false, false, WAIT_TIMEOUT, WAIT_TIMEOUT},
    {"ManualStartsSet", TRUE, TRUE, false, false, WAIT_OBJECT_0, WAIT_OBJECT_0},
    {"ManualStaysSet", TRUE, FALSE, true, false, WAIT_OBJECT_0, WAIT_OBJECT_0},
    {"ManualReset", TRUE, TRUE, true, true, WAIT_TIMEOUT, WAIT_TIMEOUT},
    {"AutomaticStartsSet", FALSE, TRUE, false, false, WAIT_OBJECT_0, WAIT_TIMEOUT},
    {"AutomaticIsTakenOnce", FALSE, FALSE, true, false, WAIT_OBJECT_0, WAIT_TIMEOUT},
    {"AutomaticReset", FALSE, FALSE, true, true, WAIT_TIMEOUT, WAIT_TIMEOUT},
};

class EventTest : public testing::TestWithParam<EventCase> {};

TEST_P(EventTest, Waits) {
    const EventCase& row = GetParam();
    HANDLE event = CreateEventA(nullptr, row.manualReset, row.initialState, nullptr);
    ASSERT_NE(event, nullptr);
    if (row.setFirst) {
        EXPECT_TRUE(SetEvent(event));
    }
    if (row.thenReset) {
        EXPECT_TRUE(ResetEvent(event));
    }
    EXPECT_EQ(WaitForSingleObject(event, 0), row.firstWait);
    EXPECT_EQ(WaitForSingleObject(event, 0), row.secondWait);
    EXPECT_TRUE(CloseHandle(event));
}

INSTANTIATE_TEST_SUITE_P(, EventTest, testing::ValuesIn(eventCases),
                         [](const auto& row) { return std::string(row.param.name); });

// The waiter owns the event and closes it as soon as it wakes, while SetEvent may still be running.
TEST(Event, MayBeClosedByTheThreadThatItWakes) {
    for (int round = 0; round < 200; ++round) {
        HANDLE event = CreateEventA(nullptr, TRUE, FALSE, nullptr);
        std::thread waiter([event] {
            EXPECT_EQ(WaitForSingleObject(event, INFINITE), WAIT_OBJECT_0);
            CloseHandle(event);
        });
        EXPECT_TRUE(SetEvent(event));
        waiter.join();
    }
}

TEST(Event, WaitEndsWithItsTime) {
    HANDLE event = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    LARGE_INTEGER before{};
    LARGE_INTEGER after{};
    LARGE_INTEGER frequency{};
    QueryPerformanceFrequency(&frequency);
    QueryPerformanceCounter(&before);
    EXPECT_EQ(WaitForSingleObject(event, 20), WAIT_TIMEOUT);
    QueryPerformanceCounter(&after);
    EXPECT_GE((after.QuadPart - before.QuadPart) * 1000, 20 * frequency.QuadPart);
    CloseHandle(event);
}

TEST(Handle, RefusesNullAndNamedEvents) {
    EXPECT_FALSE(SetEvent(nullptr));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
    EXPECT_FALSE(ResetEvent(nullptr));
    EXPECT_FALSE(CloseHandle(nullptr));
    EXPECT_EQ(WaitForSingleObject(nullptr, 0), WAIT_FAILED);
    EXPECT_EQ(ResumeThread(nullptr), 0xFFFFFFFF);
    EXPECT_EQ(CreateEventA(nullptr, TRUE, FALSE, "name"), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
}

TEST(LastError, BelongsToItsThread) {
    SetLastError(ERROR_MORE_DATA);
    std::thread([] { SetLastError(ERROR_ACCESS_DENIED); }).join();
    EXPECT_EQ(GetLastError(), ERROR_MORE_DATA);
}

TEST(SecurityDescriptor, IsFilledAsAsked) {
    SECURITY_DESCRIPTOR descriptor{};
    EXPECT_FALSE(SetSecurityDescriptorDacl(&descriptor, TRUE, nullptr, FALSE)) << "not initialised";
    EXPECT_FALSE(InitializeSecurityDescriptor(&descriptor, 2));
    EXPECT_TRUE(InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION));
    EXPECT_TRUE(SetSecurityDescriptorDacl(&descriptor, TRUE, nullptr, FALSE));
    EXPECT_TRUE(descriptor.DaclPresent);
    EXPECT_EQ(descriptor.Dacl, nullptr);
}

} // namespace
