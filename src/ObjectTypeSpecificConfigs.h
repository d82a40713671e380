#pragma once

#include <cstdint>

#include "BitReader.h"

namespace KorvelVideo::Network {

// Decoder configurations of the audio object types outside the AAC family, as an AudioSpecificConfig carries
// them. Fields bear the standard's names; what is not read is 0. Nothing is validated, missing bits read as
// 0. No allocation; constant time, but for structured audio, whose time is in proportion to the bits left.

// Object type 8: ISO/IEC 14496-3, subpart 3.
struct CelpSpecificConfig {
    std::uint32_t isBaseLayer = 0;
    std::uint32_t ExcitationMode = 0;
    std::uint32_t SampleRateMode = 0;
    std::uint32_t FineRateControl = 0;
    std::uint32_t RPE_Configuration = 0;
    std::uint32_t MPE_Configuration = 0;
    std::uint32_t NumEnhLayers = 0;
    std::uint32_t BandwidthScalabilityMode = 0;
    std::uint32_t isBWSLayer = 0;
    std::uint32_t BWS_configuration = 0;
    std::uint32_t CELP_BRS_id = 0;

    bool operator==(const CelpSpecificConfig&) const = default;
};

// Object type 24: subpart 3.
struct ErrorResilientCelpSpecificConfig {
    std::uint32_t isBaseLayer = 0;
    std::uint32_t ExcitationMode = 0;
    std::uint32_t SampleRateMode = 0;
    std::uint32_t FineRateControl = 0;
    std::uint32_t RPE_Configuration = 0;
    std::uint32_t MPE_Configuration = 0;
    std::uint32_t NumEnhLayers = 0;
    std::uint32_t BandwidthScalabilityMode = 0;
    std::uint32_t SilenceCompression = 0;
    std::uint32_t isBWSLayer = 0;
    std::uint32_t BWS_configuration = 0;
    std::uint32_t CELP_BRS_id = 0;

    bool operator==(const ErrorResilientCelpSpecificConfig&) const = default;
};

// Object type 9: subpart 2.
struct HvxcSpecificConfig {
    std::uint32_t isBaseLayer = 0;
    std::uint32_t HVXCvarMode = 0;
    std::uint32_t HVXCrateMode = 0;
    std::uint32_t extensionFlag = 0;

    bool operator==(const HvxcSpecificConfig&) const = default;
};

// Object type 25: subpart 2.
struct ErrorResilientHvxcSpecificConfig {
    std::uint32_t isBaseLayer = 0;
    std::uint32_t HVXCvarMode = 0;
    std::uint32_t HVXCrateMode = 0;
    std::uint32_t extensionFlag = 0;
    std::uint32_t var_ScalableFlag = 0;

    bool operator==(const ErrorResilientHvxcSpecificConfig&) const = default;
};

// Object type 12: subpart 6.
struct TTSSpecificConfig {
    std::uint32_t TTS_Sequence_ID = 0;
    std::uint32_t Language_Code = 0;
    std::uint32_t Gender_Enable = 0;
    std::uint32_t Age_Enable = 0;
    std::uint32_t Speech_Rate_Enable = 0;
    std::uint32_t Prosody_Enable = 0;
    std::uint32_t Video_Enable = 0;
    std::uint32_t Lip_Shape_Enable = 0;
    std::uint32_t Trick_Mode_Enable = 0;

    bool operator==(const TTSSpecificConfig&) const = default;
};

// Object types 13 to 16: subpart 5. How many chunks of each type were announced; their contents are not read.
struct StructuredAudioSpecificConfig {
    std::uint32_t orchestraFiles = 0; // chunk_type 0
    std::uint32_t scoreFiles = 0;     // 1
    std::uint32_t midiFiles = 0;      // 2
    std::uint32_t samples = 0;        // 3
    std::uint32_t sampleBanks = 0;    // 4
    std::uint32_t symbolTables = 0;   // 5

    bool operator==(const StructuredAudioSpecificConfig&) const = default;
};

// Object types 26 and 27: subpart 7.
struct ParametricSpecificConfig {
    std::uint32_t isBaseLayer = 0;
    std::uint32_t PARAmode = 0;
    std::uint32_t HVXCvarMode = 0;
    std::uint32_t HVXCrateMode = 0;
    std::uint32_t extensionFlag = 0;
    std::uint32_t var_ScalableFlag = 0;
    std::uint32_t HILNquantMode = 0;
    std::uint32_t HILNmaxNumLine = 0;
    std::uint32_t HILNsampleRateCode = 0;
    std::uint32_t HILNframeLength = 0;
    std::uint32_t HILNcontMode = 0;
    std::uint32_t PARAextensionFlag = 0;
    std::uint32_t HILNenhaLayer = 0;
    std::uint32_t HILNenhaQuantMode = 0;

    bool operator==(const ParametricSpecificConfig&) const = default;
};

// Object type 28: subpart 8.
struct SSCSpecificConfig {
    std::uint32_t decoder_level = 0;
    std::uint32_t update_rate = 0;
    std::uint32_t synthesis_method = 0;
    std::uint32_t mode_ext = 0;
    std::uint32_t reserved = 0;

    bool operator==(const SSCSpecificConfig&) const = default;
};

[[nodiscard]] CelpSpecificConfig parseCelpSpecificConfig(BitReader& reader) noexcept;
[[nodiscard]] ErrorResilientCelpSpecificConfig
parseErrorResilientCelpSpecificConfig(BitReader& reader) noexcept;
[[nodiscard]] HvxcSpecificConfig parseHvxcSpecificConfig(BitReader& reader) noexcept;
[[nodiscard]] ErrorResilientHvxcSpecificConfig
parseErrorResilientHvxcSpecificConfig(BitReader& reader) noexcept;
[[nodiscard]] TTSSpecificConfig parseTTSSpecificConfig(BitReader& reader) noexcept;
[[nodiscard]] StructuredAudioSpecificConfig parseStructuredAudioSpecificConfig(BitReader& reader) noexcept;
[[nodiscard]] ParametricSpecificConfig parseParametricSpecificConfig(BitReader& reader) noexcept;
[[nodiscard]] SSCSpecificConfig parseSSCSpecificConfig(BitReader& reader,
                                                       std::uint32_t channelConfiguration) noexcept;

} // namespace KorvelVideo::Network
