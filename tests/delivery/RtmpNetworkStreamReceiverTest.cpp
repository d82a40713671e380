#include "RtmpNetworkStreamReceiver.h"

#include <memory>

#include "GenericVideoStreamNotifier.h"
#include "NotifierFixture.h"
#include "PlatformFaults.h"

using namespace KorvelVideo::Network;

namespace {

class RtmpNetworkStreamReceiverTest : public NotifierFixture {
protected:
    ~RtmpNetworkStreamReceiverTest() override { m_receiver.reset(); }

    // The calls that one notification leads to.
    Calls callsOf(int type) {
        forget();
        ScriptedSdk::notify(*m_receiver, type);
        return takeCalls();
    }

    GenericVideoStreamNotifier m_notifier{&m_sink};
    std::unique_ptr<RtmpNetworkStreamReceiver> m_receiver =
        std::make_unique<RtmpNetworkStreamReceiver>(&m_notifier);
};

TEST_F(RtmpNetworkStreamReceiverTest, TheEndIsDeliveredAtOnceAndAsOftenAsItComes) {
    for (std::uint8_t byte = 1; byte <= 3; ++byte) {
        ScriptedSdk::play(*m_receiver, {{byte}, 40});
    }
    EXPECT_EQ(callsOf(6),
              (Calls{"ProvideVideoSurface(3)", "surface1.Lock(0, 1)", "surface1.SetTimeStampInfo(40)",
                     "surface1.SignalWriteCompletion()", "DeliverVideoSurface(surface1)", "surface1 ended",
                     "ReleaseBuffer(buffer1)", "ReleaseBuffer(buffer2)", "ReleaseBuffer(buffer3)",
                     "NotifyStatus(0x0999202F)"}));
    EXPECT_EQ(m_sink.takeDelivered(), (Units{{{1, 2, 3}, 40}}));
    const std::string identifier = std::to_string(reinterpret_cast<std::intptr_t>(&m_notifier));
    EXPECT_EQ(RecordingLogger::takeLines(),
              (Lines{{3, 1, "Notified last frame for RTMP End of Stream " + identifier}}));
    EXPECT_EQ(callsOf(6), Calls{"NotifyStatus(0x0999202F)"}) << "nothing pending: only the status";
    EXPECT_EQ(RecordingLogger::takeLines(), Lines{});
}

TEST_F(RtmpNetworkStreamReceiverTest, ActivityIsReportedOnceUntilTheStreamEnds) {
    const KvTest::TestClock clock;
    EXPECT_EQ(callsOf(10), Calls{"NotifyStatus(0x0999202E)"});
    KvTest::TestClock::advance(std::chrono::hours(1));
    ScriptedSdk::play(*m_receiver, {{1}, 0});
    for (const int type : {0, 10, -1, 1, 2, 4, 7, 8, 9, 11, 1000}) {
        EXPECT_EQ(callsOf(type), Calls{}) << type << ": silence means nothing, however long";
    }
    callsOf(6);
    EXPECT_EQ(callsOf(10), Calls{"NotifyStatus(0x0999202E)"});
}

TEST_F(RtmpNetworkStreamReceiverTest, ADisconnectionDuringStopIsOnlyLogged) {
    const Lines logged{{3, 1, "Got Disconnect because Stop was called."}};
    EXPECT_EQ(callsOf(3), Calls{}) << "not started yet";
    EXPECT_EQ(RecordingLogger::takeLines(), logged);
    m_receiver->resetForStart();
    EXPECT_EQ(callsOf(3), Calls{"NotifyStatus(0x89998302)"});
    EXPECT_EQ(RecordingLogger::takeLines(), Lines{});
    m_receiver->setStopCalled();
    EXPECT_EQ(callsOf(3), Calls{});
    EXPECT_EQ(RecordingLogger::takeLines(), logged);
}

} // namespace
