#include "NetworkStreamReceiver.h"

#include <chrono>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "CallLog.h"
#include "GenericVideoStreamNotifier.h"
#include "KvResultCodes.h"
#include "PlatformFaults.h"
#include "RecordingHost.h"
#include "RecordingLogger.h"
#include "ScriptedSdk.h"
#include "TestClock.h"

using namespace KorvelVideo::Network;
using namespace std::chrono_literals;
using MainConcept::NetworkStreaming::_tagConsumerInfo;

namespace {

using Calls = std::vector<std::string>;
using Lines = std::vector<LogLine>;
using Units = std::vector<DeliveredUnit>;

constexpr std::uint32_t kBound = 20'000; // milliseconds after which a wait has failed

class NetworkStreamReceiverTest : public testing::Test {
protected:
    NetworkStreamReceiverTest() {
        ScriptedSdk::reset();
        ScriptedSdk::setRecording(false);
        m_receiver = std::make_unique<NetworkStreamReceiver>(&m_notifier);
        ScriptedSdk::setRecording(true);
        CallLog::instance().clear();
        RecordingLogger::clear();
    }
    ~NetworkStreamReceiverTest() override {
        m_receiver.reset();
        EXPECT_EQ(ScriptedSdk::lentBuffers(), 0) << "every buffer is given back";
        EXPECT_EQ(ScriptedSdk::wrongReleases(), 0) << "and once";
        EXPECT_EQ(ScriptedSdk::liveAllocators(), 0);
        EXPECT_EQ(m_sink.liveBuffers(), 0);
    }

    void play(std::vector<std::uint8_t> bytes, std::uint64_t timeStamp, std::uint32_t streamType = 96) {
        EXPECT_TRUE(ScriptedSdk::play(*m_receiver, {std::move(bytes), timeStamp, streamType}));
    }
    void notify(int type) { ScriptedSdk::notify(*m_receiver, type); }
    [[nodiscard]] std::string identifier() const {
        return std::to_string(reinterpret_cast<std::intptr_t>(&m_notifier));
    }

    RecordingVideoSink m_sink;
    GenericVideoStreamNotifier m_notifier{&m_sink};
    std::unique_ptr<NetworkStreamReceiver> m_receiver;
};

TEST_F(NetworkStreamReceiverTest, LivesWithItsAllocatorAndLogsItsLife) {
    m_receiver.reset();
    CallLog::instance().clear();
    RecordingLogger::clear();
    {
        const NetworkStreamReceiver receiver(&m_notifier);
        EXPECT_EQ(ScriptedSdk::liveAllocators(), 1);
    }
    EXPECT_EQ(CallLog::instance().take(),
              (Calls{"CreateBufferAllocator(2, 8, 1048576, 65536, 1, null)", "allocator ended"}));
    EXPECT_EQ(RecordingLogger::takeLines(true), (Lines{{3, 0, "NetworkStreamReceiver constructor."},
                                                       {3, 0, "NetworkStreamReceiver destructor."}}));
}

TEST_F(NetworkStreamReceiverTest, RefusesToBeBuiltWithoutNotifierOrAllocator) {
    for (const bool withNotifier : {false, true}) {
        if (withNotifier) {
            ScriptedSdk::failNextAllocatorCreation();
        }
        try {
            const NetworkStreamReceiver receiver(withNotifier ? &m_notifier : nullptr);
            ADD_FAILURE() << "constructed";
        } catch (const CKvVaneException& exception) {
            EXPECT_EQ(exception.m_result, KV_E_INVALID_POINTER);
            EXPECT_STREQ(exception.m_sourceFile, "src/NetworkStreamReceiver");
        }
        EXPECT_EQ(ScriptedSdk::liveAllocators(), 1) << "the fixture's alone";
    }
}

TEST_F(NetworkStreamReceiverTest, LendsABufferAndAttachesIt) {
    _tagConsumerInfo info{};
    m_receiver->GetBuffer(&info);
    ASSERT_NE(info.buffer, nullptr);
    EXPECT_EQ(CallLog::instance().take(),
              (Calls{"AllocateBuffer(0, null)", "AttachBuffer(buffer1, 0, 65536)"}));
    info.discard = 1;
    info.sampleValid = 1;
    m_receiver->OnData(&info);
}

TEST_F(NetworkStreamReceiverTest, ABufferThatIsNotLentLeavesTheRecordUntouched) {
    for (const std::uint32_t capacity : {0U, 65536U}) {
        _tagConsumerInfo info{};
        ScriptedSdk::failNextAllocation(capacity);
        m_receiver->GetBuffer(&info);
        EXPECT_EQ(info.buffer, nullptr);
        EXPECT_EQ(RecordingLogger::takeLines(),
                  (Lines{{0, 4, "Error allocating buffer from buffer allocator."}}));
        EXPECT_EQ(CallLog::instance().take(), (Calls{"AllocateBuffer(0, null)"}));
    }
    m_receiver->GetBuffer(nullptr);
    EXPECT_EQ(CallLog::instance().take(), Calls{}) << "without a record nothing is lent";
}

TEST_F(NetworkStreamReceiverTest, GathersBuffersOfOneTimeStamp) {
    play({1}, 40);
    EXPECT_EQ(CallLog::instance().take(), (Calls{"AllocateBuffer(0, null)", "AttachBuffer(buffer1, 0, 65536)",
                                                 "ConfirmBufferSize(buffer1, 1)"}))
        << "an empty access unit with time stamp 0 goes first, and makes no host call";
    play({2, 3}, 40);
    play({4}, 40);
    CallLog::instance().clear();
    play({5}, 80);
    EXPECT_EQ(
        CallLog::instance().take(),
        (Calls{"AllocateBuffer(0, null)", "AttachBuffer(buffer4, 0, 65536)", "ConfirmBufferSize(buffer4, 1)",
               "ProvideVideoSurface(4)", "surface1.Lock(0, 1)", "surface1.SetTimeStampInfo(40)",
               "surface1.SignalWriteCompletion()", "DeliverVideoSurface(surface1)", "surface1 ended",
               "ReleaseBuffer(buffer1)", "ReleaseBuffer(buffer2)", "ReleaseBuffer(buffer3)"}));
    EXPECT_EQ(m_sink.takeDelivered(), (Units{{{1, 2, 3, 4}, 40}}));
    EXPECT_EQ(ScriptedSdk::lentBuffers(), 1) << "the last buffer is pending";
}

TEST_F(NetworkStreamReceiverTest, EachTransportStreamBufferIsAUnitOfItsOwn) {
    play({1}, 0, 33);
    play({2}, 0, 33);
    play({3}, 9, 33);
    EXPECT_EQ(m_sink.takeDelivered(), (Units{{{1}, 0}, {{2}, 0}}));
}

TEST_F(NetworkStreamReceiverTest, BadRecordsLoseOnlyThemselves) {
    struct Row {
        const char* name;
        std::uint8_t valid;
        std::uint8_t discard;
        bool confirmed;
        Lines lines;
        bool kept;
    };
    const Row rows[] = {
        {"invalid", 0, 0, true, {{3, 3, "OnData called back with invalid sample."}}, false},
        {"invalid before discard", 0, 1, true, {{3, 3, "OnData called back with invalid sample."}}, false},
        {"discard", 1, 1, true, {}, false},
        {"not confirmed",
         1,
         0,
         false,
         {{3, 3, "Could not confirm buffer size from buffer allocator."}},
         true},
        {"valid by any value", 0x80, 0, true, {}, true},
    };
    play({1}, 40);
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const int before = ScriptedSdk::lentBuffers();
        if (!row.confirmed) {
            ScriptedSdk::failNextConfirmation();
        }
        ScriptedSdk::play(*m_receiver, {{2}, 40, 96, row.valid, row.discard});
        EXPECT_EQ(RecordingLogger::takeLines(), row.lines);
        EXPECT_EQ(ScriptedSdk::lentBuffers(), before + (row.kept ? 1 : 0));
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
        EXPECT_EQ(ScriptedSdk::lentBuffers(), 0);
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
    EXPECT_EQ(ScriptedSdk::lentBuffers(), 1) << "the failed unit is given back, the new buffer is kept";
    play({3}, 120);
    EXPECT_EQ(m_sink.takeDelivered(), (Units{{{2}, 80}}));
}

TEST_F(NetworkStreamReceiverTest, StopDropsWhatIsPendingInOrder) {
    play({1}, 40);
    play({2}, 40);
    CallLog::instance().clear();
    m_receiver->setStopCalled();
    m_receiver->releasePendingSamples();
    EXPECT_EQ(CallLog::instance().take(), (Calls{"ReleaseBuffer(buffer1)", "ReleaseBuffer(buffer2)"}));
    EXPECT_TRUE(m_sink.takeDelivered().empty());
}

TEST_F(NetworkStreamReceiverTest, FifthOperationPassesTheAllocatorsAnswer) {
    EXPECT_EQ(m_receiver->ResetAllocator(), 77);
    EXPECT_EQ(CallLog::instance().take(), Calls{"Reset(0)"});
}

TEST_F(NetworkStreamReceiverTest, NotificationsBecomeStatusCodes) {
    for (const int type : {1, 2, 4, 7, 8, 9, 11, 12, 1000, -1}) {
        notify(type);
    }
    EXPECT_EQ(CallLog::instance().take(), Calls{}) << "types without a meaning";
    notify(10);
    notify(10);
    notify(3);
    notify(5);
    EXPECT_EQ(m_sink.takeStatuses(),
              (std::vector<HRESULT>{KV_S_STREAM_ACTIVE, KV_E_DISCONNECTED, KV_S_STREAM_NOTICE}));
    m_receiver->resetForStart();
    notify(10);
    EXPECT_EQ(m_sink.takeStatuses(), (std::vector<HRESULT>{KV_S_STREAM_ACTIVE})) << "once per start";
}

TEST_F(NetworkStreamReceiverTest, SilenceCountsFromThreeSeconds) {
    KvTest::TestClock clock;
    notify(10);
    play({1}, 40);
    CallLog::instance().clear();
    m_sink.takeStatuses();

    clock.advance(3s - 1ns);
    notify(0);
    EXPECT_EQ(CallLog::instance().take(), Calls{}) << "too early";

    clock.advance(1ns);
    notify(0);
    EXPECT_EQ(CallLog::instance().take(),
              (Calls{"ProvideVideoSurface(1)", "surface1.Lock(0, 1)", "surface1.SetTimeStampInfo(40)",
                     "surface1.SignalWriteCompletion()", "DeliverVideoSurface(surface1)", "surface1 ended",
                     "ReleaseBuffer(buffer1)", "NotifyStatus(0x099900A6)"}));
    EXPECT_EQ(RecordingLogger::takeLines(), (Lines{{3, 1, "Notified last frame for " + identifier()}}));

    notify(0);
    EXPECT_EQ(CallLog::instance().take(), Calls{"NotifyStatus(0x099900A6)"}) << "also with nothing pending";
    notify(10);
    EXPECT_EQ(CallLog::instance().take(), Calls{"NotifyStatus(0x0999202E)"}) << "active again";
}

TEST_F(NetworkStreamReceiverTest, TheWorkerDeliversTheLastUnitAndReportsTheEndOnce) {
    play({1}, 40);
    CallLog::instance().clear();
    notify(6);
    notify(6);
    play({2}, 40);
    ASSERT_TRUE(m_sink.waitForStatus(KV_S_STREAM_ENDED, kBound));
    EXPECT_EQ(m_sink.takeDelivered(), (Units{{{1, 2}, 40}}));
    EXPECT_EQ(m_sink.takeStatuses(), (std::vector<HRESULT>{KV_S_STREAM_ENDED}));
    m_receiver->forceEndOfStream();
    m_receiver->releasePendingSamples();
    EXPECT_TRUE(m_sink.takeStatuses().empty()) << "a worker that already ran is not started again";
    EXPECT_EQ(RecordingLogger::takeLines(), (Lines{{3, 1, "Received first end of stream for " + identifier()},
                                                   {3, 1, "Notified last frame for " + identifier()},
                                                   {3, 1, "Forcing end of stream for " + identifier()}}));
    m_receiver->resetForStart();
    notify(6);
    ASSERT_TRUE(m_sink.waitForStatus(KV_S_STREAM_ENDED, kBound)) << "a stream ends once per start";
}

TEST_F(NetworkStreamReceiverTest, AForcedEndReportsTheEndWithNothingPending) {
    m_receiver->forceEndOfStream();
    m_receiver->forceEndOfStream();
    notify(6);
    ASSERT_TRUE(m_sink.waitForStatus(KV_S_STREAM_ENDED, kBound));
    m_receiver->releasePendingSamples();
    EXPECT_EQ(m_sink.takeStatuses(), (std::vector<HRESULT>{KV_S_STREAM_ENDED}));
    EXPECT_TRUE(m_sink.takeDelivered().empty());
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
        EXPECT_TRUE(m_sink.waitForStatus(KV_S_STREAM_ENDED, kBound)) << "the end is reported all the same";
        m_receiver->releasePendingSamples();
        m_sink.takeStatuses();
        const Lines lines = RecordingLogger::takeLines();
        ASSERT_EQ(lines.size(), 3U);
        EXPECT_EQ(lines[2], row.line);
        EXPECT_EQ(ScriptedSdk::lentBuffers(), 0);
    }
    m_sink.onCall = nullptr;
}

TEST_F(NetworkStreamReceiverTest, AWorkerThatCannotBeStartedMayBeTriedAgain) {
    {
        const KvTest::PlatformFault fault(KvTest::PlatformCall::beginthreadex, {});
        EXPECT_THROW(notify(6), CKvThreadException);
    }
    m_receiver->releasePendingSamples();
    notify(6);
    EXPECT_TRUE(m_sink.waitForStatus(KV_S_STREAM_ENDED, kBound));
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
    EXPECT_TRUE(m_sink.waitForStatus(KV_S_STREAM_ENDED, kBound));
}

} // namespace
