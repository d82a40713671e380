#include <functional>
#include <set>
#include <thread>

#include "NetworkStreamReceiverFixture.h"
#include "TestClock.h"

using namespace KorvelVideo::Network;

namespace {

// Data, notifications, forced ends and stop meet on one receiver from different threads. The thread sanitizer
// finds the races; what is asserted is that no buffer is lost or given back twice, and no access unit
// delivered twice.
TEST_F(NetworkStreamReceiverTest, DataNotificationsForcedEndsAndStopMeet) {
    constexpr std::uint32_t kRounds = 400;
    const Unrecorded unrecorded;
    const KvTest::TestClock clock; // stands still, far beyond the first silence
    m_sink.onCall = [receiver = m_receiver.get()](const std::string& call) { // a host that stops inside
        if (call == "NotifyStatus") {
            receiver->releasePendingSamples();
        }
    };
    const std::vector<std::function<void(std::uint32_t)>> actors{
        [&](std::uint32_t round) {
            for (std::uint8_t piece = 0; piece < 3; ++piece) {
                ScriptedSdk::play(*m_receiver, {{piece, static_cast<std::uint8_t>(round)}, round});
            }
        },
        [&](std::uint32_t) { notify(0); },
        [&](std::uint32_t round) { notify(round % 2 == 0 ? 10 : 3); },
        [&](std::uint32_t round) {
            if (round % 100 == 50) {
                notify(6);
            }
        },
        [&](std::uint32_t round) {
            if (round % 100 == 0) {
                m_receiver->forceEndOfStream();
            }
        },
        [&](std::uint32_t round) {
            if (round % 50 == 25) {
                m_receiver->setStopCalled();
                m_receiver->releasePendingSamples();
                m_receiver->resetForStart();
            }
        },
    };
    std::vector<std::thread> threads;
    threads.reserve(actors.size());
    for (const auto& actor : actors) {
        threads.emplace_back([&actor] {
            for (std::uint32_t round = 1; round <= kRounds; ++round) {
                actor(round);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    m_receiver.reset();
    std::set<std::pair<std::uint64_t, std::vector<std::uint8_t>>> seen;
    for (const DeliveredUnit& unit : m_sink.takeDelivered()) {
        EXPECT_EQ(unit.bytes.size() % 2, 0U);
        for (std::size_t piece = 0; piece + 1 < unit.bytes.size(); piece += 2) {
            EXPECT_EQ(unit.bytes[piece + 1], static_cast<std::uint8_t>(unit.timeStamp))
                << "a piece of another unit";
            EXPECT_TRUE(seen.insert({unit.timeStamp, {unit.bytes[piece]}}).second) << "delivered twice";
        }
    }
}

} // namespace
