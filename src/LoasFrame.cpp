#include "LoasFrame.h"

#include <algorithm>
#include <limits>

namespace KorvelVideo::Network {

namespace {

// audioMuxLengthBytes has 13 bits.
constexpr std::uint32_t c_longestElement = 8191;

//   if (frameLengthType == 0)
//     MuxSlotLengthBytes                                       8 for each 255 and the byte behind
//     AuEndFlag                                                1, in chunks only
//   else if (frameLengthType == 5 || frameLengthType == 7 || frameLengthType == 3)
//     MuxSlotLengthCoded                                       2
std::uint32_t readSlotLength(BitReader& reader, std::uint32_t frameLengthType, bool isChunk) noexcept {
    switch (frameLengthType) {
    case 0: {
        const std::uint32_t length = readEscapedLength(reader);
        reader.skipBits(isChunk ? 1 : 0);
        return length;
    }
    case 3:
    case 5:
    case 7:
        reader.skipBits(2);
        return 0;
    default:
        return 0;
    }
}

// PayloadLengthInfo( ) of streams that are framed alike:
//   for (prog = 0; prog <= numProgram; prog++)
//     for (lay = 0; lay <= numLayer; lay++) the slot length
std::uint32_t readSameTimeLengths(BitReader& reader, const StreamMuxConfig& config) noexcept {
    std::uint32_t total = 0;
    for (const LatmProgram& program : config.programs) {
        for (const LatmLayer& layer : program.layers) {
            total += readSlotLength(reader, layer.frameLengthType, false);
        }
    }
    return total;
}

// The layer with the number streamIndx, counted through all programs as StreamMuxConfig announced them.
const LatmLayer* findStream(const StreamMuxConfig& config, std::uint32_t streamIndx) noexcept {
    for (const LatmProgram& program : config.programs) {
        if (streamIndx < program.layers.size()) {
            return &program.layers[streamIndx];
        }
        streamIndx -= static_cast<std::uint32_t>(program.layers.size());
    }
    return nullptr;
}

// PayloadLengthInfo( ) otherwise:
//   numChunk                                                   4
//   for (chunkCnt = 0; chunkCnt <= numChunk; chunkCnt++) {
//     streamIndx                                               4
//     the slot length of that stream
//   }
// A chunk of a stream that was not announced has no length.
std::uint32_t readChunkLengths(BitReader& reader, const StreamMuxConfig& config) noexcept {
    std::uint32_t total = 0;
    const std::uint32_t numChunk = reader.readUnsigned(4);
    for (std::uint32_t chunkCnt = 0; chunkCnt <= numChunk; ++chunkCnt) {
        const LatmLayer* const stream = findStream(config, reader.readUnsigned(4));
        total += stream != nullptr ? readSlotLength(reader, stream->frameLengthType, true) : 0;
    }
    return total;
}

// Bytes of the PayloadMux( ) behind the PayloadLengthInfo( ) at the reader. Both passes read them here, so
// they agree. Each length byte can announce 255: a count beyond what an element can hold and beyond what was
// received is cut, lest a small frame have the host lend a large buffer.
std::uint32_t readPayloadLength(BitReader& reader, const StreamMuxConfig& config) noexcept {
    std::uint32_t total = 0;
    if (config.allStreamsSameTimeFraming == 1) {
        total = readSameTimeLengths(reader, config);
    } else if (!config.programs.empty()) {
        total = readChunkLengths(reader, config);
    } else {
        total = readEscapedLength(reader);
    }
    return std::min(total, std::max(c_longestElement, static_cast<std::uint32_t>(reader.bitsLeft() / 8)));
}

void readOtherData(BitReader& reader, AudioMuxElement& element) {
    const StreamMuxConfig& config = element.muxConfig;
    if (config.otherDataPresent != 1) {
        return;
    }
    // Bits that did not arrive are left out.
    const std::int64_t count = std::min<std::int64_t>(config.otherDataLenBits, reader.bitsLeft());
    element.otherDataBits.reserve(static_cast<std::size_t>(count));
    for (std::int64_t i = 0; i < count; ++i) {
        element.otherDataBits.push_back(reader.readUnsigned(1));
    }
}

AudioMuxElement beginAudioMuxElement(BitReader& reader, const LatmConfigState& state) {
    AudioMuxElement element;
    element.useSameStreamMux = reader.readUnsigned(1);
    element.muxConfig = selectStreamMuxConfig(reader, element.useSameStreamMux, state);
    return element;
}

// 1.7.2.1 AudioSyncStream( )
//   syncword                                                   11
//   audioMuxLengthBytes                                        13
//   AudioMuxElement(1)
constexpr std::int32_t c_syncWordBits = 11;
constexpr std::int32_t c_muxLengthBits = 13;
constexpr std::uint32_t c_headerBytes = 3;

} // namespace

bool isLoasFrame(const BitReader& reader) noexcept {
    constexpr std::uint64_t syncWord = 0x2B7;
    return reader.peekBits(c_syncWordBits) == syncWord;
}

std::uint32_t readEscapedLength(BitReader& reader) noexcept {
    std::uint32_t sum = 0;
    std::uint32_t byte = 0;
    do {
        byte = reader.readUnsigned(8);
        sum += byte;
    } while (byte == 255);
    return sum;
}

StreamMuxConfig selectStreamMuxConfig(BitReader& reader, std::uint32_t useSameStreamMux,
                                      const LatmConfigState& state) {
    if (useSameStreamMux == 1) {
        return state.muxConfig;
    }
    return parseStreamMuxConfig(reader, state);
}

AudioMuxElement measureAudioMuxElement(BitReader& reader, const LatmConfigState& state) {
    AudioMuxElement element = beginAudioMuxElement(reader, state);
    if (element.muxConfig.audioMuxVersionA != 0) {
        return element;
    }
    for (std::uint32_t i = 0; i <= element.muxConfig.numSubFrames; ++i) {
        const std::uint32_t length = readPayloadLength(reader, element.muxConfig);
        reader.skipBytes(length);
        element.payloadByteCount += length;
    }
    return element;
}

// 1.7.3.1 AudioMuxElement(1)
//   useSameStreamMux                                           1
//   if (!useSameStreamMux) StreamMuxConfig( )
//   if (audioMuxVersionA == 0) {
//     for (i = 0; i <= numSubFrames; i++) {
//       PayloadLengthInfo( )
//       PayloadMux( )
//     }
//     if (otherDataPresent)
//       for (i = 0; i < otherDataLenBits; i++)
//         otherDataBit                                         1
//   }
//   ByteAlign( )
AudioMuxElement parseAudioMuxElement(BitReader& reader, std::uint8_t* output, std::uint32_t capacity,
                                     const LatmConfigState& state) {
    constexpr std::uint32_t largestCapacity = std::numeric_limits<std::int32_t>::max();
    AudioMuxElement element = beginAudioMuxElement(reader, state);
    if (element.muxConfig.audioMuxVersionA == 0) {
        element.payload = output;
        for (std::uint32_t i = 0; i <= element.muxConfig.numSubFrames; ++i) {
            const std::uint32_t remaining = std::min(capacity, largestCapacity) - element.payloadByteCount;
            const std::uint32_t count = std::min(readPayloadLength(reader, element.muxConfig), remaining);
            if (count > 0) {
                reader.readBytes(output + element.payloadByteCount, count);
                element.payloadByteCount += count;
            }
        }
        readOtherData(reader, element);
    }
    reader.byteAlign();
    return element;
}

std::int32_t measureLoasFrame(BitReader reader, const LatmConfigState& state) {
    reader.skipBits(c_syncWordBits + c_muxLengthBits);
    return static_cast<std::int32_t>(measureAudioMuxElement(reader, state).payloadByteCount);
}

LoasFrame parseLoasFrame(BitReader reader, std::uint8_t* output, std::uint32_t capacity,
                         const LatmConfigState& state) {
    const std::uint32_t syncWord = reader.readUnsigned(c_syncWordBits);
    const std::uint32_t audioMuxLengthBytes = reader.readUnsigned(c_muxLengthBits);
    return {.syncWord = syncWord,
            .frameByteLength = audioMuxLengthBytes + c_headerBytes,
            .audioMuxElement = parseAudioMuxElement(reader, output, capacity, state)};
}

} // namespace KorvelVideo::Network
