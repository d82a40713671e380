// Datagram sources end to end: from real sockets on loopback through the entry points to a consumer.

#include <algorithm>
#include <filesystem>
#include <future>

#include <dlfcn.h>
#include <sys/socket.h>

#include <gtest/gtest.h>

#include "AllocationCounter.h"
#include "ClientTestSupport.h"
#include "ReceivePool.h"
#include "RecordingLogger.h"

namespace {

using namespace ClientTest;

const Octets kDatagram = makeTransportPackets(0, 7);
constexpr const char* kAnyPort = "udp://127.0.0.1:0";

// Bytes of socket buffer that the system grants at most.
std::atomic<int> g_mostGranted{INT32_MAX};

void start(Receiver& receiver, const char* url = kAnyPort, const char* networkInterface = nullptr) {
    ASSERT_EQ(receiver.init(url, networkInterface), keClientOk);
    ASSERT_EQ(receiver.play(), keClientOk);
}

TEST(DatagramStream, ArrivesByteForByte) {
    struct Row {
        const char* url;
        const char* networkInterface;
        const char* sendTo;
        std::vector<std::size_t> packetsPerDatagram; // repeated
        int mostGranted = INT32_MAX;
    };
    const Row rows[] = {
        {"udp://@:0", "lo", "127.0.0.1", {7, 3, 1, 40, 7, 7}},
        {"udp://:0", "127.0.0.1", "127.0.0.1", {50, 1, 50}},
        {"udp://[::1]:0", nullptr, "::1", {7}},
        {"rtp://127.0.0.1:0", nullptr, "127.0.0.1", {7, 5, 7, 20}},
        {kAnyPort, nullptr, "127.0.0.1", {7}, 131'072},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.url);
        RecordingLogger::clear();
        g_mostGranted = row.mostGranted;
        Receiver receiver;
        start(receiver, row.url, row.networkInterface);
        g_mostGranted = INT32_MAX;
        RecordingConsumer& consumer = receiver.consumer();
        const Sender sender(row.sendTo, receiver.port());
        Octets sent;
        for (std::size_t number = 0, packet = 0; number < 600; ++number) {
            const std::size_t count = row.packetsPerDatagram[number % row.packetsPerDatagram.size()];
            const Octets payload = makeTransportPackets(packet, count);
            packet += count;
            append(sent, payload);
            ASSERT_TRUE(sender.send(row.url[0] == 'r' ? makeRtp(65300 + number, payload) : payload));
            // No more is on its way than the smallest of socket buffers holds.
            ASSERT_TRUE(waitFor([&] { return sent.size() - consumer.size < 65536; })) << number;
        }
        EXPECT_TRUE(waitFor([&] { return consumer.size == sent.size(); }));
        EXPECT_EQ(consumer.data(), sent);
        const auto counters = receiver.counters();
        EXPECT_EQ(counters.packets, 600U);
        EXPECT_EQ(counters.continuityErrors + counters.kernelDrops + counters.damaged +
                      counters.unbufferedBytes + counters.rtpLost + counters.rtpDuplicates +
                      counters.rtpReordered,
                  0U);
        EXPECT_EQ(counters.streams[0].bytes, sent.size());
        EXPECT_EQ(receiver.announcements, (std::vector<Receiver::Announcement>{
                                              {keStreamTypeTransportStream, keMediaVideo, 0, 0, {}}}));
        EXPECT_EQ(receiver.stop(), keClientOk);
        EXPECT_EQ(consumer.lent, 0);
        EXPECT_TRUE(std::ranges::is_sorted(consumer.timeStamps()));
        const bool isCapped = row.mostGranted != INT32_MAX;
        EXPECT_TRUE(!isCapped || RecordingLogger::takeLines().at(0).text.find(
                                     "131072 bytes instead of 4194304") != std::string::npos);
    }
}

// From the allocator's first buffers on, a stream costs no allocation, plain or in RTP, in order.
TEST(DatagramStream, AllocatesNothingInSteadyState) {
    for (const bool isRtp : {false, true}) {
        Receiver receiver;
        ASSERT_EQ(receiver.init(isRtp ? "rtp://127.0.0.1:0" : kAnyPort), keClientOk);
        std::unique_ptr<AllocationCounter> counter;
        std::atomic<std::int64_t> allocations{-1};
        int calls = 0;
        receiver.consumer().keeping = false;
        receiver.consumer().onData = [&] {
            if (++calls == 5) {
                counter = std::make_unique<AllocationCounter>();
            } else if (calls == 50) {
                allocations = static_cast<std::int64_t>(counter->count());
            }
        };
        ASSERT_EQ(receiver.play(), keClientOk);
        const Sender sender("127.0.0.1", receiver.port());
        EXPECT_TRUE(waitFor([&, number = std::size_t{0}]() mutable {
            return sender.send(isRtp ? makeRtp(number++, kDatagram) : kDatagram) && allocations >= 0;
        }));
        EXPECT_EQ(allocations, 0) << isRtp;
        receiver.close();
    }
}

TEST(DatagramOpen, UnusableAddressesGetAStatusAndOneLine) {
    for (const auto& row : readTable("unusable-addresses.txt")) {
        RecordingLogger::clear();
        Receiver receiver;
        EXPECT_EQ(std::to_string(receiver.init(row.at(0), row.at(1).c_str())), row.at(2)) << row[0];
        EXPECT_TRUE(receiver.announcements.empty());
        const std::vector<LogLine> lines = RecordingLogger::takeLines();
        ASSERT_EQ(lines.size(), 1U) << row[0];
        EXPECT_EQ(lines[0].level, 4U);
        EXPECT_NE(lines[0].text.find(row.at(3)), std::string::npos) << lines[0].text;
    }
}

// A unicast sender's data is kept from Init on; once the socket buffer has overflowed, delivery begins with
// what comes after Play, without the gap.
TEST(DatagramOpen, WhatCameBeforePlay) {
    for (const int times : {1, 6000}) { // kept, or more than the socket buffer holds
        Receiver receiver;
        ASSERT_EQ(receiver.init(kAnyPort), keClientOk);
        const Sender sender("127.0.0.1", receiver.port());
        for (int count = 0; count < times; ++count) {
            ASSERT_TRUE(sender.send(kDatagram));
        }
        ASSERT_EQ(receiver.play(), keClientOk);
        const Octets later = makeTransportPackets(1000, 7);
        ASSERT_TRUE(times == 1 || sender.send(later));
        EXPECT_TRUE(waitFor([&] { return receiver.consumer().size == kDatagram.size(); }));
        EXPECT_EQ(receiver.consumer().data(), times == 1 ? kDatagram : later);
    }
}

TEST(DatagramMulticast, OnlyTheChosenSource) {
    Receiver receiver;
    ASSERT_EQ(receiver.init("udp://127.0.0.2@232.77.7.7:0", "lo"), keClientOk);
    if (receiver.play() != keClientOk ||
        !Sender("232.77.7.7", receiver.port(), "127.0.0.3").send(makeTransportPackets(0, 3))) {
        GTEST_SKIP() << "this machine has no source-specific multicast on its loopback interface";
    }
    ASSERT_TRUE(Sender("232.77.7.7", receiver.port(), "127.0.0.2").send(kDatagram));
    EXPECT_TRUE(waitFor([&] { return receiver.consumer().size >= kDatagram.size(); }));
    EXPECT_EQ(receiver.consumer().data(), kDatagram);
}

TEST(DatagramFaults, DamageIsCountedAndPassedOverAndSilenceTold) {
    Receiver receiver(testSurroundings());
    start(receiver, "rtp://127.0.0.1:0");
    const Sender sender("127.0.0.1", receiver.port());
    const auto packet = [](std::size_t number) { return makeRtp(number, makeTransportPackets(number, 1)); };
    Octets otherType = packet(1);
    otherType[1] = 96;
    for (const Octets& datagram : {packet(1), Octets{}, Octets{0x80}, otherType, Octets(12, 0x40), packet(2),
                                   packet(2), makeRtp(3, {}), packet(4), packet(6)}) {
        ASSERT_TRUE(sender.send(datagram));
    }
    EXPECT_TRUE(waitFor([&] { return receiver.consumer().size == std::size_t{4} * 188; }));
    const auto counters = receiver.counters();
    EXPECT_EQ(counters.damaged, 4U);
    EXPECT_EQ(counters.rtpDuplicates, 1U);
    EXPECT_EQ(counters.rtpLost, 1U) << "number 5";
    EXPECT_EQ(counters.continuityErrors, 2U) << "packets 3 and 5 of the stream are missing";
    advanceClock(std::chrono::seconds(3));
    EXPECT_TRUE(waitFor([&] { return receiver.wasTold(keNotifySilence); }));
}

TEST(DatagramFaults, KernelDropsAreCounted) {
    Receiver receiver;
    ASSERT_EQ(receiver.init(kAnyPort), keClientOk);
    std::promise<void> go;
    receiver.consumer().keeping = false;
    receiver.consumer().onData = [gone = go.get_future().share()] { gone.wait(); };
    ASSERT_EQ(receiver.play(), keClientOk);
    const Sender sender("127.0.0.1", receiver.port());
    for (int count = 0; count < 6000; ++count) {
        EXPECT_TRUE(sender.send(kDatagram));
    }
    go.set_value();
    EXPECT_TRUE(waitFor([&] {
        const auto counters = receiver.counters();
        return counters.kernelDrops != 0 && counters.packets + counters.kernelDrops == 6000;
    }));
}

// As many hosts as may block at a time do so until the test lets them go.
TEST(DatagramFaults, SlowHostsDoNotHoldUpOthers) {
    std::atomic<std::size_t> blocked{0};
    std::array<Receiver, ReceivePool::kThreads - 1> slow;
    std::promise<void> go; // after them: lets them go in any case
    Receiver quick;
    start(quick);
    const Sender sender("127.0.0.1", quick.port());
    const std::shared_future<void> gone = go.get_future().share();
    for (Receiver& receiver : slow) {
        ASSERT_EQ(receiver.init(kAnyPort), keClientOk);
        receiver.consumer().onData = [&blocked, gone] {
            ++blocked;
            gone.wait();
        };
        ASSERT_EQ(receiver.play(), keClientOk);
        const std::size_t before = blocked;
        ASSERT_TRUE(Sender("127.0.0.1", receiver.port()).send(kDatagram));
        ASSERT_TRUE(waitFor([&] { return blocked == before + 1; }));
        for (int count = 0; count < 20; ++count) { // one by one, so that no socket buffer is too small
            const std::size_t size = quick.consumer().size + kDatagram.size();
            ASSERT_TRUE(sender.send(kDatagram));
            ASSERT_TRUE(waitFor([&] { return quick.consumer().size == size; })) << blocked << " hosts block";
        }
    }
    EXPECT_EQ(quick.stop(), keClientOk) << "stopping does not wait for the others";
    go.set_value();
}

TEST(DatagramFaults, ReleaseFromInsideACallback) {
    Receiver receiver;
    ASSERT_EQ(receiver.init(kAnyPort), keClientOk);
    std::promise<void> done;
    receiver.consumer().onData = [&] {
        receiver.close();
        done.set_value();
    };
    const Sender sender("127.0.0.1", receiver.port());
    ASSERT_EQ(receiver.play(), keClientOk);
    ASSERT_TRUE(sender.send(kDatagram) && sender.send(kDatagram));
    EXPECT_EQ(done.get_future().wait_for(std::chrono::seconds(30)), std::future_status::ready);
}

TEST(DatagramFaults, RestartsLeaveNoFileOpenAndNoMemory) {
    const Unrecorded unrecorded;
    const auto openFiles = [] {
        const std::filesystem::directory_iterator files("/proc/self/fd");
        return std::distance(begin(files), end(files));
    };
    std::ptrdiff_t before = 0;
    std::int64_t liveBefore = 0;
    for (int count = 0; count < 1000; ++count) {
        if (count == 100) {
            before = openFiles();
            liveBefore = AllocationCounter::live();
        }
        Receiver receiver;
        start(receiver);
        EXPECT_EQ(Receiver().init("udp://127.0.0.1:" + std::to_string(receiver.port())),
                  keClientConnectionFailed);
        const Sender sender("127.0.0.1", receiver.port());
        receiver.stop();
        ASSERT_EQ(receiver.play(), keClientOk);
        ASSERT_TRUE(sender.send(kDatagram));
        ASSERT_TRUE(waitFor([&] { return receiver.consumer().size == kDatagram.size(); }));
    }
    EXPECT_LE(openFiles(), before);
    EXPECT_LT(AllocationCounter::live(), liveBefore + 100);
}

TEST(ReceivePool, IntervalLeavesRoomForBursts) {
    const auto interval = [](std::size_t bytes, int elapsed, std::size_t bufferSize) {
        return ReceivePool::intervalFor(bytes, std::chrono::microseconds(elapsed), bufferSize).count();
    };
    EXPECT_EQ(interval(0, 5000, 4U << 20), 5000);
    EXPECT_EQ(interval(2'500'000, 5000, 4U << 20), 2097) << "4000 Mb/s";
    EXPECT_EQ(interval(625'000, 5000, 212'992), 500) << "1000 Mb/s, and what systems grant by default";
}

} // namespace

// Comes before the system's.
extern "C" int setsockopt(int file, int level, int name, const void* value, socklen_t size) noexcept {
    static const auto real = reinterpret_cast<decltype(&setsockopt)>(dlsym(RTLD_NEXT, "setsockopt"));
    const bool isBuffer = level == SOL_SOCKET && (name == SO_RCVBUF || name == SO_RCVBUFFORCE);
    if (const int most = g_mostGranted; isBuffer && most != INT32_MAX) {
        return name == SO_RCVBUF ? real(file, level, name, &most, sizeof(most)) : -1;
    }
    return real(file, level, name, value, size);
}
