// What goes wrong around datagram sources: hosts that block or refuse, loss, silence, many restarts, and
// stopping from anywhere.

#include <filesystem>
#include <fstream>
#include <future>

#include <gtest/gtest.h>

#include "ClientTestSupport.h"
#include "ReceivePool.h"

namespace {

using namespace ClientTest;

const Octets kDatagram = makeTransportPackets(0, 7);

void start(Receiver& receiver, const char* url = "udp://127.0.0.1:0") {
    ASSERT_EQ(receiver.init(url), keClientOk);
    ASSERT_EQ(receiver.play(), keClientOk);
}

TEST(DatagramFaults, HostRefusesBuffersAndTakesThemAgain) {
    Receiver receiver;
    ASSERT_EQ(receiver.init("udp://127.0.0.1:0"), keClientOk);
    receiver.consumer().refusing = true;
    ASSERT_EQ(receiver.play(), keClientOk);
    const Sender sender("127.0.0.1", receiver.port());
    ASSERT_TRUE(sender.send(kDatagram));
    EXPECT_TRUE(waitFor([&] { return receiver.counters().unbufferedBytes == 1316; }));
    receiver.consumer().refusing = false;
    EXPECT_TRUE(waitFor([&] { return sender.send(kDatagram) && receiver.consumer().size() != 0; }));
    EXPECT_EQ(receiver.stop(), keClientOk);
    EXPECT_EQ(receiver.consumer().lent(), 0);
}

TEST(DatagramFaults, DamageIsCountedAndPassedOver) {
    Receiver receiver;
    start(receiver, "rtp://127.0.0.1:0");
    const Sender sender("127.0.0.1", receiver.port());
    const auto packet = [](std::size_t number) { return makeRtp(number, makeTransportPackets(number, 1)); };
    Octets otherType = packet(1);
    otherType[1] = 96;
    for (const Octets& datagram : {packet(1), Octets{}, Octets{0x80}, otherType, Octets(12, 0x40), packet(2),
                                   packet(2), makeRtp(3, {}), packet(4), packet(6)}) {
        ASSERT_TRUE(sender.send(datagram));
    }
    Octets expected;
    for (const std::size_t number : {1U, 2U, 4U, 6U}) {
        append(expected, makeTransportPackets(number, 1));
    }
    EXPECT_TRUE(waitFor([&] { return receiver.consumer().size() == expected.size(); }));
    EXPECT_EQ(receiver.consumer().data(), expected);
    const auto counters = receiver.counters();
    EXPECT_EQ(counters.damaged, 4U);
    EXPECT_EQ(counters.rtpDuplicates, 1U);
    EXPECT_EQ(counters.rtpLost, 1U) << "number 5";
    EXPECT_EQ(counters.continuityErrors, 2U) << "packets 3 and 5 of the stream are missing";
}

TEST(DatagramFaults, KernelDropsAreCounted) {
    Receiver receiver;
    ASSERT_EQ(receiver.init("udp://127.0.0.1:0"), keClientOk);
    std::promise<void> go;
    receiver.consumer().keeping = false;
    receiver.consumer().onData = [gone = go.get_future().share()] { gone.wait(); };
    ASSERT_EQ(receiver.play(), keClientOk);
    const Sender sender("127.0.0.1", receiver.port());
    constexpr std::uint64_t kSent = 6000;
    for (std::uint64_t count = 0; count < kSent; ++count) {
        EXPECT_TRUE(sender.send(kDatagram));
    }
    go.set_value();
    EXPECT_TRUE(waitFor([&] {
        const auto counters = receiver.counters();
        return counters.kernelDrops != 0 && counters.packets + counters.kernelDrops == kSent;
    })) << receiver.counters().packets
        << " + " << receiver.counters().kernelDrops;
}

TEST(DatagramFaults, SilenceIsTold) {
    Receiver receiver(testSurroundings());
    start(receiver);
    ASSERT_TRUE(Sender("127.0.0.1", receiver.port()).send(kDatagram));
    EXPECT_TRUE(waitFor([&] { return receiver.consumer().size() == 1316; }));
    advanceClock(std::chrono::seconds(3));
    EXPECT_TRUE(waitFor([&] { return receiver.wasTold(keNotifySilence); }));
}

// As many hosts as may block at a time do so until the test lets them go, one after the other or all at once.
TEST(DatagramFaults, SlowHostsDoNotHoldUpOthers) {
    constexpr int kSlow = ReceivePool::kThreads - 1;
    for (const bool atOnce : {false, true}) {
        SCOPED_TRACE(atOnce ? "all at once" : "one after the other");
        std::atomic<int> blocked{0};
        Receiver slow[kSlow];
        std::promise<void> go; // after them: lets them go in any case
        const std::shared_future<void> gone = go.get_future().share();
        for (Receiver& receiver : slow) {
            ASSERT_EQ(receiver.init("udp://127.0.0.1:0"), keClientOk);
            receiver.consumer().onData = [&blocked, gone] {
                ++blocked;
                gone.wait();
            };
            ASSERT_EQ(receiver.play(), keClientOk);
        }
        Receiver quick;
        start(quick);
        const Sender sender("127.0.0.1", quick.port());
        for (int index = 0; index < kSlow; ++index) {
            ASSERT_TRUE(Sender("127.0.0.1", slow[index].port()).send(kDatagram));
            if (atOnce && index + 1 < kSlow) {
                continue;
            }
            ASSERT_TRUE(waitFor([&] { return blocked == index + 1; }));
            for (int count = 0; count < 20; ++count) { // one by one, so that no socket buffer is too small
                const std::size_t before = quick.consumer().size();
                ASSERT_TRUE(sender.send(kDatagram));
                ASSERT_TRUE(waitFor([&] { return quick.consumer().size() == before + kDatagram.size(); }))
                    << blocked << " hosts block";
            }
        }
        EXPECT_EQ(quick.stop(), keClientOk) << "stopping does not wait for the others";
        EXPECT_EQ(blocked, kSlow);
        go.set_value();
    }
}

TEST(DatagramFaults, StopFromInsideACallback) {
    std::vector<std::unique_ptr<Receiver>> receivers; // outlive the calls inside them
    for (const bool release : {true, false}) {
        for (const bool inNotification : {false, true}) {
            receivers.push_back(std::make_unique<Receiver>());
            Receiver& receiver = *receivers.back();
            ASSERT_EQ(receiver.init("udp://127.0.0.1:0"), keClientOk);
            const Sender sender("127.0.0.1", receiver.port());
            RecordingConsumer& consumer = receiver.consumer();
            std::atomic<bool> done{false};
            const auto stop = [&] {
                if (!done) {
                    release ? receiver.close() : static_cast<void>(receiver.stop());
                    done = true;
                }
            };
            if (inNotification) {
                consumer.onNotify = [stop](int) { stop(); };
            } else {
                consumer.onData = stop;
            }
            ASSERT_EQ(receiver.play(), keClientOk);
            for (int count = 0; count < 100; ++count) {
                sender.send(kDatagram);
            }
            EXPECT_TRUE(waitFor([&] { return done.load(); }));
            EXPECT_LE(consumer.buffers(), 1U);
            if (!release) { // and from outside again
                EXPECT_EQ(receiver.stop(), keClientOk);
                const std::size_t before = consumer.buffers();
                EXPECT_EQ(receiver.play(), keClientOk);
                EXPECT_TRUE(waitFor([&] { return sender.send(kDatagram) && consumer.buffers() > before; }));
                receiver.close();
            }
        }
    }
}

std::ptrdiff_t openFiles() {
    const std::filesystem::directory_iterator files("/proc/self/fd");
    return std::distance(begin(files), end(files));
}

std::size_t residentPages() {
    std::size_t size = 0;
    std::size_t resident = 0;
    std::ifstream("/proc/self/statm") >> size >> resident;
    return resident;
}

// The sanitizers keep freed memory, and find what is lost themselves.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int kRestarts = 100;
constexpr std::size_t kMorePages = std::size_t{1} << 20;
#else
constexpr int kRestarts = 1000;
constexpr std::size_t kMorePages = 256; // 1 MiB
#endif

TEST(DatagramFaults, RestartsLeaveNothingBehind) {
    std::ptrdiff_t filesBefore = 0;
    std::size_t pagesBefore = 0;
    for (int count = -kRestarts / 10; count < kRestarts; ++count) {
        if (count == 0) {
            filesBefore = openFiles();
            pagesBefore = residentPages();
        }
        Receiver receiver;
        start(receiver);
        ASSERT_TRUE(Sender("127.0.0.1", receiver.port()).send(kDatagram));
        ASSERT_TRUE(waitFor([&] { return receiver.consumer().size() == kDatagram.size(); }));
    }
    EXPECT_LE(openFiles(), filesBefore);
    EXPECT_LT(residentPages(), pagesBefore + kMorePages);
}

TEST(ReceivePool, IntervalLeavesRoomForBursts) {
    struct Row {
        std::size_t bytes;
        std::int64_t elapsed;
        std::size_t bufferSize;
        std::int64_t expected;
    };
    constexpr Row kRows[] = {
        {0, 5000, 4U << 20, 5000},         {625'000, 5000, 4U << 20, 5000}, // 1000 Mb/s
        {2'500'000, 5000, 4U << 20, 2097},                                  // 4000 Mb/s
        {625'000, 5000, 212'992, 500},                                      // what systems grant by default
        {31'250, 5000, 212'992, 5000},     {1U << 30, 500, 0, 500},
    };
    using std::chrono::microseconds;
    for (const Row& row : kRows) {
        EXPECT_EQ(ReceivePool::intervalFor(row.bytes, microseconds(row.elapsed), row.bufferSize).count(),
                  row.expected);
    }
}

} // namespace
