#include "ObjectTypeSpecificConfigs.h"

namespace KorvelVideo::Network {

namespace {

// CelpHeader( ) and ER_SC_CelpHeader( ), which has SilenceCompression besides:
//   ExcitationMode                                             1
//   SampleRateMode                                             1
//   FineRateControl                                            1
//   SilenceCompression                                         1, error resilient only
//   if (ExcitationMode == RPE)
//     RPE_Configuration                                        3
//   else
//     MPE_Configuration                                        5
//     NumEnhLayers                                             2
//     BandwidthScalabilityMode                                 1
template <typename Config>
void parseCelpHeader(BitReader& reader, Config& config) noexcept {
    config.ExcitationMode = reader.readUnsigned(1);
    config.SampleRateMode = reader.readUnsigned(1);
    config.FineRateControl = reader.readUnsigned(1);
    if constexpr (requires { config.SilenceCompression; }) {
        config.SilenceCompression = reader.readUnsigned(1);
    }
    if (config.ExcitationMode == 1) {
        config.RPE_Configuration = reader.readUnsigned(3);
    } else {
        config.MPE_Configuration = reader.readUnsigned(5);
        config.NumEnhLayers = reader.readUnsigned(2);
        config.BandwidthScalabilityMode = reader.readUnsigned(1);
    }
}

// CelpSpecificConfig( ) and ErrorResilientCelpSpecificConfig( ):
//   isBaseLayer                                                1
//   if (isBaseLayer) the header
//   else {
//     isBWSLayer                                               1
//     if (isBWSLayer)
//       BWS_configuration                                      2
//     else
//       CELP-BRS-id                                            2
//   }
template <typename Config>
Config parseCelp(BitReader& reader) noexcept {
    Config config;
    config.isBaseLayer = reader.readUnsigned(1);
    if (config.isBaseLayer == 1) {
        parseCelpHeader(reader, config);
        return config;
    }
    config.isBWSLayer = reader.readUnsigned(1);
    (config.isBWSLayer == 1 ? config.BWS_configuration : config.CELP_BRS_id) = reader.readUnsigned(2);
    return config;
}

// HVXCconfig( ), and ErHVXCconfig( ), which has var_ScalableFlag besides:
//   HVXCvarMode                                                1
//   HVXCrateMode                                               2
//   extensionFlag                                              1
//   if (extensionFlag)
//     var_ScalableFlag                                         1, error resilient only
template <typename Config>
void parseHvxc(BitReader& reader, Config& config) noexcept {
    config.HVXCvarMode = reader.readUnsigned(1);
    config.HVXCrateMode = reader.readUnsigned(2);
    config.extensionFlag = reader.readUnsigned(1);
    if constexpr (requires { config.var_ScalableFlag; }) {
        if (config.extensionFlag == 1) {
            config.var_ScalableFlag = reader.readUnsigned(1);
        }
    }
}

// HvxcSpecificConfig( ) and ErrorResilientHvxcSpecificConfig( ):
//   isBaseLayer                                                1
//   if (isBaseLayer) HVXCconfig( ) or ErHVXCconfig( )
template <typename Config>
Config parseHvxcLayer(BitReader& reader) noexcept {
    Config config;
    config.isBaseLayer = reader.readUnsigned(1);
    if (config.isBaseLayer == 1) {
        parseHvxc(reader, config);
    }
    return config;
}

} // namespace

CelpSpecificConfig parseCelpSpecificConfig(BitReader& reader) noexcept {
    return parseCelp<CelpSpecificConfig>(reader);
}

ErrorResilientCelpSpecificConfig parseErrorResilientCelpSpecificConfig(BitReader& reader) noexcept {
    return parseCelp<ErrorResilientCelpSpecificConfig>(reader);
}

HvxcSpecificConfig parseHvxcSpecificConfig(BitReader& reader) noexcept {
    return parseHvxcLayer<HvxcSpecificConfig>(reader);
}

ErrorResilientHvxcSpecificConfig parseErrorResilientHvxcSpecificConfig(BitReader& reader) noexcept {
    return parseHvxcLayer<ErrorResilientHvxcSpecificConfig>(reader);
}

// TTSSpecificConfig( ): 5 bits, 18 bits and seven flags.
TTSSpecificConfig parseTTSSpecificConfig(BitReader& reader) noexcept {
    TTSSpecificConfig config;
    config.TTS_Sequence_ID = reader.readUnsigned(5);
    config.Language_Code = reader.readUnsigned(18);
    config.Gender_Enable = reader.readUnsigned(1);
    config.Age_Enable = reader.readUnsigned(1);
    config.Speech_Rate_Enable = reader.readUnsigned(1);
    config.Prosody_Enable = reader.readUnsigned(1);
    config.Video_Enable = reader.readUnsigned(1);
    config.Lip_Shape_Enable = reader.readUnsigned(1);
    config.Trick_Mode_Enable = reader.readUnsigned(1);
    return config;
}

// StructuredAudioSpecificConfig( ), without the chunks themselves: a receiver that only unwraps the payload
// has no use for them.
//   do {
//     chunk_type                                               3
//     more_data                                                1
//   } while (more_data)
StructuredAudioSpecificConfig parseStructuredAudioSpecificConfig(BitReader& reader) noexcept {
    std::uint32_t chunks[8] = {};
    do {
        ++chunks[reader.readUnsigned(3)];
    } while (reader.readUnsigned(1) == 1);
    return {chunks[0], chunks[1], chunks[2], chunks[3], chunks[4], chunks[5]};
}

// ParametricSpecificConfig( ):
//   isBaseLayer                                                1
//   if (isBaseLayer) {
//     PARAmode                                                 2
//     if (PARAmode != 1) ErHVXCconfig( )
//     if (PARAmode != 0) {
//       HILNquantMode                                          1
//       HILNmaxNumLine                                         8
//       HILNsampleRateCode                                     4
//       HILNframeLength                                        12
//       HILNcontMode                                           2
//     }
//     PARAextensionFlag                                        1
//   } else {
//     HILNenhaLayer                                            1
//     if (HILNenhaLayer)
//       HILNenhaQuantMode                                      2
//   }
ParametricSpecificConfig parseParametricSpecificConfig(BitReader& reader) noexcept {
    ParametricSpecificConfig config;
    config.isBaseLayer = reader.readUnsigned(1);
    if (config.isBaseLayer != 1) {
        config.HILNenhaLayer = reader.readUnsigned(1);
        if (config.HILNenhaLayer == 1) {
            config.HILNenhaQuantMode = reader.readUnsigned(2);
        }
        return config;
    }
    config.PARAmode = reader.readUnsigned(2);
    if (config.PARAmode != 1) {
        parseHvxc(reader, config);
    }
    if (config.PARAmode != 0) {
        config.HILNquantMode = reader.readUnsigned(1);
        config.HILNmaxNumLine = reader.readUnsigned(8);
        config.HILNsampleRateCode = reader.readUnsigned(4);
        config.HILNframeLength = reader.readUnsigned(12);
        config.HILNcontMode = reader.readUnsigned(2);
    }
    config.PARAextensionFlag = reader.readUnsigned(1);
    return config;
}

// SSCSpecificConfig( ):
//   decoder_level                                              2
//   update_rate                                                4
//   synthesis_method                                           2
//   if (channelConfiguration != 1) {
//     mode_ext                                                 2
//     if (channelConfiguration == 2 && mode_ext == 1)
//       reserved                                               2
//   }
SSCSpecificConfig parseSSCSpecificConfig(BitReader& reader, std::uint32_t channelConfiguration) noexcept {
    SSCSpecificConfig config;
    config.decoder_level = reader.readUnsigned(2);
    config.update_rate = reader.readUnsigned(4);
    config.synthesis_method = reader.readUnsigned(2);
    if (channelConfiguration != 1) {
        config.mode_ext = reader.readUnsigned(2);
        if (channelConfiguration == 2 && config.mode_ext == 1) {
            config.reserved = reader.readUnsigned(2);
        }
    }
    return config;
}

} // namespace KorvelVideo::Network
