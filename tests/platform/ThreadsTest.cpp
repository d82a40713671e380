#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/prctl.h>

#include <array>
#include <string>

#include "PlatformKernel.h"

namespace {

constexpr DWORD longWait = 10'000;

// What a test thread sees of itself; it ends when `go` is set.
struct Probe {
    HANDLE running = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    HANDLE go = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    // Set by the thread when it is done with this probe.
    HANDLE done = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    unsigned threadId = 0;
    unsigned ownId = 0;
    bool knewItsId = false;
    std::size_t stackSize = 0;
    std::string name;

    ~Probe() {
        CloseHandle(running);
        CloseHandle(go);
        CloseHandle(done);
    }

    static unsigned run(void* context) {
        auto& probe = *static_cast<Probe*>(context);
        probe.ownId = GetCurrentThreadId();
        probe.knewItsId = probe.threadId == probe.ownId;
        pthread_attr_t attributes;
        pthread_getattr_np(pthread_self(), &attributes);
        pthread_attr_getstacksize(&attributes, &probe.stackSize);
        pthread_attr_destroy(&attributes);
        SetEvent(probe.running);
        EXPECT_EQ(WaitForSingleObject(probe.go, longWait), WAIT_OBJECT_0);
        char name[16];
        prctl(PR_GET_NAME, name);
        probe.name = name;
        SetEvent(probe.done);
        return 7;
    }

    HANDLE start(unsigned stackBytes, unsigned flags) {
        return reinterpret_cast<HANDLE>(_beginthreadex(nullptr, stackBytes, &run, this, flags, &threadId));
    }
};

void nameThread(DWORD threadId, const char* name, DWORD type = 0x1000, DWORD argumentCount = 3) {
    const std::array<ULONG_PTR, 3> arguments = {type, reinterpret_cast<ULONG_PTR>(name), threadId};
    raiseGuardedException(0x406D1388, 0, argumentCount, arguments.data());
}

TEST(Thread, IsSignalledWhenItsRoutineReturns) {
    Probe probe;
    HANDLE thread = probe.start(0, 0);
    ASSERT_NE(thread, nullptr);
    EXPECT_NE(probe.threadId, 0U);
    EXPECT_EQ(WaitForSingleObject(thread, 0), WAIT_TIMEOUT);
    EXPECT_FALSE(SetEvent(thread)) << "a thread is no event";
    SetEvent(probe.go);
    EXPECT_EQ(WaitForSingleObject(thread, longWait), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(thread, 0), WAIT_OBJECT_0);
    EXPECT_TRUE(probe.knewItsId);
    EXPECT_NE(probe.ownId, GetCurrentThreadId());
    EXPECT_TRUE(CloseHandle(thread));
}

TEST(Thread, SuspendedRunsAfterResume) {
    Probe probe;
    HANDLE thread = probe.start(0, CREATE_SUSPENDED);
    ASSERT_NE(thread, nullptr);
    SetEvent(probe.go);
    EXPECT_NE(probe.threadId, 0U);
    EXPECT_EQ(WaitForSingleObject(probe.running, 20), WAIT_TIMEOUT);
    EXPECT_EQ(ResumeThread(thread), 1U);
    EXPECT_EQ(WaitForSingleObject(thread, longWait), WAIT_OBJECT_0);
    EXPECT_EQ(ResumeThread(thread), 0U);
    CloseHandle(thread);
}

TEST(Thread, RunsOnAfterItsHandleIsClosed) {
    Probe probe;
    HANDLE thread = probe.start(0, 0);
    ASSERT_NE(thread, nullptr);
    EXPECT_EQ(WaitForSingleObject(probe.running, longWait), WAIT_OBJECT_0);
    EXPECT_TRUE(CloseHandle(thread));
    SetEvent(probe.go);
    EXPECT_EQ(WaitForSingleObject(probe.done, longWait), WAIT_OBJECT_0);
}

TEST(Thread, StackHasTheSizeAskedFor) {
    struct Row {
        unsigned asked;
        std::size_t least;
        std::size_t most;
    };
    // The C library may reuse the stack of an ended thread that is several times as large.
    for (const Row row :
         {Row{0x80000, 0x80000, 0x400000}, Row{1, 0x10000, 0x400000}, Row{0, 0x40000, SIZE_MAX}}) {
        Probe probe;
        HANDLE thread = probe.start(row.asked, row.asked != 0 ? STACK_SIZE_PARAM_IS_A_RESERVATION : 0);
        ASSERT_NE(thread, nullptr);
        SetEvent(probe.go);
        EXPECT_EQ(WaitForSingleObject(thread, longWait), WAIT_OBJECT_0);
        EXPECT_GE(probe.stackSize, row.least) << row.asked;
        EXPECT_LE(probe.stackSize, row.most) << row.asked;
        CloseHandle(thread);
    }
}

TEST(Thread, RefusesNoRoutineAndUnknownFlags) {
    unsigned id = 0;
    EXPECT_EQ(_beginthreadex(nullptr, 0, nullptr, nullptr, 0, &id), 0U);
    EXPECT_EQ(_beginthreadex(nullptr, 0, &Probe::run, nullptr, 0x80, &id), 0U);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(id, 0U);
}

TEST(ThreadName, IsCutToWhatTheSystemKeeps) {
    Probe probe;
    HANDLE thread = probe.start(0, 0);
    ASSERT_NE(thread, nullptr);
    nameThread(probe.threadId, "Korvel CKvThread");
    nameThread(probe.threadId, "wrong type", 0x1001);
    nameThread(probe.threadId, "too few", 0x1000, 2);
    nameThread(probe.threadId, nullptr);
    SetEvent(probe.go);
    EXPECT_EQ(WaitForSingleObject(thread, longWait), WAIT_OBJECT_0);
    EXPECT_EQ(probe.name, "Korvel CKvThrea");
    CloseHandle(thread);
}

TEST(ThreadName, OfNoThreadIsIgnored) {
    char before[16];
    char after[16];
    prctl(PR_GET_NAME, before);
    nameThread(0, "nobody");
    nameThread(0x7FFFFFFE, "nobody");
    nameThread(1, "nobody");
    prctl(PR_GET_NAME, after);
    EXPECT_STREQ(before, after);
}

} // namespace
