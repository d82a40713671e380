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

unsigned countRunLate(void* context) {
    static_cast<void>(CKvEvent(true).Wait(20)); // so that who does not wait for it comes first
    static_cast<std::atomic<int>*>(context)->fetch_add(1);
    return 0;
}

unsigned returnAtOnce(void* /*context*/) { return 0; }

TEST(CKvEvent, StaysOrResetsByItsKind) {
    for (const bool isManual : {true, false}) {
        CKvEvent event(isManual);
        EXPECT_FALSE(event.Wait(0)) << "not signalled at first";
        event.Set();
        EXPECT_TRUE(event.Wait(0));
        EXPECT_EQ(event.Wait(0), isManual);
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
        std::string message;
    };
    constexpr PlatformCall none = PlatformCall::RegCloseKey; // never called here
    const auto wait = [&] { static_cast<void>(event.Wait(0)); };
    const auto create = [&] { notCreated.Create(returnAtOnce, nullptr, false, 0, false); };
    const std::string sync = "CKvHandleSyncObject::";
    const Row rows[] = {
        {PlatformCall::CreateEventA, 0, [] { const CKvEvent failing(true); },
         "CKvEvent::CKvEvent -> could not create an event"},
        {PlatformCall::SetEvent, 0, [&] { event.Set(); }, "CKvEvent::Set -> error occurred in SetEvent"},
        {PlatformCall::ResetEvent, 0, [&] { event.Reset(); },
         "CKvEvent::Reset -> error occurred in ResetEvent"},
        {PlatformCall::WaitForSingleObject, WAIT_ABANDONED, wait,
         sync + "Wait -> WaitForSingleObject returned WAIT_ABANDONED... This might be ok?"},
        {PlatformCall::WaitForSingleObject, 0xFFFFFFFF, wait,
         sync + "Wait -> error occurred in WaitForSingleObject"},
        {PlatformCall::beginthreadex, 0, create, "CKvThread::Create -> could not create a thread"},
        {none, 0, [&] { event.Release(); }, sync + "Release -> this is not a valid call"},
        {none, 0, [&] { static_cast<void>(notCreated.Wait(0)); }, sync + "Wait -> object not created yet"},
        {none, 0, [&] { notCreated.Create(nullptr, nullptr, false, 0, false); },
         "CKvThread::Create -> invalid thread function pointer"},
        {none, 0, [&] { created.Create(returnAtOnce, nullptr, false, 0, false); },
         "CKvThread::Create -> thread was already created"}};
    for (const Row& row : rows) {
        const PlatformFault fault(row.call, {.result = row.result});
        try {
            row.operation();
            ADD_FAILURE() << "nothing thrown for " << row.message;
        } catch (const CKvHandleSyncObjectException& exception) { // which catches those of each class
            EXPECT_EQ(exception.getMessage(), row.message);
            EXPECT_EQ(dynamic_cast<const CKvWaitAbandonnedException*>(&exception) != nullptr,
                      row.result == WAIT_ABANDONED);
        }
    }
    EXPECT_TRUE(created.Wait(kBound)) << "the running thread is left untouched";
}

TEST(CKvThread, IsSignalledWhenItsRoutineHasReturnedAndDestructionWaits) {
    const std::uint64_t closedBefore = KvTest::platformCalls(PlatformCall::CloseHandle);
    CKvEvent gate(true);
    std::atomic<int> runs{0};
    {
        const CKvThread neverCreated;
        CKvThread waiting;
        waiting.Create(waitForGate, &gate, false, 0x80000, true);
        EXPECT_NE(waiting.getThreadId(), 0U);
        EXPECT_FALSE(waiting.Wait(1));
        gate.Set();
        EXPECT_TRUE(waiting.Wait(kBound));
        CKvThread notWaitedFor;
        notWaitedFor.Create(countRunLate, &runs, false, 0, false);
    }
    EXPECT_EQ(runs, 1);
    EXPECT_EQ(KvTest::platformCalls(PlatformCall::CloseHandle), closedBefore + 3) << "the late event too";
}

} // namespace
