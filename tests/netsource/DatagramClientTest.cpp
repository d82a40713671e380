// Datagram sources end to end: from real sockets on loopback through the entry points to a consumer.

#include <gtest/gtest.h>

#include "AllocationCounter.h"
#include "ClientTestSupport.h"

namespace {

using namespace ClientTest;
using namespace MainConcept::NetworkStreaming;

struct StreamCase {
    const char* name;
    const char* url;
    const char* sendTo;
    bool rtp;
    std::vector<std::size_t> packetsPerDatagram; // repeated
};

std::ostream& operator<<(std::ostream& stream, const StreamCase& value) { return stream << value.name; }

class DatagramStream : public testing::TestWithParam<StreamCase> {};

TEST_P(DatagramStream, ArrivesByteForByte) {
    const StreamCase& row = GetParam();
    Receiver receiver;
    ASSERT_EQ(receiver.init(row.url), keClientOk);
    ASSERT_EQ(receiver.creator.announcements,
              (std::vector<RecordingCreator::Announcement>{{keStreamTypeTransportStream, keMediaVideo, {}}}));
    ASSERT_EQ(receiver.play(), keClientOk);

    const Sender sender(row.sendTo, receiver.port());
    Bytes sent;
    std::size_t packet = 0;
    for (std::uint16_t number = 0; number < 1200; ++number) {
        const std::size_t count = row.packetsPerDatagram[number % row.packetsPerDatagram.size()];
        const Bytes payload = makeTransportPackets(packet, count);
        packet += count;
        sent.insert(sent.end(), payload.begin(), payload.end());
        ASSERT_TRUE(
            sender.send(row.rtp ? makeRtp(static_cast<std::uint16_t>(65000 + number), payload) : payload));
        ASSERT_TRUE(number % 400 != 399 || waitFor([&] { return receiver.consumer().size() == sent.size(); }))
            << receiver.consumer().size() << " of " << sent.size();
    }
    EXPECT_TRUE(waitFor([&] { return receiver.consumer().size() == sent.size(); }));
    EXPECT_EQ(receiver.consumer().data(), sent);

    const auto counters = receiver.counters();
    EXPECT_EQ(counters.packets, 1200U);
    EXPECT_EQ(counters.continuityErrors + counters.kernelDrops + counters.damaged + counters.unbufferedBytes +
                  counters.rtpLost + counters.rtpDuplicates + counters.rtpReordered,
              0U);
    ASSERT_EQ(counters.streamCount, 1U);
    EXPECT_EQ(counters.streams[0].bytes, sent.size());
    EXPECT_EQ(counters.streams[0].streamType, 33U);
    EXPECT_LT(counters.streams[0].buffers, 1200U / 2) << "many packets a buffer";
    EXPECT_LT(counters.streams[0].nanosecondsSinceData, 10'000'000'000U);

    EXPECT_EQ(receiver.stop(), keClientOk);
    EXPECT_EQ(receiver.consumer().lent(), 0);
    EXPECT_EQ(receiver.consumer().notifications().front(), keNotifyActivity);
    const auto timeStamps = receiver.consumer().timeStamps();
    EXPECT_TRUE(std::is_sorted(timeStamps.begin(), timeStamps.end()));
}

INSTANTIATE_TEST_SUITE_P(
    Streams, DatagramStream,
    testing::Values(StreamCase{"Udp", "udp://127.0.0.1:0", "127.0.0.1", false, {7}},
                    StreamCase{"UdpAnyAddress", "udp://@:0", "127.0.0.1", false, {7}},
                    StreamCase{"UdpMixedSizes", "udp://127.0.0.1:0", "127.0.0.1", false, {7, 3, 1, 40, 7, 7}},
                    StreamCase{"UdpSmall", "udp://127.0.0.1:0", "127.0.0.1", false, {1}},
                    StreamCase{"UdpLarge", "udp://127.0.0.1:0", "127.0.0.1", false, {50, 1, 50}},
                    StreamCase{"Udp6", "udp://[::1]:0", "::1", false, {7}},
                    StreamCase{"Rtp", "rtp://127.0.0.1:0", "127.0.0.1", true, {7}},
                    StreamCase{"RtpMixedSizes", "rtp://127.0.0.1:0", "127.0.0.1", true, {7, 5, 7, 20}},
                    StreamCase{"Rtp6", "rtp://[::1]:0", "::1", true, {7}}),
    [](const auto& row) { return std::string(row.param.name); });

// From the allocator's first buffers on, a stream costs no allocation, plain or in RTP, in order.
TEST(DatagramStreamCost, AllocatesNothingInSteadyState) {
    for (const bool rtp : {false, true}) {
        Receiver receiver;
        ASSERT_EQ(receiver.init(rtp ? "rtp://127.0.0.1:0" : "udp://127.0.0.1:0"), keClientOk);
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
        const Bytes payload = makeTransportPackets(0, 7);
        std::uint16_t number = 0;
        EXPECT_TRUE(waitFor([&] {
            sender.send(rtp ? makeRtp(number++, payload) : payload);
            return allocations != ~std::uint64_t{0};
        }));
        EXPECT_EQ(allocations, 0U);
        receiver.close();
    }
}

} // namespace
