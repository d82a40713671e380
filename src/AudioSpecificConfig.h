#pragma once

#include <cstdint>

#include "BitReader.h"
#include "ErrorProtectionSpecificConfig.h"
#include "GASpecificConfig.h"
#include "ObjectTypeSpecificConfigs.h"

namespace KorvelVideo::Network {

// The configuration of an MPEG-4 audio decoder: ISO/IEC 14496-3, 1.6.2.1. A deep value; fields bear the
// standard's names; only the specific configuration that belongs to audioObjectType is filled. Nothing is
// validated, missing bits read as 0.
//
// Not read: parametric stereo signalling (object type 29 is stored as such), extensionChannelConfiguration,
// the specific configurations of object types from 35 up, the backward compatible extension at the end.
//
// Bounds: time in proportion to the bits left; memory as ErrorProtectionSpecificConfig and GASpecificConfig
// say.
struct AudioSpecificConfig {
    std::uint32_t audioObjectType = 0; // with SBR signalled, that of the core
    std::uint32_t samplingFrequencyIndex = 0;
    std::uint32_t samplingFrequency = 0; // in Hz; 0 for a reserved index
    std::uint32_t channelConfiguration = 0;
    std::int32_t sbrPresentFlag = 0; // after parsing: 1, or -1 when object type 5 does not signal it
    std::uint32_t extensionAudioObjectType = 0;
    std::uint32_t extensionSamplingFrequencyIndex = 0;
    std::uint32_t extensionSamplingFrequency = 0;
    GASpecificConfig gaConfig;
    CelpSpecificConfig celpConfig;
    HvxcSpecificConfig hvxcConfig;
    TTSSpecificConfig ttsConfig;
    StructuredAudioSpecificConfig structuredAudioConfig;
    ErrorResilientCelpSpecificConfig erCelpConfig;
    ErrorResilientHvxcSpecificConfig erHvxcConfig;
    ParametricSpecificConfig parametricConfig;
    SSCSpecificConfig sscConfig;
    std::uint32_t mpeg12Extension = 0; // MPEG_1_2_SpecificConfig
    ErrorProtectionSpecificConfig errorProtectionConfig;
    std::uint32_t epConfig = 0;
    std::uint32_t directMapping = 0;

    bool operator==(const AudioSpecificConfig&) const = default;
};

[[nodiscard]] AudioSpecificConfig parseAudioSpecificConfig(BitReader& reader);
// The same into a default record, where it stays: the record is large.
void parseAudioSpecificConfig(BitReader& reader, AudioSpecificConfig& config);

[[nodiscard]] std::uint32_t getAudioObjectType(BitReader& reader) noexcept;

} // namespace KorvelVideo::Network
