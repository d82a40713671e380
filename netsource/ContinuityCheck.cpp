#include "ContinuityCheck.h"

namespace KorvelVideo::NetworkSource {

namespace {

constexpr std::uint8_t kSyncByte = 0x47;
constexpr std::uint32_t kNullPacketIdentifier = 0x1FFF;
constexpr std::uint8_t kSeen = 0x80;
constexpr std::uint8_t kRepeated = 0x01;

bool announcesDiscontinuity(const std::uint8_t* packet) noexcept {
    const bool hasAdaptationField = (packet[3] & 0x20) != 0 && packet[4] != 0;
    return hasAdaptationField && (packet[5] & 0x80) != 0;
}

} // namespace

std::uint64_t ContinuityCheck::check(std::span<const std::uint8_t> data) noexcept {
    std::uint64_t errors = 0;
    const std::uint8_t* packet = data.data();
    for (std::size_t left = data.size() / kTransportPacketSize; left != 0;
         --left, packet += kTransportPacketSize) {
        if (packet[0] != kSyncByte || (packet[1] & 0x80) != 0) {
            ++errors;
            continue;
        }
        const std::uint32_t identifier = (packet[1] & 0x1FU) << 8 | packet[2];
        if (identifier == kNullPacketIdentifier) {
            continue;
        }
        const auto counter = static_cast<std::uint8_t>(packet[3] & 0x0F);
        const bool hasPayload = (packet[3] & 0x10) != 0;
        std::uint8_t& state = m_last[identifier];
        const auto last = static_cast<std::uint8_t>(state >> 1 & 0x0F);
        std::uint8_t repeated = 0;
        if (state != 0 && counter != ((last + hasPayload) & 0x0F)) {
            // A packet with payload may be sent twice in a row, with the same counter.
            if (hasPayload && counter == last && (state & kRepeated) == 0) {
                repeated = kRepeated;
            } else if (!announcesDiscontinuity(packet)) {
                ++errors;
            }
        }
        state = static_cast<std::uint8_t>(kSeen | counter << 1 | repeated);
    }
    return errors;
}

} // namespace KorvelVideo::NetworkSource
