// Datagram sources end to end: from real sockets on loopback through the entry points to a consumer.

#include <algorithm>
#include <cstdlib>
#include <thread>

#include <sched.h>

#include <gtest/gtest.h>

#include "AllocationCounter.h"
#include "ClientTestSupport.h"
#include "RecordingLogger.h"

namespace {

using namespace ClientTest;

struct StreamCase {
    const char* name;
    const char* url;
    const char* sendTo;
    std::vector<std::size_t> packetsPerDatagram; // repeated
};

void PrintTo(const StreamCase& row, std::ostream* stream) { *stream << row.name; }

class DatagramStream : public testing::TestWithParam<StreamCase> {};

TEST_P(DatagramStream, ArrivesByteForByte) {
    const StreamCase& row = GetParam();
    Receiver receiver;
    ASSERT_EQ(receiver.init(row.url), keClientOk);
    ASSERT_EQ(receiver.creator.announcements, (std::vector<RecordingCreator::Announcement>{
                                                  {keStreamTypeTransportStream, keMediaVideo, 0, 0, {}}}));
    ASSERT_EQ(receiver.play(), keClientOk);
    const Sender sender(row.sendTo, receiver.port());
    const bool isRtp = row.url[0] == 'r';
    Octets sent;
    for (std::size_t number = 0, packet = 0; number < 600; ++number) {
        const std::size_t count = row.packetsPerDatagram[number % row.packetsPerDatagram.size()];
        const Octets payload = makeTransportPackets(packet, count);
        packet += count;
        append(sent, payload);
        ASSERT_TRUE(sender.send(isRtp ? makeRtp(65300 + number, payload) : payload));
        // No more is on its way than the smallest of socket buffers holds.
        ASSERT_TRUE(waitFor([&] { return sent.size() - receiver.consumer().size() < 65536; })) << number;
    }
    EXPECT_TRUE(waitFor([&] { return receiver.consumer().size() == sent.size(); }));
    EXPECT_EQ(receiver.consumer().data(), sent);
    const auto counters = receiver.counters();
    EXPECT_EQ(counters.packets, 600U);
    EXPECT_EQ(counters.continuityErrors + counters.kernelDrops + counters.damaged + counters.unbufferedBytes +
                  counters.rtpLost + counters.rtpDuplicates + counters.rtpReordered,
              0U);
    ASSERT_EQ(counters.streamCount, 1U);
    EXPECT_EQ(counters.streams[0].bytes, sent.size());
    EXPECT_EQ(counters.streams[0].buffers, receiver.consumer().buffers());
    EXPECT_EQ(counters.streams[0].streamType, 33U);
    EXPECT_NE(counters.streams[0].nanosecondsSinceData, kNoDataYet);
    EXPECT_EQ(receiver.stop(), keClientOk);
    EXPECT_EQ(receiver.consumer().lent(), 0);
    EXPECT_EQ(receiver.consumer().notifications().front(), keNotifyActivity);
    const auto units = receiver.consumer().units();
    EXPECT_TRUE(std::is_sorted(units.begin(), units.end(),
                               [](const auto& a, const auto& b) { return a.timeStamp < b.timeStamp; }));
}

INSTANTIATE_TEST_SUITE_P(
    Streams, DatagramStream,
    testing::Values(StreamCase{"UdpAnyAddress", "udp://@:0", "127.0.0.1", {7}},
                    StreamCase{"UdpMixedSizes", "udp://127.0.0.1:0", "127.0.0.1", {7, 3, 1, 40, 7, 7}},
                    StreamCase{"UdpSmall", "udp://127.0.0.1:0", "127.0.0.1", {1}},
                    StreamCase{"UdpLarge", "udp://127.0.0.1:0", "127.0.0.1", {50, 1, 50}},
                    StreamCase{"Udp6", "udp://[::1]:0", "::1", {7}},
                    StreamCase{"Rtp", "rtp://127.0.0.1:0", "127.0.0.1", {7}},
                    StreamCase{"RtpMixedSizes", "rtp://127.0.0.1:0", "127.0.0.1", {7, 5, 7, 20}}),
    [](const auto& test) { return std::string(test.param.name); });

// From the allocator's first buffers on, a stream costs no allocation, plain or in RTP, in order.
TEST(DatagramStreamCost, AllocatesNothingInSteadyState) {
    for (const char* const url : {"udp://127.0.0.1:0", "rtp://127.0.0.1:0"}) {
        Receiver receiver;
        ASSERT_EQ(receiver.init(url), keClientOk);
        std::unique_ptr<AllocationCounter> counter;
        std::atomic<std::uint64_t> allocations{~std::uint64_t{0}};
        int calls = 0;
        receiver.consumer().keeping = false;
        receiver.consumer().onData = [&] {
            if (++calls == 5) {
                counter = std::make_unique<AllocationCounter>();
            } else if (calls == 50) {
                allocations = counter->count();
            }
        };
        ASSERT_EQ(receiver.play(), keClientOk);
        const Sender sender("127.0.0.1", receiver.port());
        const Octets payload = makeTransportPackets(0, 7);
        std::uint16_t number = 0;
        EXPECT_TRUE(waitFor([&] {
            sender.send(url[0] == 'r' ? makeRtp(number++, payload) : payload);
            return allocations != ~std::uint64_t{0};
        }));
        EXPECT_EQ(allocations, 0U) << url;
        receiver.close();
    }
}

TEST(DatagramOpen, WrongAddressesGetAStatusAndOneLine) {
    for (const auto& row : readTable("unusable-addresses.txt")) {
        RecordingLogger::clear();
        Receiver receiver;
        EXPECT_EQ(std::to_string(receiver.init(row.at(0), row.at(1).empty() ? nullptr : row.at(1).c_str())),
                  row.at(2))
            << row[0];
        EXPECT_TRUE(receiver.creator.announcements.empty());
        const std::vector<LogLine> lines = RecordingLogger::takeLines();
        ASSERT_EQ(lines.size(), 1U) << row[0];
        EXPECT_EQ(lines[0].level, 4U);
        EXPECT_NE(lines[0].text.find(row.at(3)), std::string::npos) << lines[0].text;
    }
}

TEST(DatagramOpen, TakenPortIsRefusedAndFreeAgainAfterShutdown) {
    Receiver first;
    ASSERT_EQ(first.init("udp://127.0.0.1:0"), keClientOk);
    const std::string url = "udp://127.0.0.1:" + std::to_string(first.port());
    EXPECT_EQ(Receiver().init(url), keClientConnectionFailed);
    first.close();
    EXPECT_EQ(Receiver().init(url), keClientOk);
}

TEST(DatagramOpen, InterfaceOfAnyAddressIsBoundTo) {
    for (const char* const networkInterface : {"lo", "127.0.0.1"}) {
        Receiver receiver;
        ASSERT_EQ(receiver.init("udp://:0", networkInterface), keClientOk);
        ASSERT_EQ(receiver.play(), keClientOk);
        ASSERT_TRUE(Sender("127.0.0.1", receiver.port()).send(makeTransportPackets(0, 7)));
        EXPECT_TRUE(waitFor([&] { return receiver.consumer().size() == 1316; }));
    }
}

// A unicast sender's data is kept from Init on; once the socket buffer has overflowed, delivery begins with
// what comes after Play, without the gap.
TEST(DatagramOpen, WhatCameBeforePlay) {
    for (const bool overflows : {false, true}) {
        Receiver receiver;
        ASSERT_EQ(receiver.init("udp://127.0.0.1:0"), keClientOk);
        const Sender sender("127.0.0.1", receiver.port());
        Octets expected;
        for (std::size_t number = 0; number < 40; ++number) {
            const Octets datagram = makeTransportPackets(number * 7, 7);
            append(expected, datagram);
            for (int times = 0; times < (overflows ? 150 : 1); ++times) {
                ASSERT_TRUE(sender.send(datagram));
            }
        }
        ASSERT_EQ(receiver.play(), keClientOk);
        if (overflows) {
            expected = makeTransportPackets(1000, 7);
            ASSERT_TRUE(sender.send(expected));
        }
        EXPECT_TRUE(waitFor([&] { return receiver.consumer().size() == expected.size(); }));
        EXPECT_EQ(receiver.consumer().data(), expected);
        EXPECT_EQ(receiver.consumer().buffers(), 1U) << "many packets a buffer";
    }
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
    Octets sent;
    for (std::size_t number = 0; number < 50; ++number) {
        const Octets datagram = makeTransportPackets(number * 7, 7);
        if (!sender.send(datagram)) {
            GTEST_SKIP() << "this machine sends no multicast over " << networkInterface;
        }
        Sender(isV6 ? "::1" : "127.0.0.1", port).send(makeTransportPackets(number, 1));
        append(sent, datagram);
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
    if (!Sender("232.77.7.7", receiver.port(), "lo", "127.0.0.3").send(makeTransportPackets(0, 3))) {
        GTEST_SKIP() << "this machine sends no multicast over its loopback interface";
    }
    const Octets datagram = makeTransportPackets(0, 7);
    ASSERT_TRUE(Sender("232.77.7.7", receiver.port(), "lo", "127.0.0.2").send(datagram));
    EXPECT_TRUE(waitFor([&] { return receiver.consumer().size() >= datagram.size(); }));
    EXPECT_EQ(receiver.consumer().data(), datagram);
}

} // namespace
