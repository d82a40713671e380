#include <numeric>
#include <ostream>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "ClientTestSupport.h"
#include "RtpPacket.h"
#include "RtpReorderBuffer.h"

namespace {

using namespace KorvelVideo::NetworkSource;
using ClientTest::Bytes;
using std::chrono::milliseconds;

// ---- one packet ----

struct PacketRow {
    const char* name;
    Bytes header; // 12 bytes
    Bytes body;
    const char* expected; // payload type, sequence number, source, payload; or nothing
};

std::string describe(const std::optional<RtpPacket>& packet) {
    if (!packet) {
        return "malformed";
    }
    std::string text = "type " + std::to_string(packet->payloadType) + " number " +
                       std::to_string(packet->sequenceNumber) + " source " +
                       std::to_string(packet->synchronisationSource) + ":";
    for (const std::uint8_t byte : packet->payload) {
        text += " " + std::to_string(byte);
    }
    return text;
}

Bytes header(std::uint8_t first, std::uint8_t second = 33) {
    return {first, second, 0x12, 0x34, 1, 2, 3, 4, 0xFF, 0, 0, 2};
}

TEST(RtpPacket, Unpacks) {
    const PacketRow rows[] = {
        {"plain", header(0x80), {1, 2, 3}, "type 33 number 4660 source 4278190082: 1 2 3"},
        {"marker", header(0x80, 0x80 | 33), {1}, "type 33 number 4660 source 4278190082: 1"},
        {"other type", header(0x80, 96), {1}, "type 96 number 4660 source 4278190082: 1"},
        {"empty payload", header(0x80), {}, "type 33 number 4660 source 4278190082:"},
        {"two contributing sources",
         header(0x82),
         {9, 9, 9, 9, 8, 8, 8, 8, 1, 2},
         "type 33 number 4660 source 4278190082: 1 2"},
        {"extension of one word",
         header(0x90),
         {0xBE, 0xDE, 0, 1, 7, 7, 7, 7, 1, 2},
         "type 33 number 4660 source 4278190082: 1 2"},
        {"empty extension", header(0x90), {0xBE, 0xDE, 0, 0, 1}, "type 33 number 4660 source 4278190082: 1"},
        {"padding", header(0xA0), {1, 2, 0, 0, 3}, "type 33 number 4660 source 4278190082: 1 2"},
        {"padding only", header(0xA0), {0, 2}, "type 33 number 4660 source 4278190082:"},
        {"all of them",
         header(0xB1),
         {9, 9, 9, 9, 0, 0, 0, 1, 7, 7, 7, 7, 1, 2, 1},
         "type 33 number 4660 source 4278190082: 1 2"},
        {"version 1", header(0x40), {1}, "malformed"},
        {"transport stream packet", header(0x47), {1}, "malformed"},
        {"contributing source cut", header(0x81), {9, 9, 9}, "malformed"},
        {"extension header cut", header(0x90), {0xBE, 0xDE, 0}, "malformed"},
        {"extension longer than the packet", header(0x90), {0xBE, 0xDE, 0xFF, 0xFF, 1, 2, 3, 4}, "malformed"},
        {"padding of 0", header(0xA0), {1, 0}, "malformed"},
        {"padding longer than the packet", header(0xA0), {1, 3}, "malformed"},
        {"padding of an empty packet", header(0xA0), {}, "malformed"},
        {"padding into the extension", header(0xB0), {0, 0, 0, 1, 7, 7, 7, 7, 2}, "malformed"},
    };
    for (const PacketRow& row : rows) {
        const std::span<const std::uint8_t, 12> fixedHeader(row.header.data(), 12);
        EXPECT_EQ(describe(parseRtpPacket(fixedHeader, row.body)), row.expected) << row.name;
    }
}

// ---- order ----

// A step is a sequence number that arrives, "s" and a number from another source, "+" and milliseconds that
// pass, or "r" for a reset. What is emitted is written as the numbers that came out.
struct OrderRow {
    const char* name;
    const char* steps;
    const char* expected;
    int lost;
    int reordered;
    int duplicates;
};

class Order {
public:
    void run(const std::string& steps) {
        std::istringstream stream(steps);
        for (std::string step; stream >> step;) {
            if (step[0] == '+') {
                m_now += milliseconds(std::stoi(step));
                m_buffer.expire(m_now, m_emit);
            } else if (step[0] == 'r') {
                m_buffer.reset();
            } else if (step[0] == 's') {
                arrive(std::stoi(step.substr(1)), 2);
            } else {
                arrive(std::stoi(step), 1);
            }
        }
    }
    void arrive(int number, std::uint32_t source) {
        const Bytes payload{static_cast<std::uint8_t>(number >> 8), static_cast<std::uint8_t>(number)};
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
    const OrderRow rows[] = {
        {"in order", "1 2 3", "1 2 3", 0, 0, 0},
        {"wrap", "65534 65535 0 1", "65534 65535 0 1", 0, 0, 0},
        {"swap", "1 3 2 4", "1 2 3 4", 0, 1, 0},
        {"swap at the wrap", "65534 0 65535 1", "65534 65535 0 1", 0, 1, 0},
        {"reversed", "1 5 4 3 2 6", "1 2 3 4 5 6", 0, 3, 0},
        {"waits for the missing one", "1 3 4 +49", "1", 0, 0, 0},
        {"gives up after the delay", "1 3 4 +50", "1 3 4", 1, 0, 0},
        {"delay counts from arrival", "1 3 +30 5 +20", "1 3", 1, 0, 0},
        {"each gap has its own delay", "1 3 +30 5 +30 +20", "1 3 5", 2, 0, 0},
        {"too late", "1 3 +50 2 4", "1 3 4", 1, 0, 1},
        {"twice", "1 2 2 3 1", "1 2 3", 0, 0, 2},
        {"twice while waiting", "1 3 3 2", "1 2 3", 0, 1, 1},
        {"gap within the window", "1 2 128 +50", "1 2 128", 125, 0, 0},
        {"gap beyond the window", "1 2 131 132", "1 2 131 132", 128, 0, 0},
        {"window moves on", "1 3 130 2", "1 3", 1, 0, 1},
        {"window moves on and the last wait", "1 3 130 +50", "1 3 130", 127, 0, 0},
        {"large loss", "1 2 3000 3001", "1 2 3000 3001", 2997, 0, 0},
        {"one stray packet far away", "1 2 40000 3 4", "1 2 3 4", 0, 0, 1},
        {"two strays that do not follow", "1 2 40000 50000 3", "1 2 3", 0, 0, 2},
        {"sender begins anew, forward", "1 2 40000 40001 40002", "1 2 40001 40002", 0, 0, 1},
        {"sender begins anew, backward", "30000 30001 5 6 7", "30000 30001 6 7", 0, 0, 1},
        {"another source begins anew", "1 2 s900 s901", "1 2 900 901", 0, 0, 0},
        {"another source flushes what waits", "1 3 4 s900", "1 3 4 900", 1, 0, 0},
        {"reset forgets what waits", "1 3 r 7 8", "1 7 8", 0, 0, 0},
    };
    for (const OrderRow& row : rows) {
        Order order;
        order.run(row.steps);
        EXPECT_EQ(order.emitted, row.expected) << row.name;
        EXPECT_EQ(order.counters.rtpLost, static_cast<std::uint64_t>(row.lost)) << row.name;
        EXPECT_EQ(order.counters.rtpReordered, static_cast<std::uint64_t>(row.reordered)) << row.name;
        EXPECT_EQ(order.counters.rtpDuplicates, static_cast<std::uint64_t>(row.duplicates)) << row.name;
    }
}

// Every order in which a block of packets can reach the far end within the window comes out as it went in.
TEST(RtpReorderBuffer, AnyShuffleWithinTheWindow) {
    std::uint32_t random = 1;
    for (int round = 0; round < 200; ++round) {
        Order order;
        std::string expected = "65500";
        order.arrive(65500, 1);
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
    const Bytes payload(60000);
    RtpPacket packet;
    packet.payload = payload;
    for (std::uint16_t number = 0; number < 100;
         number = static_cast<std::uint16_t>(number + (number == 0 ? 2 : 1))) {
        packet.sequenceNumber = number;
        buffer.push(packet, {}, emit);
    }
    // One megabyte holds 17 of them; with the 18th the gap is given up.
    EXPECT_EQ(emitted, 99U);
    EXPECT_EQ(counters.rtpLost, 1U);
}

} // namespace
