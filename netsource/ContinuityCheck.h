#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace KorvelVideo::NetworkSource {

inline constexpr std::size_t kTransportPacketSize = 188;

// Counts the errors of a transport stream's packets: jumps of a continuity counter that no discontinuity
// indicator announces, packets without sync byte, and packets that carry the transport error indicator
// (ISO/IEC 13818-1, 2.4.3.2 and 2.4.3.3). It looks at four bytes a packet. Not thread-safe.
class ContinuityCheck {
public:
    // `data` begins at a packet; the rest after the last whole packet is not looked at. Returns the errors.
    [[nodiscard]] std::uint64_t check(std::span<const std::uint8_t> data) noexcept;

    void reset() noexcept { m_last = {}; }

private:
    // Per packet identifier: 0 before the first packet, then 0x80, the last counter times 2, whether it came
    // twice.
    std::array<std::uint8_t, 8192> m_last{};
};

} // namespace KorvelVideo::NetworkSource
