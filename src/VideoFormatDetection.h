#pragma once

#include <cstdint>

#include "H264SequenceParameterSet.h"
#include "KvVideoFormat.h"

namespace KorvelVideo::Network {

// From a stream's H.264 parameter set to the host's description of its video. Nothing here fails: a damaged
// parameter set gives whatever its bits say. Time and memory are those of parsing the parameter set.

struct AvcConfigurationDescription {
    SKvVideoFormatDescription format{sizeof(SKvVideoFormatDescription), 0, 0, 0, 0, 0, 0};
    std::uint32_t colourClass = keKvColourClassUnknown;
    std::uint32_t profile = 0; // profile_idc
    std::uint32_t level = 0;   // level_idc
};

// configuration: a 4-byte start code, a NAL unit header and the payload of the sequence parameter set, length
// bytes in all; start code and header are not examined. Null, or 5 bytes or fewer: no parameter set,
// everything is 0.
[[nodiscard]] AvcConfigurationDescription describeAvcConfiguration(const std::uint8_t* configuration,
                                                                   std::uint32_t length);

// Fills the whole of format.
void detectVideoFormat(const H264SequenceParameterSet& sps, SKvVideoFormatDescription& format) noexcept;

// The EKvColourClass of a description; keKvColourClassUnknown when none fits.
[[nodiscard]] std::uint32_t classifyColourDescription(const SKvColourDescription& description) noexcept;

} // namespace KorvelVideo::Network
