#include "RtpPacket.h"

namespace KorvelVideo::NetworkSource {

namespace {

constexpr std::uint8_t kVersion = 2;

std::uint16_t readUint16(std::span<const std::uint8_t> bytes) noexcept {
    return static_cast<std::uint16_t>(bytes[0] << 8 | bytes[1]);
}

} // namespace

std::optional<RtpPacket> parseRtpPacket(std::span<const std::uint8_t, kRtpFixedHeaderSize> fixedHeader,
                                        std::span<const std::uint8_t> body) noexcept {
    // V(2) P(1) X(1) CC(4) | M(1) PT(7) | sequence number(16) | timestamp(32) | SSRC(32)
    const std::uint8_t first = fixedHeader[0];
    if (first >> 6 != kVersion) {
        return std::nullopt;
    }
    RtpPacket packet;
    packet.payloadType = fixedHeader[1] & 0x7F;
    packet.sequenceNumber = readUint16(fixedHeader.subspan<2, 2>());
    packet.synchronisationSource = std::uint32_t{readUint16(fixedHeader.subspan<8, 2>())} << 16 |
                                   readUint16(fixedHeader.subspan<10, 2>());

    const std::size_t sourcesSize = std::size_t{first & 0x0FU} * 4;
    if (body.size() < sourcesSize) {
        return std::nullopt;
    }
    body = body.subspan(sourcesSize);
    if ((first & 0x10) != 0) { // extension: profile(16) length in 32-bit words(16) words
        if (body.size() < 4) {
            return std::nullopt;
        }
        const std::size_t extensionSize = 4 + std::size_t{readUint16(body.subspan(2))} * 4;
        if (body.size() < extensionSize) {
            return std::nullopt;
        }
        body = body.subspan(extensionSize);
    }
    if ((first & 0x20) != 0) { // the last octet of the padding counts the padding, itself included
        if (body.empty() || body.back() == 0 || body.back() > body.size()) {
            return std::nullopt;
        }
        body = body.first(body.size() - body.back());
    }
    packet.payload = body;
    return packet;
}

} // namespace KorvelVideo::NetworkSource
