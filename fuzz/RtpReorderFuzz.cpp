// RTP reception: any sequence of packets, malformed ones among them, with time passing in between. What comes
// out is what went in, each packet at most once, and nothing is held longer than the bounds allow.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

#include "Require.h"
#include "RtpPacket.h"
#include "RtpReorderBuffer.h"

using namespace KorvelVideo::NetworkSource;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    SourceCounters counters;
    RtpReorderBuffer buffer(counters);
    RtpReorderBuffer::TimePoint now{};
    std::map<std::string, int> pushed; // payloads that may still come out
    std::size_t inside = 0;
    const RtpReorderBuffer::Emit emit = [&](std::span<const std::uint8_t> payload) {
        int& count = pushed[std::string(payload.begin(), payload.end())];
        KV_REQUIRE(count > 0);
        --count;
        --inside;
    };
    // A packet is one byte of milliseconds that pass, one of length, and its bytes.
    while (size >= 2) {
        now += std::chrono::milliseconds(data[0] & 0x3F);
        buffer.expire(now, emit);
        const std::size_t length = std::min<std::size_t>(data[1], size - 2);
        const std::span<const std::uint8_t> bytes(data + 2, length);
        data += 2 + length;
        size -= 2 + length;
        if (length < kRtpFixedHeaderSize) {
            continue;
        }
        const auto packet =
            parseRtpPacket(bytes.first<kRtpFixedHeaderSize>(), bytes.subspan(kRtpFixedHeaderSize));
        if (!packet) {
            continue;
        }
        KV_REQUIRE(packet->payload.empty() ||
                   (packet->payload.data() >= bytes.data() + kRtpFixedHeaderSize &&
                    packet->payload.data() + packet->payload.size() <= bytes.data() + bytes.size()));
        if (buffer.acceptNext(packet->sequenceNumber, packet->synchronisationSource)) {
            continue;
        }
        ++pushed[std::string(packet->payload.begin(), packet->payload.end())];
        ++inside;
        const std::uint64_t duplicates = counters.rtpDuplicates;
        buffer.push(*packet, now, emit);
        inside -= counters.rtpDuplicates - duplicates;
        KV_REQUIRE(inside < RtpReorderBuffer::kMaxPackets);
    }
    buffer.expire(now + RtpReorderBuffer::kMaxDelay, emit);
    KV_REQUIRE(inside == 0);
    return 0;
}
