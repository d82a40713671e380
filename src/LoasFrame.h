#pragma once

#include <cstdint>
#include <vector>

#include "BitReader.h"
#include "StreamMuxConfig.h"

namespace KorvelVideo::Network {

// Unwraps LOAS frames, the AudioSyncStream( ) of ISO/IEC 14496-3, 1.7.2, which carry AAC access units in LATM
// framing with the configuration in band. A frame is taken twice: measured, so that a buffer can be had for
// its payload, then extracted into that buffer.
//
// Nothing is validated and nothing is kept between calls. Behind the end of the buffer everything reads as 0,
// so a frame cut short has its payload filled up with zeros.
//
// Bounds: no frame counts more payload than the bytes of its buffer and 8191 more, whatever its lengths say.
// Time in proportion to the buffer and that, plus at most 64 sub-frames x 128 layers; memory as
// StreamMuxConfig says, and 4 bytes for each other-data bit. Payload is copied in blocks and allocates
// nothing.

struct AudioMuxElement {
    std::uint32_t useSameStreamMux = 0;
    StreamMuxConfig muxConfig;                  // that this element was parsed with
    std::vector<std::uint32_t> otherDataBits{}; // one element a bit; empty when measured
    std::uint32_t payloadByteCount = 0;         // of all sub-frames: written, or counted when measured
    std::uint8_t* payload = nullptr;            // where it was written; null when measured, or none was read

    bool operator==(const AudioMuxElement&) const = default;
};

struct LoasFrame {
    std::uint32_t syncWord = 0;        // 11 bits, not checked
    std::uint32_t frameByteLength = 0; // of the whole frame as announced, its 3-byte header included
    AudioMuxElement audioMuxElement;

    bool operator==(const LoasFrame&) const = default;
};

// Whether the reader stands at the syncword. It does not move.
[[nodiscard]] bool isLoasFrame(const BitReader& reader) noexcept;

// Payload bytes of the frame at the reader.
[[nodiscard]] std::int32_t measureLoasFrame(BitReader reader, const LatmConfigState& state);

// Parses the frame at the reader and writes its payload, without all framing, to output; never more than
// capacity bytes (of which at most 2^31 - 1 are used).
[[nodiscard]] LoasFrame parseLoasFrame(BitReader reader, std::uint8_t* output, std::uint32_t capacity,
                                       const LatmConfigState& state);

// The AudioMuxElement( ) at the reader, with its configuration in band (muxConfigPresent 1).
[[nodiscard]] AudioMuxElement measureAudioMuxElement(BitReader& reader, const LatmConfigState& state);
[[nodiscard]] AudioMuxElement parseAudioMuxElement(BitReader& reader, std::uint8_t* output,
                                                   std::uint32_t capacity, const LatmConfigState& state);

// The configuration of the state when useSameStreamMux is 1, else the one that follows.
[[nodiscard]] StreamMuxConfig selectStreamMuxConfig(BitReader& reader, std::uint32_t useSameStreamMux,
                                                    const LatmConfigState& state);

// A length in bytes: the sum of bytes up to and including the first that is not 255.
[[nodiscard]] std::uint32_t readEscapedLength(BitReader& reader) noexcept;

} // namespace KorvelVideo::Network
