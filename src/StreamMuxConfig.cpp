#include "StreamMuxConfig.h"

namespace KorvelVideo::Network {

namespace {

// What a layer depends on, by reference: a LatmConfigState without its copies.
struct LayerContext {
    const StreamMuxConfig& muxConfig;
    const AudioSpecificConfig& previousConfig;
    std::uint32_t programIndex;
};

// LatmGetValue( )
//   bytesForValue                                              2
//   value                                                      8 x (bytesForValue + 1)
std::uint32_t readLatmValue(BitReader& reader, std::uint32_t& bytesForValue) noexcept {
    bytesForValue = reader.readUnsigned(2);
    return reader.readUnsigned(static_cast<std::int32_t>(bytesForValue + 1) * 8);
}

//   if (audioMuxVersion == 0)
//     AudioSpecificConfig( )
//   else {
//     ascLen = LatmGetValue( )
//     ascLen -= AudioSpecificConfig( )
//     fillBits                                                 ascLen
//   }
void parseLayerConfig(BitReader& reader, std::uint32_t audioMuxVersion, LatmLayer& layer) {
    if (audioMuxVersion != 1) {
        parseAudioSpecificConfig(reader, layer.config);
        return;
    }
    layer.ascLen = readLatmValue(reader, layer.ascBytesForValue);
    const auto before = static_cast<std::uint32_t>(reader.bitsConsumed());
    parseAudioSpecificConfig(reader, layer.config);
    const std::uint32_t consumed = static_cast<std::uint32_t>(reader.bitsConsumed()) - before;
    // A length below what the configuration took is wrong or unknown: there is nothing to skip.
    if (layer.ascLen > consumed) {
        const std::uint32_t fillBits = layer.ascLen - consumed;
        reader.skipBytes(fillBits / 8);
        reader.skipBits(static_cast<std::int32_t>(fillBits % 8));
    }
}

// Core coder offset of a scalable layer (object types 6, 20) above a CELP layer (8, 24).
bool hasCoreFrameOffset(const LayerContext& context, const LatmLayer& layer) noexcept {
    const std::uint32_t type = layer.config.audioObjectType;
    const std::uint32_t previous = context.previousConfig.audioObjectType;
    return context.muxConfig.allStreamsSameTimeFraming == 0 && (type == 6 || type == 20) &&
           (previous == 8 || previous == 24);
}

//   frameLengthType                                            3
//   if (frameLengthType == 0) {
//     latmBufferFullness                                       8
//     if (!allStreamsSameTimeFraming)
//       if (AudioObjectType[lay] is 6 or 20, AudioObjectType[lay - 1] is 8 or 24)
//         coreFrameOffset                                      6
//   } else if (frameLengthType == 1)
//     frameLength                                              9
//   else if (frameLengthType == 4 || frameLengthType == 5 || frameLengthType == 3)
//     CELPframeLengthTableIndex                                6
//   else if (frameLengthType == 6 || frameLengthType == 7)
//     HVXCframeLengthTableIndex                                1
void parseFrameLength(BitReader& reader, const LayerContext& context, LatmLayer& layer) noexcept {
    layer.frameLengthType = reader.readUnsigned(3);
    switch (layer.frameLengthType) {
    case 0:
        layer.latmBufferFullness = reader.readUnsigned(8);
        if (hasCoreFrameOffset(context, layer)) {
            layer.coreFrameOffset = reader.readUnsigned(6);
        }
        break;
    case 1:
        layer.frameLength = reader.readUnsigned(9);
        break;
    case 3:
    case 4:
    case 5:
        layer.frameLength = reader.readUnsigned(6);
        break;
    case 6:
    case 7:
        layer.frameLength = reader.readUnsigned(1);
        break;
    default:
        break;
    }
}

//   if (prog == 0 && lay == 0)
//     useSameConfig = 0
//   else
//     useSameConfig                                            1
//   if (!useSameConfig) the AudioSpecificConfig
//   the frame length
void parseLayer(BitReader& reader, const LayerContext& context, LatmLayer& layer) {
    if (context.programIndex != 0 || layer.layerIndex != 0) {
        layer.useSameConfig = reader.readUnsigned(1);
    }
    if (layer.useSameConfig == 1) {
        layer.config = context.previousConfig;
    } else {
        parseLayerConfig(reader, context.muxConfig.audioMuxVersion, layer);
    }
    parseFrameLength(reader, context, layer);
}

//   numLayer                                                   3
//   for (lay = 0; lay <= numLayer; lay++) the layer
void parseProgram(BitReader& reader, const StreamMuxConfig& muxConfig,
                  const AudioSpecificConfig& currentConfig, LatmProgram& program) {
    const std::uint32_t numLayer = reader.readUnsigned(3);
    program.numLayer = static_cast<std::int32_t>(numLayer);
    program.layers.reserve(numLayer + 1); // so that the layer before stays where it is
    for (std::uint32_t lay = 0; lay <= numLayer; ++lay) {
        const AudioSpecificConfig& previous = lay == 0 ? currentConfig : program.layers.back().config;
        const LayerContext context{muxConfig, previous, program.programIndex};
        parseLayer(reader, context, program.layers.emplace_back(lay));
    }
}

//   if (audioMuxVersion == 1)
//     otherDataLenBits = LatmGetValue( )
//   else {
//     otherDataLenBits = 0
//     do {
//       otherDataLenBits *= 2^8
//       otherDataLenEsc                                        1
//       otherDataLenTmp                                        8
//       otherDataLenBits += otherDataLenTmp
//     } while (otherDataLenEsc)
//   }
void parseOtherDataLength(BitReader& reader, StreamMuxConfig& config) noexcept {
    if (config.audioMuxVersion == 1) {
        config.otherDataLenBits = readLatmValue(reader, config.otherDataBytesForValue);
        return;
    }
    std::uint32_t escape = 0;
    do {
        config.otherDataLenBits *= 256;
        escape = reader.readUnsigned(1);
        config.otherDataLenBits += reader.readUnsigned(8);
    } while (escape == 1);
}

} // namespace

std::uint32_t latmGetValue(BitReader& reader) noexcept {
    std::uint32_t bytesForValue = 0;
    return readLatmValue(reader, bytesForValue);
}

LatmLayer parseLatmLayer(BitReader& reader, const LatmConfigState& state) {
    LatmLayer layer(state.layerIndex);
    parseLayer(reader, {state.muxConfig, state.currentConfig, state.programIndex}, layer);
    return layer;
}

LatmProgram parseLatmProgram(BitReader& reader, const LatmConfigState& state) {
    LatmProgram program(state.programIndex);
    parseProgram(reader, state.muxConfig, state.currentConfig, program);
    return program;
}

// 1.7.3.1 StreamMuxConfig( )
//   audioMuxVersion                                            1
//   if (audioMuxVersion == 1)
//     audioMuxVersionA                                         1
//   else
//     audioMuxVersionA = 0
//   if (audioMuxVersionA == 0) {
//     if (audioMuxVersion == 1)
//       taraBufferFullness = LatmGetValue( )
//     allStreamsSameTimeFraming                                1
//     numSubFrames                                             6
//     numProgram                                               4
//     for (prog = 0; prog <= numProgram; prog++) the program
//     otherDataPresent                                         1
//     if (otherDataPresent) otherDataLenBits
//     crcCheckPresent                                          1
//     if (crcCheckPresent)
//       crcCheckSum                                            8
//   }
StreamMuxConfig parseStreamMuxConfig(BitReader& reader, const LatmConfigState& state) {
    StreamMuxConfig config;
    config.audioMuxVersion = reader.readUnsigned(1);
    if (config.audioMuxVersion == 1) {
        config.audioMuxVersionA = reader.readUnsigned(1);
        if (config.audioMuxVersionA == 1) {
            return config;
        }
        config.taraBufferFullness = readLatmValue(reader, config.taraBytesForValue);
    }
    config.allStreamsSameTimeFraming = reader.readUnsigned(1);
    config.numSubFrames = reader.readUnsigned(6);
    const std::uint32_t numProgram = reader.readUnsigned(4);
    config.numProgram = static_cast<std::int32_t>(numProgram);
    config.programs.reserve(numProgram + 1);
    for (std::uint32_t prog = 0; prog <= numProgram; ++prog) {
        parseProgram(reader, config, state.currentConfig, config.programs.emplace_back(prog));
    }
    config.otherDataPresent = reader.readUnsigned(1);
    if (config.otherDataPresent == 1) {
        parseOtherDataLength(reader, config);
    }
    config.crcCheckPresent = reader.readUnsigned(1);
    if (config.crcCheckPresent == 1) {
        config.crcCheckSum = reader.readUnsigned(8);
    }
    return config;
}

} // namespace KorvelVideo::Network
