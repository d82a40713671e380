#pragma once

#include <cstdint>
#include <vector>

#include "LoasFrame.h"
#include "NaiveBitReader.h"

// LOAS unwrapped in the straightforward way, the baseline of the benchmarks: byte by byte through the bit
// reader, the whole configuration copied into every step, records returned by value. Just the syntax of plain
// frames: streams framed alike, object types of the AAC family without a program_config_element, no other
// data.

namespace naive {

using namespace KorvelVideo::Network;

inline GASpecificConfig parseGASpecificConfig(NaiveBitReader& reader) {
    GASpecificConfig config;
    config.frameLengthFlag = reader.readUnsigned(1);
    config.dependsOnCoreCoder = reader.readUnsigned(1);
    config.extensionFlag = reader.readUnsigned(1);
    return config;
}

inline AudioSpecificConfig parseAudioSpecificConfig(NaiveBitReader& reader) {
    static constexpr std::uint32_t frequencies[] = {96000, 88200, 64000, 48000, 44100, 32000, 24000, 22050,
                                                    16000, 12000, 11025, 8000,  7350,  0,     0,     0};
    AudioSpecificConfig config;
    config.audioObjectType = reader.readUnsigned(5);
    config.samplingFrequencyIndex = reader.readUnsigned(4);
    config.samplingFrequency = frequencies[config.samplingFrequencyIndex];
    config.channelConfiguration = reader.readUnsigned(4);
    config.sbrPresentFlag = -1;
    config.gaConfig = parseGASpecificConfig(reader);
    return config;
}

inline LatmLayer parseLatmLayer(NaiveBitReader& reader, LatmConfigState state) {
    LatmLayer layer;
    layer.layerIndex = state.layerIndex;
    if (state.programIndex != 0 || state.layerIndex != 0) {
        layer.useSameConfig = reader.readUnsigned(1);
    }
    layer.config = layer.useSameConfig == 1 ? state.currentConfig : parseAudioSpecificConfig(reader);
    layer.frameLengthType = reader.readUnsigned(3);
    layer.latmBufferFullness = reader.readUnsigned(8);
    return layer;
}

inline LatmProgram parseLatmProgram(NaiveBitReader& reader, LatmConfigState state) {
    LatmProgram program;
    program.programIndex = state.programIndex;
    program.numLayer = static_cast<std::int32_t>(reader.readUnsigned(3));
    for (std::uint32_t lay = 0; lay <= static_cast<std::uint32_t>(program.numLayer); ++lay) {
        state.layerIndex = lay;
        if (lay > 0) {
            state.currentConfig = program.layers[lay - 1].config;
        }
        program.layers.push_back(parseLatmLayer(reader, state));
    }
    return program;
}

inline StreamMuxConfig parseStreamMuxConfig(NaiveBitReader& reader, LatmConfigState state) {
    StreamMuxConfig config;
    config.audioMuxVersion = reader.readUnsigned(1);
    config.allStreamsSameTimeFraming = reader.readUnsigned(1);
    config.numSubFrames = reader.readUnsigned(6);
    config.numProgram = static_cast<std::int32_t>(reader.readUnsigned(4));
    for (std::uint32_t prog = 0; prog <= static_cast<std::uint32_t>(config.numProgram); ++prog) {
        state.muxConfig = config;
        state.programIndex = prog;
        config.programs.push_back(parseLatmProgram(reader, state));
    }
    config.otherDataPresent = reader.readUnsigned(1);
    config.crcCheckPresent = reader.readUnsigned(1);
    return config;
}

inline std::uint32_t readPayloadLength(NaiveBitReader& reader, const StreamMuxConfig& config) {
    std::vector<std::uint32_t> lengths;
    for (const LatmProgram& program : config.programs) {
        for (std::size_t lay = 0; lay < program.layers.size(); ++lay) {
            std::uint32_t length = 0;
            std::uint32_t byte = 0;
            do {
                byte = reader.readUnsigned(8);
                length += byte;
            } while (byte == 255);
            lengths.push_back(length);
        }
    }
    std::uint32_t total = 0;
    for (const std::uint32_t length : lengths) {
        total += length;
    }
    return total;
}

// Extracts to output, or measures when it is null.
inline AudioMuxElement parseAudioMuxElement(NaiveBitReader& reader, std::uint8_t* output,
                                            LatmConfigState state) {
    AudioMuxElement element;
    element.useSameStreamMux = reader.readUnsigned(1);
    element.muxConfig = parseStreamMuxConfig(reader, state);
    for (std::uint32_t i = 0; i <= element.muxConfig.numSubFrames; ++i) {
        const std::uint32_t length = readPayloadLength(reader, element.muxConfig);
        for (std::uint32_t byte = 0; byte < length; ++byte) {
            if (output != nullptr) {
                output[element.payloadByteCount + byte] = static_cast<std::uint8_t>(reader.readUnsigned(8));
            } else {
                reader.skipBits(8);
            }
        }
        element.payloadByteCount += length;
    }
    return element;
}

inline AudioMuxElement parseLoasFrame(NaiveBitReader reader, std::uint8_t* output, LatmConfigState state) {
    reader.skipBits(24);
    return parseAudioMuxElement(reader, output, state);
}

} // namespace naive
