#include <atomic>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "CKvUnknown.h"
#include "CallLog.h"
#include "KvResultCodes.h"
#include "NetworkStreamCreator.h"
#include "RecordingCodecConfiguration.h"
#include "RecordingHost.h"
#include "RecordingLogger.h"
#include "RtmpNetworkStreamCreator.h"
#include "ScriptedSdk.h"

using namespace KorvelVideo::Network;
using MainConcept::NetworkStreaming::IMediaConsumer;

namespace {

// Runs every actor on a thread of its own, all of them `rounds` times, and waits for them.
void runTogether(std::uint32_t rounds, const std::vector<std::function<void(std::uint32_t)>>& actors) {
    std::vector<std::thread> threads;
    threads.reserve(actors.size());
    for (const auto& actor : actors) {
        threads.emplace_back([&actor, rounds] {
            for (std::uint32_t round = 1; round <= rounds; ++round) {
                actor(round);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

class DeliveryStress : public testing::TestWithParam<bool> {
protected:
    DeliveryStress() {
        ScriptedSdk::reset();
        ScriptedSdk::setRecording(false);
        CallLog::instance().setEnabled(false);
    }
    ~DeliveryStress() override {
        EXPECT_EQ(ScriptedSdk::lentBuffers(), 0);
        EXPECT_EQ(ScriptedSdk::wrongReleases(), 0);
        EXPECT_EQ(ScriptedSdk::liveAllocators(), 0);
        EXPECT_EQ(getLiveObjectCount(), m_liveObjects);
        EXPECT_EQ(RecordingCodecConfiguration::alive(), 0);
        EXPECT_EQ(m_video.liveBuffers() + m_audio.liveBuffers(), 0);
        CallLog::instance().setEnabled(true);
        RecordingLogger::clear();
    }
    std::unique_ptr<NetworkStreamCreator> newCreator() {
        if (GetParam()) {
            return std::make_unique<RtmpNetworkStreamCreator>(&m_detector);
        }
        return std::make_unique<NetworkStreamCreator>(&m_detector);
    }

    const std::int32_t m_liveObjects = getLiveObjectCount();
    RecordingCodecConfiguration m_configurationClass;
    RecordingVideoSink m_video;
    RecordingAudioSink m_audio;
    RecordingDetector m_detector{&m_video, &m_audio};
};

// A whole source: the client feeds and notifies every stream on threads of its own while the host stops,
// drains, ends and restarts them. Each byte belongs to its access unit and its stream.
TEST_P(DeliveryStress, StreamsAreFedNotifiedAndStoppedTogether) {
    std::unique_ptr<NetworkStreamCreator> creator = newCreator();
    IMediaConsumer* const video = ScriptedSdk::announce(*creator, {1, 96});
    IMediaConsumer* const plain = ScriptedSdk::announce(*creator, {0, 99});
    IMediaConsumer* const framed = ScriptedSdk::announce(*creator, {0, 100});
    ASSERT_TRUE(video != nullptr && plain != nullptr && framed != nullptr);
    const auto forAll = [&](const std::function<void(NetworkStreamReceiver&)>& action) {
        for (NetworkStreamReceiver* const receiver : creator->receivers()) {
            action(*receiver);
        }
    };
    const auto low = [](std::uint32_t round) { return static_cast<std::uint8_t>(round); };
    runTogether(300, {
                         [&](std::uint32_t round) {
                             ScriptedSdk::play(*video, {{1, low(round)}, round, 96});
                         },
                         [&](std::uint32_t round) {
                             ScriptedSdk::play(*plain, {{2, low(round)}, round, 99});
                         },
                         [&](std::uint32_t round) {
                             ScriptedSdk::play(*framed, {{2, 3, low(round)}, round, 100});
                         },
                         [&](std::uint32_t round) {
                             ScriptedSdk::notify(round % 2 == 0 ? *video : *framed, round % 3 == 0 ? 10 : 3);
                         },
                         [&](std::uint32_t round) {
                             if (round % 100 == 50) {
                                 ScriptedSdk::notify(*plain, 6);
                                 ScriptedSdk::notify(*video, 6);
                             }
                         },
                         [&](std::uint32_t round) {
                             if (round % 75 == 0) {
                                 forAll([](NetworkStreamReceiver& receiver) { receiver.setStopCalled(); });
                                 creator->releaseAllPendingSamples();
                                 forAll([](NetworkStreamReceiver& receiver) { receiver.forceEndOfStream(); });
                                 forAll([](NetworkStreamReceiver& receiver) { receiver.resetForStart(); });
                             }
                         },
                     });
    creator.reset(); // workers may still be running
    for (const DeliveredUnit& unit : m_video.takeDelivered()) {
        EXPECT_EQ(unit,
                  (DeliveredUnit{{1, low(static_cast<std::uint32_t>(unit.timeStamp))}, unit.timeStamp}));
    }
    for (const DeliveredUnit& unit : m_audio.takeDelivered()) {
        if (unit.bytes.empty()) {
            continue; // before the first buffer of the framed stream
        }
        ASSERT_EQ(unit.bytes.size(), 2U);
        EXPECT_TRUE(unit.bytes[0] == 2 || unit.bytes[0] == 3);
        EXPECT_EQ(unit.bytes[1], low(static_cast<std::uint32_t>(unit.timeStamp)));
    }
}

// Creators come and go on several threads, each with a worker running when it is destroyed.
TEST_P(DeliveryStress, CreatorsAreDestroyedOverRunningWorkers) {
    const auto live = [this](std::uint32_t) {
        CoInitializeEx(nullptr, COINIT_MULTITHREADED);
        std::unique_ptr<NetworkStreamCreator> creator = newCreator();
        for (const ScriptedSdk::Announcement& announcement :
             {ScriptedSdk::Announcement{1, 96}, ScriptedSdk::Announcement{0, 100}}) {
            IMediaConsumer* const consumer = ScriptedSdk::announce(*creator, announcement);
            ASSERT_NE(consumer, nullptr);
            ScriptedSdk::play(*consumer, {{1, 9}, 0, announcement.streamType});
        }
        for (NetworkStreamReceiver* const receiver : creator->receivers()) {
            receiver->forceEndOfStream();
        }
        creator.reset();
        CoUninitialize();
    };
    runTogether(2, {live, live, live});
    EXPECT_EQ(m_video.takeDelivered().size(), 6U) << "the worker delivers what was pending";
    EXPECT_EQ(m_audio.takeDelivered().size(), 6U);
    EXPECT_EQ(m_video.takeStatuses(), std::vector<HRESULT>(6, KV_S_STREAM_ENDED));
}

INSTANTIATE_TEST_SUITE_P(Creators, DeliveryStress, testing::Bool(),
                         [](const auto& test) { return test.param ? "Rtmp" : "Other"; });

} // namespace
