#include "RtmpNetworkStreamReceiver.h"

#include <memory>
#include <stdexcept>

#include "GenericVideoStreamNotifier.h"
#include "NotifierFixture.h"
#include "PlatformFaults.h"
#include "RtmpNetworkStreamCreator.h"
#include "ScriptedSdk.h"
#include "TestClock.h"

using namespace KorvelVideo::Network;
using namespace std::chrono_literals;

namespace {

class RtmpNetworkStreamReceiverTest : public NotifierFixture {
protected:
    RtmpNetworkStreamReceiverTest() {
        ScriptedSdk::reset();
        m_receiver = std::make_unique<RtmpNetworkStreamReceiver>(&m_notifier);
        forget();
    }
    ~RtmpNetworkStreamReceiverTest() override {
        m_receiver.reset();
        EXPECT_EQ(ScriptedSdk::remains(), ScriptedSdk::Remains{});
    }

    // The calls that one notification leads to.
    Calls callsOf(int type) {
        CallLog::instance().clear();
        ScriptedSdk::notify(*m_receiver, type);
        return takeCalls();
    }

    GenericVideoStreamNotifier m_notifier{&m_sink};
    std::unique_ptr<RtmpNetworkStreamReceiver> m_receiver;
};

TEST_F(RtmpNetworkStreamReceiverTest, TheEndIsDeliveredAtOnceAndAsOftenAsItComes) {
    m_receiver->resetForStart();
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
    EXPECT_EQ(RecordingLogger::takeSites().at(0).rfind("src/RtmpNetworkStreamReceiver|", 0), 0U);
    EXPECT_EQ(callsOf(6), Calls{"NotifyStatus(0x0999202F)"}) << "nothing pending: only the status";
    EXPECT_TRUE(RecordingLogger::takeLines().empty());
}

TEST_F(RtmpNetworkStreamReceiverTest, ActivityIsReportedOnceUntilTheStreamEnds) {
    KvTest::TestClock clock;
    EXPECT_EQ(callsOf(10), Calls{"NotifyStatus(0x0999202E)"});
    EXPECT_EQ(callsOf(10), Calls{});
    clock.advance(1h);
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
    EXPECT_EQ(callsOf(5), Calls{"NotifyStatus(0x09990075)"}) << "a notice is reported all the same";
    m_receiver->resetForStart();
    EXPECT_EQ(callsOf(3), Calls{"NotifyStatus(0x89998302)"});
    EXPECT_EQ(RecordingLogger::takeLines(), Lines{});
    m_receiver->setStopCalled();
    EXPECT_EQ(callsOf(3), Calls{});
    EXPECT_EQ(RecordingLogger::takeLines(), logged);
}

TEST_F(RtmpNetworkStreamReceiverTest, AHostThatThrowsLosesNoBuffer) {
    m_receiver->resetForStart();
    ScriptedSdk::play(*m_receiver, {{1}, 0});
    m_sink.onCall = [](const std::string&) { throw std::runtime_error("host"); };
    EXPECT_THROW(ScriptedSdk::notify(*m_receiver, 6), std::runtime_error);
    EXPECT_EQ(ScriptedSdk::remains().buffers, 0);
}

TEST_F(RtmpNetworkStreamReceiverTest, AForcedEndIsReportedByTheWorker) {
    m_receiver->resetForStart();
    ScriptedSdk::play(*m_receiver, {{1, 2}, 7});
    m_receiver->forceEndOfStream();
    ASSERT_TRUE(m_sink.waitForStatus(KV_S_STREAM_ENDED));
    EXPECT_EQ(m_sink.takeDelivered(), (Units{{{1, 2}, 7}}));
}

} // namespace
