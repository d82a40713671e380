#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace KorvelVideo::NetworkSource {

inline constexpr std::size_t kRtpFixedHeaderSize = 12;
inline constexpr std::uint8_t kRtpPayloadTypeTransportStream = 33;

// The fields of an RTP packet that reception uses (RFC 3550, 5.1).
struct RtpPacket {
    std::uint8_t payloadType = 0;
    std::uint16_t sequenceNumber = 0;
    std::uint32_t synchronisationSource = 0;
    std::span<const std::uint8_t> payload; // inside `body`
};

// Reads one packet, given as its fixed header and what follows it (contributing sources, header extension,
// payload, padding). Empty when the packet is malformed or no RTP of version 2.
[[nodiscard]] std::optional<RtpPacket>
parseRtpPacket(std::span<const std::uint8_t, kRtpFixedHeaderSize> fixedHeader,
               std::span<const std::uint8_t> body) noexcept;

} // namespace KorvelVideo::NetworkSource
