#include "NetworkStreamReceiverFixture.h"

#include <chrono>

#include "TestClock.h"

using namespace std::chrono_literals;
using namespace KorvelVideo::Network;

namespace {

TEST_F(NetworkStreamReceiverTest, LivesWithItsAllocatorAndLogsItsLife) {
    m_receiver.reset();
    CallLog::instance().clear();
    RecordingLogger::clear();
    {
        const NetworkStreamReceiver receiver(&m_notifier);
        EXPECT_EQ(ScriptedSdk::remains().allocators, 1);
    }
    EXPECT_EQ(takeCalls(),
              (Calls{"CreateBufferAllocator(2, 8, 1048576, 65536, 1, null)", "allocator ended"}));
    EXPECT_EQ(RecordingLogger::takeLines(true), (Lines{{3, 0, "NetworkStreamReceiver constructor."},
                                                       {3, 0, "NetworkStreamReceiver destructor."}}));
}

TEST_F(NetworkStreamReceiverTest, LendsABufferAndAttachesIt) {
    _tagConsumerInfo info{};
    m_receiver->GetBuffer(&info);
    ASSERT_NE(info.buffer, nullptr);
    EXPECT_EQ(takeCalls(), (Calls{"AllocateBuffer(0, null)", "AttachBuffer(buffer1, 0, 65536)"}));
    info.discard = 1;
    info.sampleValid = 1;
    m_receiver->OnData(&info);
}

TEST_F(NetworkStreamReceiverTest, GathersBuffersOfOneTimeStamp) {
    play({1}, 40);
    EXPECT_EQ(takeCalls(), (Calls{"AllocateBuffer(0, null)", "AttachBuffer(buffer1, 0, 65536)",
                                  "ConfirmBufferSize(buffer1, 1)"}))
        << "an empty access unit with time stamp 0 goes first, and makes no host call";
    play({2, 3}, 40);
    play({4}, 40);
    CallLog::instance().clear();
    play({5}, 80);
    EXPECT_EQ(
        takeCalls(),
        (Calls{"AllocateBuffer(0, null)", "AttachBuffer(buffer4, 0, 65536)", "ConfirmBufferSize(buffer4, 1)",
               "ProvideVideoSurface(4)", "surface1.Lock(0, 1)", "surface1.SetTimeStampInfo(40)",
               "surface1.SignalWriteCompletion()", "DeliverVideoSurface(surface1)", "surface1 ended",
               "ReleaseBuffer(buffer1)", "ReleaseBuffer(buffer2)", "ReleaseBuffer(buffer3)"}));
    EXPECT_EQ(m_sink.takeDelivered(), (Units{{{1, 2, 3, 4}, 40}}));
    EXPECT_EQ(ScriptedSdk::remains().buffers, 1) << "the last buffer is pending";
}

// A notifier that keeps the access units themselves, the empty ones too.
class RecordingNotifier final : public IAudioVideoReceptionNotifier {
public:
    void notifyReception(const AccessUnit& accessUnit, std::uint64_t timeStamp) override {
        m_calls.push_back(std::to_string(accessUnit.size()) + " pieces at " + std::to_string(timeStamp));
    }
    HRESULT notifyStatus(HRESULT) override { return E_FAIL; }
    Calls m_calls;
};

TEST_F(NetworkStreamReceiverTest, EmptyAccessUnitsReachTheNotifierButForTheWorkers) {
    RecordingNotifier notifier;
    NetworkStreamReceiver receiver(&notifier);
    ScriptedSdk::play(receiver, {{1}, 40});
    ScriptedSdk::play(receiver, {{}, 40});
    ScriptedSdk::notify(receiver, 0);
    ScriptedSdk::notify(receiver, 0);
    receiver.forceEndOfStream();
    receiver.releasePendingSamples();
    EXPECT_EQ(notifier.m_calls, (Calls{"0 pieces at 0", "2 pieces at 40", "0 pieces at 40"}));
}

TEST_F(NetworkStreamReceiverTest, EachTransportStreamBufferIsAUnitOfItsOwn) {
    play({1}, 0, 33);
    play({2}, 0, 33);
    play({3}, 9, 33);
    EXPECT_EQ(m_sink.takeDelivered(), (Units{{{1}, 0}, {{2}, 0}}));
}

TEST_F(NetworkStreamReceiverTest, StopDropsWhatIsPendingInOrder) {
    play({1}, 40);
    play({2}, 40);
    CallLog::instance().clear();
    m_receiver->setStopCalled();
    m_receiver->releasePendingSamples();
    EXPECT_EQ(takeCalls(), (Calls{"ReleaseBuffer(buffer1)", "ReleaseBuffer(buffer2)"}));
    EXPECT_TRUE(m_sink.takeDelivered().empty());
}

TEST_F(NetworkStreamReceiverTest, FifthOperationPassesTheAllocatorsAnswer) {
    EXPECT_EQ(m_receiver->ResetAllocator(), 77);
    EXPECT_EQ(takeCalls(), Calls{"Reset(0)"});
}

TEST_F(NetworkStreamReceiverTest, NotificationsBecomeStatusCodes) {
    for (const int type : {1, 2, 4, 7, 8, 9, 11, 12, 1000, -1}) {
        notify(type);
    }
    EXPECT_EQ(takeCalls(), Calls{}) << "types without a meaning";
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

    clock.advance(3s - 100ns); // the counter of one of the systems counts these
    notify(0);
    EXPECT_EQ(takeCalls(), Calls{}) << "too early";

    clock.advance(100ns);
    notify(0);
    EXPECT_EQ(takeCalls(),
              (Calls{"ProvideVideoSurface(1)", "surface1.Lock(0, 1)", "surface1.SetTimeStampInfo(40)",
                     "surface1.SignalWriteCompletion()", "DeliverVideoSurface(surface1)", "surface1 ended",
                     "ReleaseBuffer(buffer1)", "NotifyStatus(0x099900A6)"}));
    EXPECT_EQ(RecordingLogger::takeLines(), (Lines{{3, 1, "Notified last frame for " + identifier()}}));

    notify(0);
    EXPECT_EQ(takeCalls(), Calls{"NotifyStatus(0x099900A6)"}) << "also with nothing pending";
    notify(10);
    EXPECT_EQ(takeCalls(), Calls{"NotifyStatus(0x0999202E)"}) << "active again";
}

TEST_F(NetworkStreamReceiverTest, TheWorkerDeliversTheLastUnitAndReportsTheEndOnce) {
    play({1}, 40);
    CallLog::instance().clear();
    notify(6);
    notify(6);
    play({2}, 40);
    ASSERT_TRUE(m_sink.waitForStatus(KV_S_STREAM_ENDED));
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
    ASSERT_TRUE(m_sink.waitForStatus(KV_S_STREAM_ENDED)) << "a stream ends once per start";
}

TEST_F(NetworkStreamReceiverTest, AForcedEndReportsTheEndWithNothingPending) {
    m_receiver->forceEndOfStream();
    m_receiver->forceEndOfStream();
    notify(6);
    ASSERT_TRUE(m_sink.waitForStatus(KV_S_STREAM_ENDED));
    m_receiver->releasePendingSamples();
    EXPECT_EQ(m_sink.takeStatuses(), (std::vector<HRESULT>{KV_S_STREAM_ENDED}));
    EXPECT_TRUE(m_sink.takeDelivered().empty());
}

} // namespace
