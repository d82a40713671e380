#include "NetworkStreamReceiverFixture.h"

#include <chrono>
#include <functional>
#include <future>
#include <new>
#include <stdexcept>
#include <thread>

#include "AllocationCounter.h"
#include "PlatformFaults.h"

using KvTest::PlatformCall;
using KvTest::PlatformFault;
using namespace KorvelVideo::Network;

namespace {

constexpr std::chrono::seconds kBound{30};

TEST_F(NetworkStreamReceiverTest, RefusesToBeBuiltWithoutNotifierOrAllocator) {
    for (const bool withNotifier : {false, true}) {
        if (withNotifier) {
            ScriptedSdk::failCall("CreateBufferAllocator", 1);
        }
        try {
            const NetworkStreamReceiver receiver(withNotifier ? &m_notifier : nullptr);
            ADD_FAILURE() << "constructed";
        } catch (const CKvVaneException& exception) {
            EXPECT_EQ(exception.m_result, KV_E_INVALID_POINTER);
            EXPECT_STREQ(exception.m_sourceFile, "src/NetworkStreamReceiver");
        }
        EXPECT_EQ(ScriptedSdk::remains().allocators, 1) << "the fixture's alone";
    }
}

TEST_F(NetworkStreamReceiverTest, ABufferThatIsNotLentLeavesTheRecordUntouched) {
    for (const std::uint32_t capacity : {0U, 65536U}) {
        _tagConsumerInfo info{};
        ScriptedSdk::failCall("AllocateBuffer", capacity);
        m_receiver->GetBuffer(&info);
        EXPECT_EQ(info.buffer, nullptr);
        EXPECT_EQ(RecordingLogger::takeLines(),
                  (Lines{{0, 4, "Error allocating buffer from buffer allocator."}}));
        EXPECT_EQ(takeCalls(), (Calls{"AllocateBuffer(0, null)"}));
    }
    m_receiver->GetBuffer(nullptr);
    EXPECT_EQ(takeCalls(), Calls{}) << "without a record nothing is lent";
}

TEST_F(NetworkStreamReceiverTest, BadRecordsLoseOnlyThemselves) {
    struct Row {
        const char* name;
        std::uint8_t valid;
        std::uint8_t discard;
        bool confirmed;
        bool kept;
        Lines lines;
    };
    const Row rows[] = {
        {"invalid", 0, 0, true, false, {{3, 3, "OnData called back with invalid sample."}}},
        {"invalid before discard", 0, 1, true, false, {{3, 3, "OnData called back with invalid sample."}}},
        {"discard", 1, 1, true, false, {}},
        {"not confirmed",
         1,
         0,
         false,
         true,
         {{3, 3, "Could not confirm buffer size from buffer allocator."}}},
        {"valid by any value", 0x80, 0, true, true, {}},
    };
    play({1}, 40);
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const int before = ScriptedSdk::remains().buffers;
        if (!row.confirmed) {
            ScriptedSdk::failCall("ConfirmBufferSize", 1);
        }
        ScriptedSdk::play(*m_receiver, {{2}, 40, 96, row.valid, row.discard});
        EXPECT_EQ(RecordingLogger::takeLines(), row.lines);
        EXPECT_EQ(ScriptedSdk::remains().buffers, before + (row.kept ? 1 : 0));
    }
    for (const bool withRecord : {false, true}) {
        _tagConsumerInfo info{};
        m_receiver->OnData(withRecord ? &info : nullptr);
        EXPECT_EQ(RecordingLogger::takeLines(), (Lines{{3, 3, "OnData called back with invalid pointer."}}));
    }
    play({9}, 80);
    EXPECT_EQ(m_sink.takeDelivered(), (Units{{{1, 2, 2}, 40}}));
}

TEST_F(NetworkStreamReceiverTest, AHostThatFailsLosesItsAccessUnitAndNoBuffer) {
    for (const char* call : {"ProvideVideoSurface", "Lock"}) {
        play({1}, 40);
        m_sink.script.fail(call, E_FAIL);
        play({2}, 80);
        play({3}, 120);
        EXPECT_EQ(m_sink.takeDelivered(), (Units{{{2}, 80}})) << call;
        m_receiver->releasePendingSamples();
        EXPECT_EQ(ScriptedSdk::remains().buffers, 0);
    }
}

TEST_F(NetworkStreamReceiverTest, AHostThatThrowsLosesItsAccessUnitAndNoBuffer) {
    play({1}, 40);
    m_sink.onCall = [](const std::string& call) {
        if (call == "Lock") {
            throw std::runtime_error("host");
        }
    };
    EXPECT_THROW(ScriptedSdk::play(*m_receiver, {{2}, 80}), std::runtime_error);
    m_sink.onCall = nullptr;
    EXPECT_EQ(ScriptedSdk::remains().buffers, 1) << "the failed unit is given back, the new buffer is kept";
    play({3}, 120);
    EXPECT_EQ(m_sink.takeDelivered(), (Units{{{2}, 80}}));
}

TEST_F(NetworkStreamReceiverTest, AWorkerThatFailsEndsItsStepAndNotTheProcess) {
    struct Row {
        const char* name;
        std::function<void()> fail;
        LogLine line;
    };
    const Row rows[] = {
        {"standard exception",
         [] { throw std::runtime_error("the host failed"); },
         {0, 4, "the host failed"}},
        {"message exception", [] { throw CKvEventException("event failed"); }, {0, 4, "event failed"}},
        {"anything", [] { throw 5; }, {0, 4, "Unknown exception on the end of stream thread."}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        m_receiver->resetForStart();
        play({1}, 40);
        m_sink.onCall = [&row](const std::string& call) {
            if (call == "ProvideVideoSurface") {
                row.fail();
            }
        };
        RecordingLogger::clear();
        notify(6);
        EXPECT_TRUE(m_sink.waitForStatus(KV_S_STREAM_ENDED)) << "the end is reported all the same";
        m_receiver->releasePendingSamples();
        m_sink.takeStatuses();
        const Lines lines = RecordingLogger::takeLines();
        ASSERT_EQ(lines.size(), 3U);
        EXPECT_EQ(lines[2], row.line);
        EXPECT_EQ(ScriptedSdk::remains().buffers, 0);
    }
    m_sink.onCall = nullptr;
}

TEST_F(NetworkStreamReceiverTest, AWorkerThatCannotBeStartedMayBeTriedAgain) {
    {
        const PlatformFault fault(PlatformCall::beginthreadex, {.times = 2});
        EXPECT_THROW(notify(6), CKvThreadException);
        EXPECT_THROW(m_receiver->forceEndOfStream(), CKvThreadException);
    }
    m_receiver->releasePendingSamples();
    notify(6);
    EXPECT_TRUE(m_sink.waitForStatus(KV_S_STREAM_ENDED));
}

TEST_F(NetworkStreamReceiverTest, StopFromInsideTheWorkersCallbackDoesNotWaitForItself) {
    play({1}, 40);
    m_sink.onCall = [this](const std::string& call) {
        if (call == "NotifyStatus") {
            m_receiver->setStopCalled();
            m_receiver->releasePendingSamples();
        }
    };
    notify(6);
    EXPECT_TRUE(m_sink.waitForStatus(KV_S_STREAM_ENDED));
}

TEST_F(NetworkStreamReceiverTest, StopFromInsideADeliveryLeavesTheAccessUnitWhole) {
    play({1}, 40);
    m_sink.onCall = [this](const std::string& call) {
        if (call == "ProvideVideoSurface") {
            m_receiver->setStopCalled();
            m_receiver->releasePendingSamples();
        }
    };
    play({2}, 80);
    m_sink.onCall = nullptr;
    EXPECT_EQ(m_sink.takeDelivered(), (Units{{{1}, 40}}));
    EXPECT_EQ(ScriptedSdk::remains().buffers, 0) << "what was pending at the stop is dropped";
}

TEST_F(NetworkStreamReceiverTest, ALackOfMemoryLosesItsOwnBufferAlone) {
    play({1}, 40);
    _tagConsumerInfo info{};
    m_receiver->GetBuffer(&info);
    info.sampleValid = 1;
    info.dataLength = 1;
    info.timeStamp = 80; // completes the pending access unit
    {
        const AllocationFault failure(0);
        EXPECT_THROW(m_receiver->OnData(&info), std::bad_alloc);
    }
    EXPECT_EQ(ScriptedSdk::remains().buffers, 1) << "the new buffer is given back";
    play({3}, 40);
    play({4}, 120);
    EXPECT_EQ(m_sink.takeDelivered(), (Units{{{1, 3}, 40}}));
}

TEST_F(NetworkStreamReceiverTest, FailingKernelObjectsLoseNoData) {
    {
        const PlatformFault fault(PlatformCall::WaitForSingleObject, {.result = 0xFFFFFFFF});
        play({1}, 40);
        notify(6);
        EXPECT_TRUE(m_sink.waitForStatus(KV_S_STREAM_ENDED));
    }
    EXPECT_EQ(m_sink.takeDelivered(), (Units{{{1}, 40}})) << "a worker that cannot wait delivers at once";
    m_receiver->releasePendingSamples();
    {
        const PlatformFault fault(PlatformCall::SetEvent, {});
        EXPECT_THROW(ScriptedSdk::play(*m_receiver, {{2}, 80}), CKvEventException);
    }
    EXPECT_EQ(ScriptedSdk::remains().buffers, 1) << "the buffer is pending";
    const PlatformFault fault(PlatformCall::WaitForSingleObject, {.result = 0xFFFFFFFF});
    RecordingLogger::clear();
    m_receiver.reset();
    EXPECT_EQ(RecordingLogger::takeLines(),
              (Lines{{0, 4, "CKvHandleSyncObject::Wait -> error occurred in WaitForSingleObject"}}));
}

// A stop that waits for the first worker holds its thread object; the next worker waits for it all the same.
TEST_F(NetworkStreamReceiverTest, TheNextWorkerStartsAfterTheEarlierOneHasEnded) {
    CKvEvent entered(true);
    std::promise<void> gate;
    const std::shared_future<void> opened = gate.get_future().share();
    m_sink.onCall = [&](const std::string&) {
        entered.Set();
        opened.wait_for(kBound);
    };
    const auto reached = [deadline = std::chrono::steady_clock::now() + kBound](PlatformCall call,
                                                                                std::uint64_t count) {
        while (KvTest::platformCalls(call) < count && std::chrono::steady_clock::now() < deadline) {
            std::this_thread::yield();
        }
        return KvTest::platformCalls(call) >= count;
    };
    notify(6);
    ASSERT_TRUE(entered.Wait(30'000));
    const std::uint64_t started = KvTest::platformCalls(PlatformCall::beginthreadex);
    const std::uint64_t waits = KvTest::platformCalls(PlatformCall::WaitForSingleObject);
    std::thread stop([this] { m_receiver->releasePendingSamples(); });
    EXPECT_TRUE(reached(PlatformCall::WaitForSingleObject, waits + 1));
    m_receiver->resetForStart();
    std::thread client([this] { notify(6); });
    EXPECT_TRUE(reached(PlatformCall::WaitForSingleObject, waits + 2));
    EXPECT_EQ(KvTest::platformCalls(PlatformCall::beginthreadex), started);
    gate.set_value();
    stop.join();
    client.join();
    EXPECT_EQ(KvTest::platformCalls(PlatformCall::beginthreadex), started + 1);
    m_receiver->releasePendingSamples();
    m_sink.onCall = nullptr;
}

} // namespace
