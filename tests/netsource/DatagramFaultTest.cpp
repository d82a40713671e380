// What goes wrong around datagram sources: wrong addresses, hosts that block or refuse, loss, many receivers,
// many restarts, and stopping from anywhere.

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <future>
#include <thread>

#include <sched.h>

#include <gtest/gtest.h>

#include "ClientTestSupport.h"
#include "ReceivePool.h"
#include "RecordingLogger.h"

namespace {

using namespace ClientTest;
using namespace MainConcept::NetworkStreaming;
using KorvelVideo::NetworkSource::ReceivePool;
using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::seconds;

TEST(DatagramOpen, WrongAddressesGetAStatusAndOneLine) {
    struct Row {
        const char* url;
        const char* networkInterface;
        ClientStatus status;
        const char* named; // what the line must name
    };
    const Row rows[] = {
        {"udp://127.0.0.1", nullptr, keClientInvalidParameter, "the port is missing"},
        {"udp://no.such.host.invalid:5000", nullptr, keClientUnknownHost, "no.such.host.invalid"},
        {"udp://198.51.100.7:5000", nullptr, keClientNotFound, "198.51.100.7"},
        {"udp://239.255.7.7:0", "nosuch0", keClientNotFound, "nosuch0"},
        {"udp://239.255.7.7:0", "198.51.100.7", keClientNotFound, "198.51.100.7"},
        {"udp://127.0.0.2@127.0.0.1:0", nullptr, keClientInvalidParameter, "127.0.0.2"},
        {"udp://[::1]@239.255.7.7:0", nullptr, keClientUnknownHost, "::1"},
        {"file:///etc/passwd", nullptr, keClientNotSupported, "file"},
    };
    for (const Row& row : rows) {
        RecordingLogger::clear();
        Receiver receiver;
        EXPECT_EQ(receiver.init(row.url, row.networkInterface), row.status) << row.url;
        EXPECT_TRUE(receiver.creator.announcements.empty());
        const std::vector<LogLine> lines = RecordingLogger::takeLines();
        ASSERT_EQ(lines.size(), 1U) << row.url;
        EXPECT_EQ(lines[0].level, 4U);
        EXPECT_NE(lines[0].text.find(row.named), std::string::npos) << lines[0].text;
    }
}

TEST(DatagramOpen, TakenPortIsRefusedAndFreeAgainAfterShutdown) {
    Receiver first;
    ASSERT_EQ(first.init("udp://127.0.0.1:0"), keClientOk);
    const std::string url = "udp://127.0.0.1:" + std::to_string(first.port());
    {
        Receiver second;
        EXPECT_EQ(second.init(url), keClientConnectionFailed);
    }
    first.close();
    Receiver third;
    EXPECT_EQ(third.init(url), keClientOk);
}

TEST(DatagramOpen, InterfaceOfAnyAddressIsBoundTo) {
    for (const char* const networkInterface : {"lo", "127.0.0.1"}) {
        Receiver receiver;
        ASSERT_EQ(receiver.init("udp://:0", networkInterface), keClientOk);
        ASSERT_EQ(receiver.play(), keClientOk);
        const Sender sender("127.0.0.1", receiver.port());
        sender.send(makeTransportPackets(0, 7));
        EXPECT_TRUE(waitFor([&] { return receiver.consumer().size() == 1316; }));
    }
}

// A unicast sender's data is kept from Init on; once the socket buffer has overflowed, delivery begins with
// what comes after Play, without the gap.
TEST(DatagramOpen, WhatCameBeforePlay) {
    Receiver receiver;
    ASSERT_EQ(receiver.init("udp://127.0.0.1:0"), keClientOk);
    const Sender sender("127.0.0.1", receiver.port());
    const Bytes early = makeTransportPackets(0, 7);
    sender.send(early);
    ASSERT_EQ(receiver.play(), keClientOk);
    EXPECT_TRUE(waitFor([&] { return receiver.consumer().size() == early.size(); }));

    Receiver overflowing;
    ASSERT_EQ(overflowing.init("udp://127.0.0.1:0"), keClientOk);
    const Sender flood("127.0.0.1", overflowing.port());
    for (int count = 0; count < 20000; ++count) {
        flood.send(early);
    }
    ASSERT_EQ(overflowing.play(), keClientOk);
    const Bytes late = makeTransportPackets(100, 7);
    flood.send(late);
    EXPECT_TRUE(waitFor([&] { return overflowing.consumer().size() == late.size(); }));
    EXPECT_EQ(overflowing.consumer().data(), late);
}

// Two receivers of one group get all of it, and nothing that is sent to their port otherwise.
void receiveGroupTwice(const std::string& group, const char* networkInterface) {
    const bool isV6 = group.find(':') != std::string::npos;
    const std::string url = "udp://" + (isV6 ? "[" + group + "]" : group) + ":";
    Receiver receivers[2];
    ASSERT_EQ(receivers[0].init(url + "0", networkInterface), keClientOk);
    const std::uint16_t port = receivers[0].port();
    ASSERT_EQ(receivers[1].init(url + std::to_string(port), networkInterface), keClientOk);
    ASSERT_EQ(receivers[0].play(), keClientOk);
    ASSERT_EQ(receivers[1].play(), keClientOk);
    const Sender sender(group, port, networkInterface);
    const Sender stranger(isV6 ? "::1" : "127.0.0.1", port);
    Bytes sent;
    for (std::size_t number = 0; number < 50; ++number) {
        const Bytes datagram = makeTransportPackets(number * 7, 7);
        if (!sender.send(datagram)) {
            GTEST_SKIP() << "this machine sends no multicast over " << networkInterface;
        }
        stranger.send(makeTransportPackets(number, 1));
        sent.insert(sent.end(), datagram.begin(), datagram.end());
    }
    for (Receiver& receiver : receivers) {
        EXPECT_TRUE(waitFor([&] { return receiver.consumer().size() >= sent.size(); }));
        EXPECT_EQ(receiver.consumer().data(), sent) << group;
    }
}

TEST(DatagramMulticast, TwoReceiversOfOneGroup) { receiveGroupTwice("239.255.77.1", "lo"); }

// The loopback interface carries no IPv6 multicast, so a thread goes into a network of its own.
TEST(DatagramMulticast, TwoReceiversOfOneIPv6Group) {
    bool hasNetwork = false;
    std::thread([&hasNetwork] {
        hasNetwork = unshare(CLONE_NEWNET) == 0 &&
                     // No other thread of the tests runs a command. NOLINTNEXTLINE(concurrency-mt-unsafe)
                     std::system("ip link set lo up && ip link add kv0 type veth peer name kv1 && "
                                 "ip link set kv1 up && ip link set kv0 up && "
                                 "ip -6 address add fd00::1/64 dev kv0 nodad") == 0;
        if (hasNetwork) {
            receiveGroupTwice("ff15::7701", "kv0");
        }
    }).join();
    if (!hasNetwork) {
        GTEST_SKIP() << "this user may not make a network namespace";
    }
}

TEST(DatagramMulticast, OnlyTheChosenSource) {
    Receiver receiver;
    ASSERT_EQ(receiver.init("udp://127.0.0.2@232.77.7.7:0", "lo"), keClientOk);
    if (receiver.play() != keClientOk) {
        GTEST_SKIP() << "this machine has no source-specific multicast on its loopback interface";
    }
    const Sender wanted("232.77.7.7", receiver.port());
    const Sender unwanted("232.77.7.7", receiver.port());
    wanted.bindTo("127.0.0.2");
    unwanted.bindTo("127.0.0.3");
    if (!unwanted.send(makeTransportPackets(0, 3))) {
        GTEST_SKIP() << "this machine sends no multicast over its loopback interface";
    }
    const Bytes datagram = makeTransportPackets(0, 7);
    wanted.send(datagram);
    EXPECT_TRUE(waitFor([&] { return receiver.consumer().size() >= datagram.size(); }));
    EXPECT_EQ(receiver.consumer().data(), datagram);
}

TEST(DatagramFaults, HostRefusesBuffersAndTakesThemAgain) {
    Receiver receiver;
    ASSERT_EQ(receiver.init("udp://127.0.0.1:0"), keClientOk);
    receiver.consumer().refusing = true;
    ASSERT_EQ(receiver.play(), keClientOk);
    const Sender sender("127.0.0.1", receiver.port());
    sender.send(makeTransportPackets(0, 7));
    EXPECT_TRUE(waitFor([&] { return receiver.counters().unbufferedBytes == 1316; }));
    receiver.consumer().refusing = false;
    const Bytes packets = makeTransportPackets(7, 7);
    EXPECT_TRUE(waitFor([&] {
        sender.send(packets);
        return receiver.consumer().size() != 0;
    }));
    EXPECT_EQ(receiver.stop(), keClientOk);
    EXPECT_EQ(receiver.consumer().lent(), 0);
}

TEST(DatagramFaults, DamageIsCountedAndPassedOver) {
    Receiver receiver;
    ASSERT_EQ(receiver.init("rtp://127.0.0.1:0"), keClientOk);
    ASSERT_EQ(receiver.play(), keClientOk);
    const Sender sender("127.0.0.1", receiver.port());
    Bytes otherType = makeRtp(1, makeTransportPackets(0, 1));
    otherType[1] = 96;
    Bytes expected;
    const auto good = [&](std::uint16_t number) {
        const Bytes payload = makeTransportPackets(number, 1);
        expected.insert(expected.end(), payload.begin(), payload.end());
        return makeRtp(number, payload);
    };
    const Bytes datagrams[] = {good(1), {},      {0x80},         otherType, Bytes(12, 0x40),
                               good(2), good(2), makeRtp(3, {}), good(4),   good(6)};
    for (const Bytes& datagram : datagrams) {
        sender.send(datagram);
    }
    // Number 2 was sent twice.
    const Bytes twice = makeTransportPackets(2, 1);
    expected.erase(expected.begin() + 188, expected.begin() + 376);
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
    std::atomic<bool> go{false};
    receiver.consumer().keeping = false;
    receiver.consumer().onData = [&go] { EXPECT_TRUE(waitFor([&go] { return go.load(); })); };
    ASSERT_EQ(receiver.play(), keClientOk);
    const Sender sender("127.0.0.1", receiver.port());
    const Bytes datagram = makeTransportPackets(0, 7);
    constexpr std::uint64_t kSent = 20000;
    for (std::uint64_t count = 0; count < kSent; ++count) {
        ASSERT_TRUE(sender.send(datagram));
    }
    go = true;
    EXPECT_TRUE(waitFor([&] {
        const auto counters = receiver.counters();
        return counters.kernelDrops != 0 && counters.packets + counters.kernelDrops == kSent;
    })) << receiver.counters().packets
        << " + " << receiver.counters().kernelDrops;
}

// As many hosts as may block at a time do so until the test lets them go, one after the other or all at once.
TEST(DatagramFaults, SlowHostsDoNotHoldUpOthers) {
    constexpr int kSlow = ReceivePool::kThreads - 1;
    const Bytes datagram = makeTransportPackets(0, 7);
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
                EXPECT_EQ(gone.wait_for(seconds(60)), std::future_status::ready);
            };
            ASSERT_EQ(receiver.play(), keClientOk);
        }
        Receiver quick;
        ASSERT_EQ(quick.init("udp://127.0.0.1:0"), keClientOk);
        ASSERT_EQ(quick.play(), keClientOk);
        const Sender sender("127.0.0.1", quick.port());
        for (int index = 0; index < kSlow; ++index) {
            ASSERT_TRUE(Sender("127.0.0.1", slow[index].port()).send(datagram));
            if (atOnce && index + 1 < kSlow) {
                continue;
            }
            ASSERT_TRUE(waitFor([&] { return blocked == index + 1; }));
            for (int count = 0; count < 20; ++count) { // one by one, so that no socket buffer is too small
                const std::size_t before = quick.consumer().size();
                ASSERT_TRUE(sender.send(datagram));
                ASSERT_TRUE(waitFor([&] { return quick.consumer().size() == before + datagram.size(); }))
                    << blocked << " hosts block";
            }
        }
        EXPECT_EQ(quick.stop(), keClientOk) << "stopping does not wait for the others";
        EXPECT_EQ(blocked, kSlow);
        go.set_value();
    }
}

TEST(DatagramFaults, StopFromInsideACallback) {
    for (const bool release : {false, true}) {
        for (const bool inNotification : {false, true}) {
            auto receiver = std::make_unique<Receiver>();
            ASSERT_EQ(receiver->init("udp://127.0.0.1:0"), keClientOk);
            RecordingConsumer& consumer = receiver->consumer();
            std::atomic<bool> done{false};
            const auto stop = [&] {
                if (!done) {
                    release ? receiver->close() : static_cast<void>(receiver->stop());
                    done = true;
                }
            };
            if (inNotification) {
                consumer.onNotify = [&](int) { stop(); };
            } else {
                consumer.onData = stop;
            }
            ASSERT_EQ(receiver->play(), keClientOk);
            const Sender sender("127.0.0.1", receiver->port());
            for (int count = 0; count < 100; ++count) {
                sender.send(makeTransportPackets(0, 7));
            }
            EXPECT_TRUE(waitFor([&] { return done.load(); }));
            EXPECT_LE(consumer.buffers(), 1U);
            if (!release) { // and from outside again
                EXPECT_EQ(receiver->stop(), keClientOk);
                consumer.onData = [] {};
                consumer.onNotify = [](int) {};
                const std::size_t before = consumer.buffers();
                EXPECT_EQ(receiver->play(), keClientOk);
                sender.send(makeTransportPackets(0, 7));
                EXPECT_TRUE(waitFor([&] { return consumer.buffers() > before; }));
            }
        }
    }
}

TEST(DatagramFaults, StopIsQuick) {
    Receiver receiver;
    ASSERT_EQ(receiver.init("udp://127.0.0.1:0"), keClientOk);
    ASSERT_EQ(receiver.play(), keClientOk);
    const auto before = std::chrono::steady_clock::now();
    EXPECT_EQ(receiver.stop(), keClientOk);
    EXPECT_LT(std::chrono::steady_clock::now() - before, milliseconds(KV_STOP_BOUND_MILLISECONDS));
}

TEST(DatagramFaults, FiftyReceiversAtOnce) {
    std::vector<std::unique_ptr<Receiver>> receivers;
    std::vector<std::unique_ptr<Sender>> senders;
    for (int index = 0; index < 50; ++index) {
        receivers.push_back(std::make_unique<Receiver>());
        ASSERT_EQ(receivers.back()->init(index % 2 == 0 ? "udp://127.0.0.1:0" : "rtp://127.0.0.1:0"),
                  keClientOk);
        ASSERT_EQ(receivers.back()->play(), keClientOk);
        senders.push_back(std::make_unique<Sender>("127.0.0.1", receivers.back()->port()));
    }
    std::vector<Bytes> sent(receivers.size());
    for (std::uint16_t number = 0; number < 100; ++number) {
        for (std::size_t index = 0; index < senders.size(); ++index) {
            const Bytes payload = makeTransportPackets(index * 1000 + std::size_t{number} * 7, 7);
            senders[index]->send(index % 2 == 0 ? payload : makeRtp(number, payload));
            sent[index].insert(sent[index].end(), payload.begin(), payload.end());
        }
    }
    for (std::size_t index = 0; index < receivers.size(); ++index) {
        EXPECT_TRUE(waitFor([&] { return receivers[index]->consumer().size() == sent[index].size(); }))
            << index;
        EXPECT_EQ(receivers[index]->consumer().data(), sent[index]) << index;
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

TEST(DatagramFaults, ThousandRestartsLeaveNothingBehind) {
    const auto restart = [] {
        Receiver receiver;
        ASSERT_EQ(receiver.init("udp://127.0.0.1:0"), keClientOk);
        ASSERT_EQ(receiver.play(), keClientOk);
        const Sender sender("127.0.0.1", receiver.port());
        sender.send(makeTransportPackets(0, 7));
        ASSERT_TRUE(waitFor([&] { return receiver.consumer().size() == 1316; }));
    };
    for (int count = 0; count < 100; ++count) {
        restart();
    }
    const std::ptrdiff_t filesBefore = openFiles();
    const std::size_t pagesBefore = residentPages();
    for (int count = 0; count < 1000; ++count) {
        restart();
    }
    EXPECT_EQ(openFiles(), filesBefore);
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    EXPECT_LT(residentPages(), pagesBefore + 256) << "1 MiB";
#else
    static_cast<void>(pagesBefore); // the sanitizers keep freed memory, and find what is lost themselves
#endif
}

TEST(ReceivePool, IntervalLeavesRoomForBursts) {
    struct Row {
        std::size_t bytes;
        microseconds elapsed;
        std::size_t bufferSize;
        microseconds expected;
    };
    const Row rows[] = {
        {0, microseconds(5000), 4U << 20, microseconds(5000)},
        {625'000, microseconds(5000), 4U << 20, microseconds(5000)},   // 1000 Mb/s
        {2'500'000, microseconds(5000), 4U << 20, microseconds(2097)}, // 4000 Mb/s
        {625'000, microseconds(5000), 212'992, microseconds(500)},     // what systems grant by default
        {31'250, microseconds(5000), 212'992, microseconds(5000)},
        {1U << 30, microseconds(500), 0, microseconds(500)},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(ReceivePool::intervalFor(row.bytes, row.elapsed, row.bufferSize), row.expected);
    }
}

} // namespace
