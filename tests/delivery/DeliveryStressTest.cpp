#include <functional>
#include <memory>
#include <thread>

#include "CKvUnknown.h"
#include "NotifierFixture.h"
#include "RtmpNetworkStreamCreator.h"
#include "ScriptedSdk.h"

using namespace KorvelVideo::Network;
using MainConcept::NetworkStreaming::IMediaConsumer;

namespace {

std::uint8_t low(std::uint64_t round) { return static_cast<std::uint8_t>(round); }

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

class DeliveryStress : public NotifierFixture, public testing::WithParamInterface<bool> {
protected:
    DeliveryStress() { ScriptedSdk::reset(); }
    ~DeliveryStress() override {
        EXPECT_EQ(ScriptedSdk::remains(), ScriptedSdk::Remains{});
        EXPECT_EQ(getLiveObjectCount(), 0);
    }
    std::unique_ptr<NetworkStreamCreator> newCreator() {
        return GetParam() ? std::make_unique<RtmpNetworkStreamCreator>(&m_detector)
                          : std::make_unique<NetworkStreamCreator>(&m_detector);
    }

    const Unrecorded m_unrecorded;
    RecordingDetector m_detector{&m_sink, &m_audio};
};

// A whole source: the client feeds and notifies every stream on threads of its own while the host stops,
// drains, ends and restarts them. Each byte belongs to its access unit and its stream.
TEST_P(DeliveryStress, StreamsAreFedNotifiedAndStoppedTogether) {
    std::unique_ptr<NetworkStreamCreator> creator = newCreator();
    IMediaConsumer& video = *ScriptedSdk::announce(*creator, {1, 96});
    IMediaConsumer& plain = *ScriptedSdk::announce(*creator, {0, 99});
    IMediaConsumer& framed = *ScriptedSdk::announce(*creator, {0, 100});
    const auto forAll = [&](void (NetworkStreamReceiver::*action)()) {
        for (NetworkStreamReceiver* const receiver : creator->receivers()) {
            (receiver->*action)();
        }
    };
    runTogether(300, {[&](std::uint32_t round) {
                          ScriptedSdk::play(video, {{1, low(round)}, round, 96});
                      },
                      [&](std::uint32_t round) {
                          ScriptedSdk::play(plain, {{2, low(round)}, round, 99});
                      },
                      [&](std::uint32_t round) {
                          ScriptedSdk::play(framed, {{2, 3, low(round)}, round, 100});
                      },
                      [&](std::uint32_t round) {
                          ScriptedSdk::notify(round % 2 == 0 ? video : framed, round % 3 == 0 ? 10 : 3);
                      },
                      [&](std::uint32_t round) {
                          if (round % 100 == 50) {
                              ScriptedSdk::notify(plain, 6);
                              ScriptedSdk::notify(video, 6);
                          }
                      },
                      [&](std::uint32_t round) {
                          if (round % 75 == 0) {
                              forAll(&NetworkStreamReceiver::setStopCalled);
                              creator->releaseAllPendingSamples();
                              forAll(&NetworkStreamReceiver::forceEndOfStream);
                              forAll(&NetworkStreamReceiver::resetForStart);
                          }
                      }});
    creator.reset(); // workers may still be running
    for (const DeliveredUnit& unit : m_sink.takeDelivered()) {
        EXPECT_EQ(unit.bytes, (Bytes{1, low(unit.timeStamp)}));
    }
    for (const DeliveredUnit& unit : m_audio.takeDelivered()) {
        EXPECT_TRUE(unit.bytes.empty() || unit.bytes == Bytes({2, low(unit.timeStamp)}) ||
                    unit.bytes == Bytes({3, low(unit.timeStamp)}))
            << unit;
    }
}

// Creators come and go on several threads, each with a worker running when it is destroyed.
TEST_P(DeliveryStress, CreatorsAreDestroyedOverRunningWorkers) {
    const auto live = [this](std::uint32_t) {
        CoInitializeEx(nullptr, COINIT_MULTITHREADED);
        std::unique_ptr<NetworkStreamCreator> creator = newCreator();
        ScriptedSdk::play(*ScriptedSdk::announce(*creator, {1, 96}), {{1, 9}, 0, 96});
        ScriptedSdk::play(*ScriptedSdk::announce(*creator, {0, 100}), {{1, 9}, 0, 100});
        for (NetworkStreamReceiver* const receiver : creator->receivers()) {
            receiver->forceEndOfStream();
        }
        creator.reset();
        CoUninitialize();
    };
    runTogether(2, {live, live, live});
    EXPECT_EQ(m_sink.takeDelivered(), Units(6, {{1, 9}, 0})) << "the worker delivers what was pending";
    EXPECT_EQ(m_audio.takeDelivered(), Units(6, {{9}, 0}));
    EXPECT_EQ(m_sink.takeStatuses(), std::vector<HRESULT>(6, KV_S_STREAM_ENDED));
}

// Announcements on several threads, and walks of the receivers on another: each stream gets its own notifier.
TEST_P(DeliveryStress, AnnouncementsAndWalksMeet) {
    const std::unique_ptr<NetworkStreamCreator> creator = newCreator();
    const auto announce = [&](std::uint32_t round) {
        CoInitializeEx(nullptr, COINIT_MULTITHREADED);
        EXPECT_NE(ScriptedSdk::announce(*creator, {round % 2, round % 2 == 0 ? 99U : 96U}), nullptr);
        CoUninitialize();
    };
    runTogether(40, {announce, announce, announce, [&](std::uint32_t) {
                         for (NetworkStreamReceiver* const receiver : creator->receivers()) {
                             receiver->resetForStart();
                         }
                         creator->releaseAllPendingSamples();
                     }});
    EXPECT_EQ(creator->receivers().size(), 120U);
}

INSTANTIATE_TEST_SUITE_P(Creators, DeliveryStress, testing::Bool(),
                         [](const auto& test) { return test.param ? "Rtmp" : "Other"; });

} // namespace
