#pragma once

#include <cstdint>
#include <vector>

#include "AudioSpecificConfig.h"
#include "BitReader.h"

namespace KorvelVideo::Network {

// The multiplex configuration of a LATM stream: ISO/IEC 14496-3, 1.7.3.1. Deep values; fields bear the
// standard's names; what is not read is 0 or empty. Nothing is validated: reserved values are stored as read,
// missing bits read as 0.
//
// Bounds: at most 16 programs of 8 layers, so 128 layer records (about 140 kB) however few bytes there are.
// What their configurations hold is at most 352 bytes of memory for each byte read: 128 while a configuration
// grows and 32 for each of the seven copies that useSameConfig can make of it. Time is in proportion to both.
// Records are built in their place, and copied only for useSameConfig.

struct LatmLayer {
    LatmLayer() = default;
    explicit LatmLayer(std::uint32_t index) : layerIndex(index) {}

    std::uint32_t layerIndex = 0; // within its program
    std::uint32_t useSameConfig = 0;
    AudioSpecificConfig config;
    std::uint32_t ascBytesForValue = 0;
    std::uint32_t ascLen = 0; // in bits
    std::uint32_t frameLengthType = 0;
    std::uint32_t latmBufferFullness = 0;
    std::uint32_t coreFrameOffset = 0;
    std::uint32_t frameLength = 0; // or the CELP or HVXC table index, by frameLengthType

    bool operator==(const LatmLayer&) const = default;
};

struct LatmProgram {
    LatmProgram() = default;
    explicit LatmProgram(std::uint32_t index) : programIndex(index) {}

    std::uint32_t programIndex = 0;
    std::int32_t numLayer = 0; // minus 1
    std::vector<LatmLayer> layers{};

    bool operator==(const LatmProgram&) const = default;
};

struct StreamMuxConfig {
    std::uint32_t audioMuxVersion = 0;
    std::uint32_t audioMuxVersionA = 0; // 1: a syntax to come, nothing else was read
    std::uint32_t taraBytesForValue = 0;
    std::uint32_t taraBufferFullness = 0;
    std::uint32_t allStreamsSameTimeFraming = 0;
    std::uint32_t numSubFrames = 0; // minus 1
    std::int32_t numProgram = 0;    // minus 1
    std::vector<LatmProgram> programs{};
    std::uint32_t otherDataPresent = 0;
    std::uint32_t otherDataBytesForValue = 0;
    std::uint32_t otherDataLenBits = 0;
    std::uint32_t crcCheckPresent = 0;
    std::uint32_t crcCheckSum = 0; // not verified

    bool operator==(const StreamMuxConfig&) const = default;
};

// What a frame is parsed against; a default one knows no stream. Never changed by the parsers.
struct LatmConfigState {
    StreamMuxConfig muxConfig;         // in force, and used by frames that set useSameStreamMux
    AudioSpecificConfig currentConfig; // of the layer before the one that is parsed
    std::uint32_t programIndex = 0;    // of the program that is parsed
    std::uint32_t layerIndex = 0;      // of the layer that is parsed, within its program

    bool operator==(const LatmConfigState&) const = default;
};

// One StreamMuxConfig. With useSameConfig the first layer of a later program takes currentConfig of the
// state.
[[nodiscard]] StreamMuxConfig parseStreamMuxConfig(BitReader& reader, const LatmConfigState& state);

// One program, or one layer, at the indices and under the muxConfig of the state.
[[nodiscard]] LatmProgram parseLatmProgram(BitReader& reader, const LatmConfigState& state);
[[nodiscard]] LatmLayer parseLatmLayer(BitReader& reader, const LatmConfigState& state);

// LatmGetValue: 2 bits that say how many bytes less one, then the value.
[[nodiscard]] std::uint32_t latmGetValue(BitReader& reader) noexcept;

} // namespace KorvelVideo::Network
