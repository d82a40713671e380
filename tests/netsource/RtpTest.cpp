#include <numeric>

#include <gtest/gtest.h>

#include "ClientTestSupport.h"
#include "RtpPacket.h"
#include "RtpReorderBuffer.h"

namespace {

using namespace ClientTest;

TEST(RtpPacket, IsUnpackedOrMalformed) {
    for (const auto& row : readTable("rtp-packets.txt")) {
        const Octets header = fromHex(row.at(1) + "123401020304ff000002");
        const Octets body = fromHex(row.at(2));
        const auto packet = parseRtpPacket(std::span(header).first<kRtpFixedHeaderSize>(), body);
        ASSERT_EQ(packet.has_value(), row.at(3) != "-") << row[0];
        if (packet) {
            EXPECT_EQ(packet->sequenceNumber, 0x1234);
            EXPECT_EQ(packet->synchronisationSource, 0xFF000002U);
            EXPECT_EQ(std::to_string(packet->payloadType), row[3].substr(0, 2)) << row[0];
            EXPECT_EQ(Octets(packet->payload.begin(), packet->payload.end()), fromHex(row[3].substr(3)))
                << row[0];
        }
    }
}

// Lets packets arrive, each with its number for payload, and writes down the numbers that come out.
class Order {
public:
    // A step as in rtp-order.txt.
    void run(const std::string& step) {
        if (step[0] == '+') {
            m_now += std::chrono::milliseconds(std::stoi(step));
            m_buffer.expire(m_now, m_emit);
        } else if (step[0] == 'r') {
            m_buffer.reset();
        } else {
            arrive(std::stoi(step[0] == 's' ? step.substr(1) : step), step[0] == 's' ? 2 : 1);
        }
    }
    void arrive(int number, std::uint32_t source) {
        const Octets payload{static_cast<std::uint8_t>(number >> 8), static_cast<std::uint8_t>(number)};
        RtpPacket packet;
        packet.sequenceNumber = static_cast<std::uint16_t>(number);
        packet.synchronisationSource = source;
        packet.payload = payload;
        if (m_buffer.acceptNext(packet.sequenceNumber, source)) {
            m_emit(payload);
        } else {
            m_buffer.push(packet, m_now, m_emit);
        }
    }

    std::string emitted;
    SourceCounters counters;

private:
    const RtpReorderBuffer::Emit m_emit = [this](std::span<const std::uint8_t> payload) {
        emitted += (emitted.empty() ? "" : " ") + std::to_string(payload[0] << 8 | payload[1]);
    };
    RtpReorderBuffer m_buffer{counters};
    RtpReorderBuffer::TimePoint m_now{std::chrono::hours(1)};
};

TEST(RtpReorderBuffer, RestoresOrderAndCounts) {
    for (const auto& row : readTable("rtp-order.txt")) {
        Order order;
        for (const std::string& step : split(row.at(1), ' ')) {
            order.run(step);
        }
        const SourceCounters& counters = order.counters;
        EXPECT_EQ(order.emitted, row.at(2)) << row[0];
        EXPECT_EQ(std::to_string(counters.rtpLost) + " " + std::to_string(counters.rtpReordered) + " " +
                      std::to_string(counters.rtpDuplicates),
                  row.at(3))
            << row[0];
    }
}

// Every order in which a block of packets can reach the far end within the window comes out as it went in.
TEST(RtpReorderBuffer, AnyShuffleWithinTheWindow) {
    std::uint32_t random = 1;
    for (int round = 0; round < 200; ++round) {
        Order order;
        order.arrive(65500, 1);
        std::string expected = "65500";
        std::vector<int> numbers(127);
        std::iota(numbers.begin(), numbers.end(), 65501);
        for (const int number : numbers) {
            expected += " " + std::to_string(number & 0xFFFF);
        }
        for (std::size_t index = numbers.size() - 1; index > 0; --index) {
            random = random * 1664525 + 1013904223;
            std::swap(numbers[index], numbers[(random >> 8) % (index + 1)]);
        }
        for (const int number : numbers) {
            order.arrive(number & 0xFFFF, 1);
        }
        ASSERT_EQ(order.emitted, expected) << round;
        ASSERT_EQ(order.counters.rtpLost + order.counters.rtpDuplicates, 0U);
    }
}

TEST(RtpReorderBuffer, HoldsBoundedBytes) {
    SourceCounters counters;
    RtpReorderBuffer buffer(counters);
    std::size_t emitted = 0;
    const RtpReorderBuffer::Emit emit = [&emitted](std::span<const std::uint8_t>) { ++emitted; };
    const Octets payload(60000);
    RtpPacket packet;
    packet.payload = payload;
    for (const int number : {0, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19}) {
        packet.sequenceNumber = static_cast<std::uint16_t>(number);
        buffer.push(packet, {}, emit);
        EXPECT_EQ(emitted, number < 19 ? 1U : 19U)
            << "one megabyte holds 2 to 18; with 19 the gap is given up";
    }
    EXPECT_EQ(counters.rtpLost, 1U);
}

} // namespace
