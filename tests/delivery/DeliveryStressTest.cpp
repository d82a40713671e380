#include <memory>

#include "CKvUnknown.h"
#include "NotifierFixture.h"
#include "RtmpNetworkStreamCreator.h"
#include "RunTogether.h"

using namespace KorvelVideo::Network;
using ScriptedSdk::IMediaConsumer;

namespace {

std::uint8_t low(std::uint64_t round) { return static_cast<std::uint8_t>(round); }

class DeliveryStress : public NotifierFixture, public testing::WithParamInterface<bool> {
protected:
    ~DeliveryStress() override { EXPECT_EQ(getLiveObjectCount(), 0); }

    void forAll(void (NetworkStreamReceiver::*action)()) {
        for (NetworkStreamReceiver* const receiver : m_creator->receivers()) {
            (receiver->*action)();
        }
    }

    const Unrecorded m_unrecorded;
    RecordingDetector m_detector{&m_sink, &m_audio};
    std::unique_ptr<NetworkStreamCreator> m_creator =
        GetParam() ? std::make_unique<RtmpNetworkStreamCreator>(&m_detector)
                   : std::make_unique<NetworkStreamCreator>(&m_detector);
};

// A whole source: the client feeds and notifies every stream on threads of its own while the host stops,
// drains, ends and restarts them. Each byte belongs to its access unit and its stream.
TEST_P(DeliveryStress, StreamsAreFedNotifiedAndStoppedTogether) {
    IMediaConsumer& video = *ScriptedSdk::announce(*m_creator, {1, 96});
    IMediaConsumer& plain = *ScriptedSdk::announce(*m_creator, {0, 99});
    IMediaConsumer& framed = *ScriptedSdk::announce(*m_creator, {0, 100});
    const auto feed = [](std::uint32_t round, IMediaConsumer& consumer, const ScriptedSdk::Sample& sample) {
        ScriptedSdk::play(consumer, sample);
        if (round % 100 == 50) {
            ScriptedSdk::notify(consumer, 6);
        }
    };
    runTogether(300, {[&](std::uint32_t round) {
                          feed(round, video, {{1, low(round)}, round, 96});
                      },
                      [&](std::uint32_t round) {
                          feed(round, plain, {{2, low(round)}, round, 99});
                      },
                      [&](std::uint32_t round) {
                          feed(round, framed, {{2, 3, low(round)}, round, 100});
                      },
                      [&](std::uint32_t round) {
                          ScriptedSdk::notify(round % 2 == 0 ? video : framed, round % 3 == 0 ? 10 : 3);
                      },
                      [&](std::uint32_t round) {
                          if (round % 75 == 0) {
                              forAll(&NetworkStreamReceiver::setStopCalled);
                              m_creator->releaseAllPendingSamples();
                              forAll(&NetworkStreamReceiver::forceEndOfStream);
                              forAll(&NetworkStreamReceiver::resetForStart);
                          }
                      }});
    forAll(&NetworkStreamReceiver::forceEndOfStream);
    m_creator.reset(); // workers are still running
    for (const DeliveredUnit& unit : m_sink.takeDelivered()) {
        EXPECT_EQ(unit.bytes, (Bytes{1, low(unit.timeStamp)}));
    }
    for (const DeliveredUnit& unit : m_audio.takeDelivered()) {
        EXPECT_TRUE(unit.bytes.empty() || unit.bytes == Bytes({2, low(unit.timeStamp)}) ||
                    unit.bytes == Bytes({3, low(unit.timeStamp)}))
            << unit;
    }
}

// Announcements on several threads, and walks of the receivers on another: each stream gets its own notifier.
TEST_P(DeliveryStress, AnnouncementsAndWalksMeet) {
    const auto announce = [&](std::uint32_t round) {
        EXPECT_NE(ScriptedSdk::announce(*m_creator, {round % 2, round % 2 == 0 ? 99U : 96U}), nullptr);
    };
    runTogether(40, {announce, announce, announce, [&](std::uint32_t) {
                         forAll(&NetworkStreamReceiver::setStopCalled);
                         m_creator->releaseAllPendingSamples();
                     }});
    EXPECT_EQ(m_creator->receivers().size(), 120U);
    m_creator.reset();
}

INSTANTIATE_TEST_SUITE_P(Creators, DeliveryStress, testing::Bool(),
                         [](const auto& test) { return test.param ? "Rtmp" : "Other"; });

} // namespace
