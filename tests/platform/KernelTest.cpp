#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/prctl.h>

#include <array>
#include <thread>
#include <utility>

#include "TestServer.h"

namespace {

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

TEST(Event, WaitDoesNotEndBeforeItsTime) {
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
    EXPECT_FALSE(CloseHandle(nullptr));
    EXPECT_EQ(WaitForSingleObject(nullptr, 0), WAIT_FAILED);
    SECURITY_DESCRIPTOR descriptor{};
    EXPECT_FALSE(SetSecurityDescriptorDacl(&descriptor, TRUE, nullptr, FALSE)) << "not initialised";
    EXPECT_EQ(CreateEventA(nullptr, TRUE, FALSE, "name"), nullptr);
    std::thread([] { SetLastError(ERROR_ACCESS_DENIED); }).join();
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER) << "of this thread";
}

// A thread that waits for `go`, and what it sees of itself.
struct Probe {
    HANDLE running = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    HANDLE go = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    HANDLE done = CreateEventA(nullptr, TRUE, FALSE, nullptr); // the last that the thread touches here
    unsigned threadId = 0;
    unsigned ownId = 0;
    std::size_t stackSize = 0;
    char name[16] = {};
    HANDLE thread;

    explicit Probe(unsigned stackBytes = 0, unsigned flags = 0)
        : thread(
              reinterpret_cast<HANDLE>(_beginthreadex(nullptr, stackBytes, &run, this, flags, &threadId))) {}
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
        pthread_attr_t attributes;
        pthread_getattr_np(pthread_self(), &attributes);
        pthread_attr_getstacksize(&attributes, &probe.stackSize);
        pthread_attr_destroy(&attributes);
        SetEvent(probe.running);
        EXPECT_EQ(WaitForSingleObject(probe.go, longWait), WAIT_OBJECT_0);
        prctl(PR_GET_NAME, probe.name);
        SetEvent(probe.done);
        return 7;
    }

    void finish() const {
        SetEvent(go);
        EXPECT_EQ(WaitForSingleObject(thread, longWait), WAIT_OBJECT_0);
    }
};

void nameThread(DWORD threadId, const char* name, DWORD type = 0x1000, DWORD argumentCount = 3) {
    const std::array<ULONG_PTR, 3> arguments = {type, reinterpret_cast<ULONG_PTR>(name), threadId};
    raiseGuardedException(0x406D1388, 0, argumentCount, arguments.data());
}

TEST(Thread, SuspendedRunsAfterResumeAndIsSignalledWhenItsRoutineReturns) {
    const Probe probe(0, CREATE_SUSPENDED);
    EXPECT_EQ(WaitForSingleObject(probe.running, 20), WAIT_TIMEOUT);
    EXPECT_FALSE(SetEvent(probe.thread)) << "a thread is no event";
    EXPECT_EQ(ResumeThread(probe.thread), 1U);
    EXPECT_EQ(WaitForSingleObject(probe.running, longWait), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(probe.thread, 0), WAIT_TIMEOUT);
    probe.finish();
    EXPECT_EQ(ResumeThread(probe.thread), 0U);
    EXPECT_EQ(probe.ownId, probe.threadId);
}

TEST(Thread, RunsOnAfterItsHandleIsClosed) {
    Probe probe;
    HANDLE thread = std::exchange(probe.thread, CreateEventA(nullptr, TRUE, FALSE, nullptr));
    EXPECT_TRUE(CloseHandle(thread));
    SetEvent(probe.go);
    EXPECT_EQ(WaitForSingleObject(probe.done, longWait), WAIT_OBJECT_0);
}

TEST(Thread, StackHasTheSizeAskedFor) {
    struct Row {
        unsigned asked;
        std::size_t least, most;
    };
    // The C library may reuse the stack of an ended thread that is several times as large.
    for (const Row row :
         {Row{0x80000, 0x80000, 0x400000}, Row{1, 0x10000, 0x400000}, Row{0, 0x40000, SIZE_MAX}}) {
        const Probe probe(row.asked, row.asked != 0 ? STACK_SIZE_PARAM_IS_A_RESERVATION : 0);
        probe.finish();
        EXPECT_GE(probe.stackSize, row.least) << row.asked;
        EXPECT_LE(probe.stackSize, row.most) << row.asked;
    }
}

TEST(Thread, NameIsCutToWhatTheSystemKeeps) {
    const Probe probe;
    nameThread(probe.threadId, "Korvel CKvThread");
    nameThread(probe.threadId, "wrong type", 0x1001);
    nameThread(probe.threadId, "too few", 0x1000, 2);
    nameThread(probe.threadId, nullptr);
    for (const DWORD nobody : {0U, 1U, 0x7FFFFFFEU}) {
        nameThread(nobody, "nobody");
    }
    probe.finish();
    EXPECT_STREQ(probe.name, "Korvel CKvThrea");
}

} // namespace
