#include "SynchronizationObjects.h"

#include <atomic>
#include <functional>
#include <string>

#include <gtest/gtest.h>

#include "PlatformFaults.h"

using KvTest::PlatformCall;
using KvTest::PlatformFault;

namespace {

constexpr std::uint32_t kBound = 20'000; // milliseconds after which a wait has failed

unsigned waitForGate(void* context) {
    static_cast<void>(static_cast<CKvEvent*>(context)->Wait(kBound));
    return 7;
}

unsigned returnAtOnce(void* context) {
    if (context != nullptr) {
        static_cast<std::atomic<int>*>(context)->fetch_add(1);
    }
    return 0;
}

TEST(CKvEvent, StaysOrResetsByItsKind) {
    struct Row {
        bool manualReset;
        bool second;
    };
    for (const Row row : {Row{true, true}, Row{false, false}}) {
        CKvEvent event(row.manualReset);
        EXPECT_FALSE(event.Wait(0)) << "not signalled at first";
        event.Set();
        EXPECT_TRUE(event.Wait(0));
        EXPECT_EQ(event.Wait(0), row.second);
        event.Set();
        event.Reset();
        EXPECT_FALSE(event.Wait(1));
    }
}

TEST(SynchronizationObjects, EveryFailureHasItsClassAndMessage) {
    CKvEvent event(true);
    CKvThread notCreated;
    CKvThread created;
    created.Create(returnAtOnce, nullptr, false, 0, false);

    struct Row {
        PlatformCall call;
        std::int64_t result;
        std::function<void()> operation;
        const char* message;
    };
    constexpr PlatformCall none = PlatformCall::RegCloseKey; // never called here
    const auto wait = [&] { static_cast<void>(event.Wait(0)); };
    const auto create = [&] { notCreated.Create(returnAtOnce, nullptr, false, 0, false); };
    const Row rows[] = {
        {PlatformCall::CreateEventA, 0, [] { const CKvEvent failing(true); },
         "CKvEvent::CKvEvent -> could not create an event"},
        {PlatformCall::SetEvent, 0, [&] { event.Set(); }, "CKvEvent::Set -> error occurred in SetEvent"},
        {PlatformCall::ResetEvent, 0, [&] { event.Reset(); },
         "CKvEvent::Reset -> error occurred in ResetEvent"},
        {PlatformCall::WaitForSingleObject, 0x80, wait,
         "CKvHandleSyncObject::Wait -> WaitForSingleObject returned WAIT_ABANDONED... This might be ok?"},
        {PlatformCall::WaitForSingleObject, 0xFFFFFFFF, wait,
         "CKvHandleSyncObject::Wait -> error occurred in WaitForSingleObject"},
        {PlatformCall::WaitForSingleObject, 1, wait,
         "CKvHandleSyncObject::Wait -> error occurred in WaitForSingleObject"},
        {PlatformCall::beginthreadex, 0, create, "CKvThread::Create -> could not create a thread"},
        {none, 0, [&] { event.Release(); }, "CKvHandleSyncObject::Release -> this is not a valid call"},
        {none, 0, [&] { notCreated.Release(); }, "CKvHandleSyncObject::Release -> this is not a valid call"},
        {none, 0, [&] { static_cast<void>(notCreated.Wait(0)); },
         "CKvHandleSyncObject::Wait -> object not created yet"},
        {none, 0, [&] { notCreated.Create(nullptr, nullptr, false, 0, false); },
         "CKvThread::Create -> invalid thread function pointer"},
        {none, 0, [&] { created.Create(returnAtOnce, nullptr, false, 0, false); },
         "CKvThread::Create -> thread was already created"},
    };
    for (const Row& row : rows) {
        const PlatformFault fault(row.call, {.result = row.result});
        try {
            row.operation();
            ADD_FAILURE() << "nothing thrown for " << row.message;
        } catch (const CKvHandleSyncObjectException& exception) { // which catches those of each class
            EXPECT_STREQ(exception.getMessage(), row.message);
            EXPECT_EQ(dynamic_cast<const CKvWaitAbandonnedException*>(&exception) != nullptr,
                      row.result == 0x80);
        }
    }
    EXPECT_TRUE(created.Wait(kBound)) << "the running thread is left untouched";
    create();
    EXPECT_TRUE(notCreated.Wait(kBound)) << "a failed start may be tried again";
}

TEST(CKvThread, IsSignalledWhenItsRoutineHasReturned) {
    CKvEvent gate(true);
    CKvThread thread;
    EXPECT_EQ(thread.getThreadId(), 0U);
    thread.Create(waitForGate, &gate, false, 0x80000, true);
    EXPECT_NE(thread.getThreadId(), 0U);
    EXPECT_FALSE(thread.Wait(1));
    gate.Set();
    EXPECT_TRUE(thread.Wait(kBound));
    EXPECT_TRUE(thread.Wait(0)) << "however often it is asked";
}

TEST(CKvThread, DestructionWaitsForTheRoutineAndNeverThrows) {
    std::atomic<int> runs{0};
    { const CKvThread neverCreated; }
    {
        CKvThread thread;
        thread.Create(returnAtOnce, &runs, false, 0, false);
    }
    EXPECT_EQ(runs, 1);

    const std::uint64_t closedBefore = KvTest::platformCalls(PlatformCall::CloseHandle);
    {
        CKvThread thread;
        thread.Create(returnAtOnce, nullptr, false, 0, false);
        EXPECT_TRUE(thread.Wait(kBound));
        const PlatformFault fault(PlatformCall::WaitForSingleObject, {.result = 0xFFFFFFFF});
        thread.~CKvThread();
        new (&thread) CKvThread;
    }
    EXPECT_EQ(KvTest::platformCalls(PlatformCall::CloseHandle), closedBefore + 1) << "the handle is closed";
}

// A derived class may replace the announcement of the name, and is asked even when the start failed.
class NamedThread final : public CKvThread {
public:
    void SetThreadName() override { ++m_named; }
    int m_named = 0;
};

TEST(CKvThread, AnnouncesItsNameThroughTheVirtualTable) {
    NamedThread thread;
    {
        const PlatformFault fault(PlatformCall::beginthreadex, {});
        EXPECT_THROW(thread.Create(returnAtOnce, nullptr, false, 0, false), CKvThreadException);
    }
    EXPECT_EQ(thread.m_named, 1);
    thread.Create(returnAtOnce, nullptr, false, 0, false);
    EXPECT_EQ(thread.m_named, 2);
    EXPECT_TRUE(thread.Wait(kBound));
}

} // namespace
