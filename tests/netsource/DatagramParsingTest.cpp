// What addresses and packets mean, in tables; fuzz/ has what no input may do.

#include <gtest/gtest.h>

#include "ClientTestSupport.h"
#include "ContinuityCheck.h"
#include "DatagramAddress.h"
#include "RtpPacket.h"
#include "RtpReorderBuffer.h"

namespace {

using namespace ClientTest;

TEST(DatagramAddress, IsParsedOrRefusedWithOneReason) {
    for (const auto& row : readTable("datagram-addresses.txt")) {
        DatagramAddress address;
        std::string found = parseDatagramAddress(row.at(0), address);
        if (found.empty()) {
            found = (address.framing == DatagramAddress::Framing::rtp ? "rtp source=" : "udp source=") +
                    address.source + " address=" + address.address + " port=" + std::to_string(address.port);
        }
        EXPECT_EQ(found, row.at(1));
    }
}

TEST(ContinuityCheck, CountsErrors) {
    for (const auto& row : readTable("continuity.txt")) {
        Octets packets;
        for (const std::string& beginning : split(row.at(1), ' ')) {
            append(packets, fromHex(beginning));
            packets.resize((packets.size() + 187) / 188 * 188, 0xFF);
        }
        packets.resize(packets.size() + 187, 0x48); // a cut packet is none
        EXPECT_EQ(std::to_string(ContinuityCheck().check(packets)), row.at(2)) << row[0];
    }
}

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

// Each packet bears its number for payload; what comes out is written down.
TEST(RtpReorderBuffer, RestoresOrderAndCounts) {
    for (const auto& row : readTable("rtp-order.txt")) {
        SourceCounters counters;
        RtpReorderBuffer buffer(counters);
        RtpReorderBuffer::TimePoint now{std::chrono::hours(1)};
        std::string emitted;
        const RtpReorderBuffer::Emit emit = [&](std::span<const std::uint8_t> payload) {
            emitted += (emitted.empty() ? "" : " ") + std::to_string(payload[0] << 8 | payload[1]);
        };
        for (const std::string& step : split(row.at(1), ' ')) {
            if (step[0] == '+') {
                now += std::chrono::milliseconds(std::stoi(step));
                buffer.expire(now, emit);
                continue;
            }
            const int number = std::stoi(step.substr(step[0] == 's' || step[0] == 'l' ? 1 : 0));
            Octets payload{static_cast<std::uint8_t>(number >> 8), static_cast<std::uint8_t>(number)};
            payload.resize(step[0] == 'l' ? 60'000 : 2);
            RtpPacket packet;
            packet.sequenceNumber = static_cast<std::uint16_t>(number);
            packet.synchronisationSource = step[0] == 's' ? 2 : 1;
            packet.payload = payload;
            if (buffer.acceptNext(packet.sequenceNumber, packet.synchronisationSource)) {
                emit(payload);
            } else {
                buffer.push(packet, now, emit);
            }
        }
        EXPECT_EQ(emitted, row.at(2)) << row[0];
        EXPECT_EQ(std::to_string(counters.rtpLost) + " " + std::to_string(counters.rtpReordered) + " " +
                      std::to_string(counters.rtpDuplicates),
                  row.at(3))
            << row[0];
    }
}

} // namespace
