#include "AdtsHeader.h"

#include <algorithm>
#include <iterator>

namespace KorvelVideo::Host {

namespace {

constexpr std::uint32_t objectTypeSbr = 5;
constexpr std::uint32_t objectTypePs = 29;
constexpr std::uint32_t frequencyIndexEscape = 15;

// ISO/IEC 14496-3, table 1.18.
constexpr std::uint32_t samplingFrequencies[] = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                                 22050, 16000, 12000, 11025, 8000,  7350};

// Reads bits, most significant first; past the end it gives zeros and remembers it.
class Bits {
public:
    explicit Bits(std::span<const std::uint8_t> bytes) : m_bytes(bytes) {}

    std::uint32_t read(unsigned count) noexcept {
        std::uint32_t value = 0;
        for (; count > 0; --count, ++m_position) {
            const std::size_t index = m_position / 8;
            m_isPastEnd = m_isPastEnd || index >= m_bytes.size();
            const unsigned byte = index < m_bytes.size() ? m_bytes[index] : 0U;
            value = (value << 1U) | ((byte >> (7 - m_position % 8)) & 1U);
        }
        return value;
    }
    [[nodiscard]] bool isPastEnd() const noexcept { return m_isPastEnd; }

private:
    std::span<const std::uint8_t> m_bytes;
    std::size_t m_position = 0;
    bool m_isPastEnd = false;
};

// GetAudioObjectType, ISO/IEC 14496-3, 1.6.2.1.
std::uint32_t readObjectType(Bits& bits) noexcept {
    const std::uint32_t type = bits.read(5);
    return type == 31 ? 32 + bits.read(6) : type;
}

// The index of a sampling frequency, written as an index or in full; the escape value when it has none.
std::uint32_t readFrequencyIndex(Bits& bits) noexcept {
    const std::uint32_t index = bits.read(4);
    if (index != frequencyIndexEscape) {
        return index;
    }
    const std::uint32_t frequency = bits.read(24);
    const auto* found = std::find(std::begin(samplingFrequencies), std::end(samplingFrequencies), frequency);
    return found != std::end(samplingFrequencies)
               ? static_cast<std::uint32_t>(found - std::begin(samplingFrequencies))
               : frequencyIndexEscape;
}

} // namespace

std::variant<AdtsHeader, std::string>
AdtsHeader::fromConfiguration(std::span<const std::uint8_t> audioSpecificConfig) {
    if (audioSpecificConfig.empty()) {
        return "the stream came without its codec configuration";
    }
    Bits bits(audioSpecificConfig);
    std::uint32_t objectType = readObjectType(bits);
    const std::uint32_t frequencyIndex = readFrequencyIndex(bits);
    const std::uint32_t channels = bits.read(4);
    if (objectType == objectTypeSbr || objectType == objectTypePs) {
        readFrequencyIndex(bits); // of the extension
        objectType = readObjectType(bits);
    }
    const bool hasShortFrames = bits.read(1) != 0; // frameLengthFlag: 960 samples
    if (bits.isPastEnd()) {
        return "the codec configuration is cut";
    }
    if (objectType < 1 || objectType > 4) {
        return "audio object type " + std::to_string(objectType) + " does not fit into an .aac file";
    }
    if (frequencyIndex >= std::size(samplingFrequencies)) {
        return "the sampling frequency does not fit into an .aac file";
    }
    if (channels < 1 || channels > 7) {
        return "channel configuration " + std::to_string(channels) + " does not fit into an .aac file";
    }
    if (hasShortFrames) {
        return "frames of 960 samples do not fit into an .aac file";
    }
    return AdtsHeader(objectType, frequencyIndex, channels);
}

// syncword 12 bits, ID 1 (0: MPEG-4), layer 2, protection_absent 1, profile_ObjectType 2,
// sampling_frequency_index 4, private_bit 1, channel_configuration 3, original_copy 1, home 1,
// copyright_identification_bit 1, copyright_identification_start 1, aac_frame_length 13,
// adts_buffer_fullness 11 (all ones: variable rate), number_of_raw_data_blocks_in_frame 2 (0: one).
std::optional<std::array<std::uint8_t, AdtsHeader::size>>
AdtsHeader::frame(std::size_t payloadSize) const noexcept {
    if (payloadSize > largestPayload) {
        return std::nullopt;
    }
    const auto length = static_cast<std::uint32_t>(payloadSize + size);
    const auto byte = [](std::uint32_t value) { return static_cast<std::uint8_t>(value & 0xFFU); };
    return std::array<std::uint8_t, size>{
        0xFF,
        0xF1,
        byte(m_profile << 6U | m_samplingFrequencyIndex << 2U | m_channelConfiguration >> 2U),
        byte((m_channelConfiguration & 3U) << 6U | length >> 11U),
        byte(length >> 3U),
        byte((length & 7U) << 5U | 0x1FU),
        0xFC};
}

} // namespace KorvelVideo::Host
