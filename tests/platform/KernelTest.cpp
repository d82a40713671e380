#include <gtest/gtest.h>
#include <sys/prctl.h>

#include <array>
#include <utility>

#include "PlatformKernel.h"

namespace {

constexpr DWORD longWait = 10'000; // milliseconds

// A thread that waits for `go`, and what it sees of itself.
struct Probe {
    HANDLE running = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    HANDLE go = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    HANDLE done = CreateEventA(nullptr, TRUE, FALSE, nullptr); // the last that the thread touches here
    unsigned threadId = 0;
    unsigned ownId = 0;
    char name[16] = {};
    HANDLE thread;

    explicit Probe(unsigned flags = 0)
        : thread(reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, &run, this, flags, &threadId))) {}
    ~Probe() {
        for (HANDLE handle : {running, go, done, thread}) {
            EXPECT_TRUE(CloseHandle(handle));
        }
    }
    Probe(const Probe&) = delete;
    Probe& operator=(const Probe&) = delete;

    static unsigned run(void* context) {
        auto& probe = *static_cast<Probe*>(context);
        probe.ownId = GetCurrentThreadId();
        SetEvent(probe.running);
        EXPECT_EQ(WaitForSingleObject(probe.go, longWait), WAIT_OBJECT_0);
        prctl(PR_GET_NAME, probe.name);
        SetEvent(probe.done);
        return 7;
    }
};

TEST(Thread, SuspendedRunsAfterResumeAndIsSignalledWhenItsRoutineReturns) {
    const Probe probe(CREATE_SUSPENDED);
    EXPECT_EQ(WaitForSingleObject(probe.running, 20), WAIT_TIMEOUT);
    EXPECT_FALSE(SetEvent(probe.thread) || SetEvent(nullptr)) << "a thread is no event";
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
    EXPECT_EQ(ResumeThread(probe.thread), 1U);
    EXPECT_EQ(WaitForSingleObject(probe.running, longWait), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(probe.thread, 0), WAIT_TIMEOUT);
    SetEvent(probe.go);
    EXPECT_EQ(WaitForSingleObject(probe.thread, longWait), WAIT_OBJECT_0);
    EXPECT_EQ(probe.ownId, probe.threadId);
}

TEST(Thread, RunsOnAfterItsHandleIsClosedAndBearsWhatTheSystemKeepsOfItsName) {
    Probe probe;
    EXPECT_TRUE(CloseHandle(std::exchange(probe.thread, CreateEventA(nullptr, TRUE, FALSE, nullptr))));
    const auto nameThread = [](DWORD threadId, const char* name, DWORD type = 0x1000,
                               DWORD argumentCount = 3) {
        const std::array<ULONG_PTR, 3> arguments = {type, reinterpret_cast<ULONG_PTR>(name), threadId};
        raiseGuardedException(0x406D1388, 0, argumentCount, arguments.data());
    };
    nameThread(probe.threadId, "Korvel CKvThread");
    nameThread(probe.threadId, "wrong type", 0x1001);
    nameThread(probe.threadId, "too few", 0x1000, 2);
    nameThread(probe.threadId, nullptr);
    nameThread(0x7FFFFFFE, "nobody");
    SetEvent(probe.go);
    EXPECT_EQ(WaitForSingleObject(probe.done, longWait), WAIT_OBJECT_0);
    EXPECT_STREQ(probe.name, "Korvel CKvThrea");
}

} // namespace
