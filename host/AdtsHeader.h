#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <variant>

namespace KorvelVideo::Host {

// The header that makes a raw AAC access unit a frame of an .aac file (ADTS, ISO/IEC 14496-3, 1.A.2.2.1),
// 7 bytes without CRC.
class AdtsHeader {
public:
    static constexpr std::size_t size = 7;
    // aac_frame_length has 13 bits and counts the header.
    static constexpr std::size_t largestPayload = 0x1FFF - size;

    // Reads an AudioSpecificConfig (ISO/IEC 14496-3, 1.6.2.1); a text says what ADTS cannot express. SBR and
    // PS that are signalled explicitly give the header of the AAC core below them.
    [[nodiscard]] static std::variant<AdtsHeader, std::string>
    fromConfiguration(std::span<const std::uint8_t> audioSpecificConfig);

    // The header of one access unit; none when it is larger than a frame can be.
    [[nodiscard]] std::optional<std::array<std::uint8_t, size>> frame(std::size_t payloadSize) const noexcept;

private:
    AdtsHeader(std::uint32_t objectType, std::uint32_t samplingFrequencyIndex,
               std::uint32_t channelConfiguration) noexcept
        : m_profile(objectType - 1), m_samplingFrequencyIndex(samplingFrequencyIndex),
          m_channelConfiguration(channelConfiguration) {}

    std::uint32_t m_profile; // profile_ObjectType: the audio object type less 1
    std::uint32_t m_samplingFrequencyIndex;
    std::uint32_t m_channelConfiguration;
};

} // namespace KorvelVideo::Host
