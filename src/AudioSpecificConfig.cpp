#include "AudioSpecificConfig.h"

namespace KorvelVideo::Network {

namespace {

// Table 1.18, with
//   samplingFrequencyIndex                                     4
//   if (samplingFrequencyIndex == 0xf)
//     samplingFrequency                                        24
std::uint32_t readSamplingFrequency(BitReader& reader, std::uint32_t& index) noexcept {
    static constexpr std::uint32_t frequencies[] = {96000, 88200, 64000, 48000, 44100, 32000, 24000, 22050,
                                                    16000, 12000, 11025, 8000,  7350,  0,     0};
    index = reader.readUnsigned(4);
    return index == 15 ? reader.readUnsigned(24) : frequencies[index];
}

void parseSpecificConfig(BitReader& reader, AudioSpecificConfig& config) {
    switch (config.audioObjectType) {
    case 1:
    case 2:
    case 3:
    case 4:
    case 6:
    case 7:
    case 17:
    case 19:
    case 20:
    case 21:
    case 22:
    case 23:
        parseGASpecificConfig(reader, config.audioObjectType, config.channelConfiguration, config.gaConfig);
        break;
    case 8:
        config.celpConfig = parseCelpSpecificConfig(reader);
        break;
    case 9:
        config.hvxcConfig = parseHvxcSpecificConfig(reader);
        break;
    case 12:
        config.ttsConfig = parseTTSSpecificConfig(reader);
        break;
    case 13:
    case 14:
    case 15:
    case 16:
        config.structuredAudioConfig = parseStructuredAudioSpecificConfig(reader);
        break;
    case 24:
        config.erCelpConfig = parseErrorResilientCelpSpecificConfig(reader);
        break;
    case 25:
        config.erHvxcConfig = parseErrorResilientHvxcSpecificConfig(reader);
        break;
    case 26:
    case 27:
        config.parametricConfig = parseParametricSpecificConfig(reader);
        break;
    case 28:
        config.sscConfig = parseSSCSpecificConfig(reader, config.channelConfiguration);
        break;
    case 32:
    case 33:
    case 34:
        config.mpeg12Extension = reader.readUnsigned(1);
        break;
    default:
        break;
    }
}

bool isErrorResilient(std::uint32_t audioObjectType) noexcept {
    return audioObjectType == 17 || (audioObjectType >= 19 && audioObjectType <= 27);
}

//   epConfig                                                   2
//   if (epConfig == 2 || epConfig == 3) ErrorProtectionSpecificConfig( )
//   if (epConfig == 3)
//     directMapping                                            1
void parseErrorProtection(BitReader& reader, AudioSpecificConfig& config) {
    config.epConfig = reader.readUnsigned(2);
    if (config.epConfig >= 2) {
        config.errorProtectionConfig = parseErrorProtectionSpecificConfig(reader);
    }
    if (config.epConfig == 3) {
        config.directMapping = reader.readUnsigned(1);
    }
}

} // namespace

// 1.6.2.1 GetAudioObjectType( )
//   audioObjectType                                            5
//   if (audioObjectType == 31)
//     audioObjectType = 32 + audioObjectTypeExt                6
std::uint32_t getAudioObjectType(BitReader& reader) noexcept {
    const std::uint32_t type = reader.readUnsigned(5);
    return type == 31 ? 32 + reader.readUnsigned(6) : type;
}

// 1.6.2.1 AudioSpecificConfig( )
//   audioObjectType = GetAudioObjectType( )
//   the sampling frequency
//   channelConfiguration                                       4
//   sbrPresentFlag = -1
//   if (audioObjectType == 5) {
//     extensionAudioObjectType = audioObjectType
//     sbrPresentFlag = 1
//     the extension sampling frequency
//     audioObjectType = GetAudioObjectType( )
//   } else
//     extensionAudioObjectType = 0
//   the specific configuration of audioObjectType
//   switch (audioObjectType) case 17, 19 to 27: the error protection
void parseAudioSpecificConfig(BitReader& reader, AudioSpecificConfig& config) {
    constexpr std::uint32_t sbr = 5;
    config.audioObjectType = getAudioObjectType(reader);
    config.samplingFrequency = readSamplingFrequency(reader, config.samplingFrequencyIndex);
    config.channelConfiguration = reader.readUnsigned(4);
    config.sbrPresentFlag = -1;
    if (config.audioObjectType == sbr) {
        config.extensionAudioObjectType = sbr;
        config.sbrPresentFlag = 1;
        config.extensionSamplingFrequency =
            readSamplingFrequency(reader, config.extensionSamplingFrequencyIndex);
        config.audioObjectType = getAudioObjectType(reader);
    }
    parseSpecificConfig(reader, config);
    if (isErrorResilient(config.audioObjectType)) {
        parseErrorProtection(reader, config);
    }
}

AudioSpecificConfig parseAudioSpecificConfig(BitReader& reader) {
    AudioSpecificConfig config;
    parseAudioSpecificConfig(reader, config);
    return config;
}

} // namespace KorvelVideo::Network
