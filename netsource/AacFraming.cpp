#include "AacFraming.h"

#include <array>
#include <utility>

namespace KorvelVideo::NetworkSource {

namespace {

constexpr std::array<std::uint32_t, 13> kSamplingRates{96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                                       22050, 16000, 12000, 11025, 8000,  7350};
constexpr std::size_t kLoasHeader = 3;
constexpr std::size_t kLargestMuxElement = 0x1FFF; // audioMuxLengthBytes has 13 bits

// Most significant bit first; zeros past the end, where `past` tells.
class Bits {
public:
    explicit Bits(Bytes bytes) noexcept : m_bytes(bytes) {}

    std::uint32_t read(unsigned count) noexcept {
        std::uint32_t value = 0;
        for (unsigned i = 0; i < count; ++i, ++m_position) {
            value = value << 1 | at(m_position);
        }
        return value;
    }
    [[nodiscard]] std::uint32_t at(std::size_t position) const noexcept {
        return position / 8 < m_bytes.size() ? std::uint32_t{m_bytes[position / 8]} >> (7 - position % 8) & 1U
                                             : 0U;
    }
    [[nodiscard]] std::size_t position() const noexcept { return m_position; }
    void seek(std::size_t position) noexcept { m_position = position; }
    [[nodiscard]] bool past() const noexcept { return m_position > m_bytes.size() * 8; }

private:
    Bytes m_bytes;
    std::size_t m_position = 0;
};

// Bits back into bytes.
class BitSink {
public:
    explicit BitSink(std::vector<std::uint8_t>& bytes) noexcept : m_bytes(bytes) {}
    void put(std::uint32_t bit) {
        if (m_count % 8 == 0) {
            m_bytes.push_back(0);
        }
        m_bytes.back() = static_cast<std::uint8_t>(m_bytes.back() | bit << (7 - m_count % 8));
        ++m_count;
    }

private:
    std::vector<std::uint8_t>& m_bytes;
    std::size_t m_count = 0;
};

std::uint32_t readObjectType(Bits& bits) noexcept {
    const std::uint32_t type = bits.read(5);
    return type == 31 ? 32 + bits.read(6) : type;
}

std::uint32_t readSamplingRate(Bits& bits) noexcept {
    const std::uint32_t index = bits.read(4);
    if (index == 15) {
        return bits.read(24);
    }
    return index < kSamplingRates.size() ? kSamplingRates[index] : 0;
}

std::uint32_t channelCount(std::uint32_t configuration) noexcept {
    return configuration == 7 ? 8 : configuration < 7 ? configuration : 0;
}

// AudioSpecificConfig up to the end of GASpecificConfig (4.4.1) of an AAC object type; empty for others. A
// program_config_element is not read, so with one the end is unknown: empty too when it is to be `measured`.
std::optional<AacFormat> readConfig(Bits& bits, bool measured) noexcept {
    AacFormat format;
    std::uint32_t objectType = readObjectType(bits);
    format.coreRate = readSamplingRate(bits);
    format.samplingRate = format.coreRate;
    const std::uint32_t channelConfiguration = bits.read(4);
    format.channels = channelCount(channelConfiguration);
    constexpr std::uint32_t kSpectralBandReplication = 5;
    constexpr std::uint32_t kParametricStereo = 29;
    if (objectType == kSpectralBandReplication || objectType == kParametricStereo) {
        if (objectType == kParametricStereo && format.channels == 1) {
            format.channels = 2;
        }
        format.samplingRate = readSamplingRate(bits);
        objectType = readObjectType(bits);
    }
    constexpr std::uint32_t kLongTermPrediction = 4;
    if (objectType == 0 || objectType > kLongTermPrediction) {
        return std::nullopt;
    }
    const bool shortFrames = bits.read(1) != 0; // frameLengthFlag
    format.frameSamples = shortFrames ? 960 : 1024;
    if (bits.read(1) != 0) { // dependsOnCoreCoder
        bits.read(14);
    }
    bits.read(1); // extensionFlag, nothing follows it for these object types
    if (bits.past() || format.coreRate == 0 || (measured && channelConfiguration == 0)) {
        return std::nullopt;
    }
    return format;
}

// LatmGetValue (1.7.3).
std::uint32_t readLatmValue(Bits& bits) noexcept {
    const std::uint32_t bytes = bits.read(2) + 1;
    return bits.read(bytes * 8);
}

void skipOtherData(Bits& bits, bool version1) noexcept {
    if (version1) {
        readLatmValue(bits);
        return;
    }
    bool more = true;
    while (more && !bits.past()) {
        more = bits.read(1) != 0; // otherDataLenEsc
        bits.read(8);
    }
}

// StreamMuxConfig (1.7.3) of one program with one layer, which is what senders make. Leaves `bits` behind
// it and returns the bits of its AudioSpecificConfig as (position, count); count 0 when it is another kind.
std::pair<std::size_t, std::size_t> readStreamMuxConfig(Bits& bits) noexcept {
    constexpr std::pair<std::size_t, std::size_t> kNone{0, 0};
    const bool version1 = bits.read(1) != 0;
    if (version1 && bits.read(1) != 0) { // audioMuxVersionA
        return kNone;
    }
    if (version1) {
        readLatmValue(bits); // taraBufferFullness
    }
    bits.read(1);                                 // allStreamsSameTimeFraming
    bits.read(6);                                 // numSubFrames
    if (bits.read(4) != 0 || bits.read(3) != 0) { // numProgram, numLayer
        return kNone;
    }
    const std::size_t given = version1 ? readLatmValue(bits) : 0;
    const std::size_t start = bits.position();
    if (!readConfig(bits, !version1)) {
        return kNone;
    }
    if (version1) {
        if (given > kLargestMuxElement * 8 || start + given < bits.position()) {
            return kNone;
        }
        bits.seek(start + given);
    }
    const std::size_t count = bits.position() - start;
    switch (bits.read(3)) { // frameLengthType
    case 0:
        bits.read(8); // latmBufferFullness
        break;
    case 1:
        bits.read(9); // frameLength
        break;
    default:
        return kNone;
    }
    if (bits.read(1) != 0) { // otherDataPresent
        skipOtherData(bits, version1);
    }
    if (bits.read(1) != 0) { // crcCheckPresent
        bits.read(8);
    }
    return bits.past() ? kNone : std::pair{start, count};
}

} // namespace

std::optional<AacFormat> readAudioSpecificConfig(Bytes config) {
    Bits bits(config);
    return readConfig(bits, false);
}

std::optional<AdtsFrame> readAdtsFrame(Bytes bytes) {
    // adts_fixed_header and adts_variable_header: 56 bits, then 16 of CRC where protection_absent is 0.
    constexpr std::size_t kHeader = 7;
    Bits bits(bytes);
    if (bytes.size() < kHeader || bits.read(12) != 0xFFF) {
        return std::nullopt;
    }
    bits.read(3); // ID, layer
    const std::size_t header = bits.read(1) != 0 ? kHeader : kHeader + 2;
    const std::uint32_t objectType = bits.read(2) + 1;
    const std::uint32_t rateIndex = bits.read(4);
    bits.read(1); // private_bit
    const std::uint32_t channels = bits.read(3);
    bits.read(4); // original_copy, home, copyright bits
    AdtsFrame frame;
    frame.frameLength = bits.read(13);
    bits.read(11); // adts_buffer_fullness
    const std::uint32_t furtherBlocks = bits.read(2);
    if (rateIndex >= kSamplingRates.size() || frame.frameLength < header ||
        frame.frameLength > bytes.size()) {
        return std::nullopt;
    }
    if (furtherBlocks == 0) {
        frame.payload = bytes.subspan(header, frame.frameLength - header);
    }
    frame.config = {static_cast<std::uint8_t>(objectType << 3 | rateIndex >> 1),
                    static_cast<std::uint8_t>((rateIndex & 1) << 7 | channels << 3)};
    return frame;
}

std::size_t loasFrameLength(Bytes bytes) noexcept {
    Bits bits(bytes);
    if (bytes.size() < kLoasHeader || bits.read(11) != 0x2B7) {
        return 0;
    }
    const std::size_t length = kLoasHeader + bits.read(13);
    return length <= bytes.size() ? length : 0;
}

Bytes LoasConfigurator::withConfiguration(Bytes frame) {
    const std::size_t length = loasFrameLength(frame);
    if (length <= kLoasHeader) {
        return {};
    }
    const Bytes muxElement = frame.subspan(kLoasHeader, length - kLoasHeader);
    const Bits source(muxElement);
    const bool useSameStreamMux = source.at(0) != 0;
    if (!useSameStreamMux) {
        readConfiguration(muxElement);
        return frame;
    }
    const std::size_t mendedLength = (m_muxBits.size() + 7) / 8 + muxElement.size();
    if (m_muxBits.empty() || mendedLength > kLargestMuxElement) {
        return {};
    }
    m_mended.assign(kLoasHeader, 0);
    BitSink bits(m_mended); // whole bytes so far
    bits.put(0);            // useSameStreamMux
    for (const std::uint8_t bit : m_muxBits) {
        bits.put(bit);
    }
    for (std::size_t i = 1; i < muxElement.size() * 8; ++i) {
        bits.put(source.at(i));
    }
    const auto size = static_cast<std::uint32_t>(m_mended.size() - kLoasHeader);
    m_mended[0] = 0x56; // syncword 0x2B7 and the high bits of the length
    m_mended[1] = static_cast<std::uint8_t>(0xE0 | size >> 8);
    m_mended[2] = static_cast<std::uint8_t>(size);
    return m_mended;
}

void LoasConfigurator::readConfiguration(Bytes muxElement) {
    Bits bits(muxElement);
    bits.read(1); // useSameStreamMux
    const auto [start, count] = readStreamMuxConfig(bits);
    m_muxBits.clear();
    if (count == 0) {
        return;
    }
    for (std::size_t i = 1; i < bits.position(); ++i) {
        m_muxBits.push_back(static_cast<std::uint8_t>(bits.at(i)));
    }
    m_config.clear();
    BitSink config(m_config);
    for (std::size_t i = start; i < start + count; ++i) {
        config.put(bits.at(i));
    }
}

} // namespace KorvelVideo::NetworkSource
