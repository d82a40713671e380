#include "GASpecificConfig.h"

namespace KorvelVideo::Network {

namespace {

void readValues(BitReader& reader, std::uint32_t count, std::int32_t bits,
                std::vector<std::uint32_t>& values) {
    values.reserve(count);
    for (std::uint32_t i = 0; i < count; ++i) {
        values.push_back(reader.readUnsigned(bits));
    }
}

void readFlagsAndTags(BitReader& reader, std::uint32_t count, std::vector<std::uint32_t>& flags,
                      std::vector<std::uint32_t>& tags) {
    flags.reserve(count);
    tags.reserve(count);
    for (std::uint32_t i = 0; i < count; ++i) {
        flags.push_back(reader.readUnsigned(1));
        tags.push_back(reader.readUnsigned(4));
    }
}

//   mono_mixdown_present                                       1
//   if (mono_mixdown_present == 1)
//     mono_mixdown_element_number                              4
//   stereo_mixdown_present                                     1
//   if (stereo_mixdown_present == 1)
//     stereo_mixdown_element_number                            4
//   matrix_mixdown_idx_present                                 1
//   if (matrix_mixdown_idx_present == 1) {
//     matrix_mixdown_idx                                       2
//     pseudo_surround_enable                                   1
//   }
void parseMixdown(BitReader& reader, ProgramConfigElement& element) {
    element.mono_mixdown_present = reader.readUnsigned(1);
    if (element.mono_mixdown_present == 1) {
        element.mono_mixdown_element_number = reader.readUnsigned(4);
    }
    element.stereo_mixdown_present = reader.readUnsigned(1);
    if (element.stereo_mixdown_present == 1) {
        element.stereo_mixdown_element_number = reader.readUnsigned(4);
    }
    element.matrix_mixdown_idx_present = reader.readUnsigned(1);
    if (element.matrix_mixdown_idx_present == 1) {
        element.matrix_mixdown_idx = reader.readUnsigned(2);
        element.pseudo_surround_enable = reader.readUnsigned(1);
    }
}

//   if (extensionFlag) {
//     if (audioObjectType == 22) {
//       numOfSubFrame                                          5
//       layer_length                                           11
//     }
//     if (audioObjectType == 17 || 19 || 20 || 23) {
//       aacSectionDataResilienceFlag                           1
//       aacScalefactorDataResilienceFlag                       1
//       aacSpectralDataResilienceFlag                          1
//     }
//     extensionFlag3                                           1
//   }
void parseExtension(BitReader& reader, std::uint32_t audioObjectType, GASpecificConfig& config) {
    switch (audioObjectType) {
    case 22:
        config.numOfSubFrame = reader.readUnsigned(5);
        config.layer_length = reader.readUnsigned(11);
        break;
    case 17:
    case 19:
    case 20:
    case 23:
        config.aacSectionDataResilienceFlag = reader.readUnsigned(1);
        config.aacScalefactorDataResilienceFlag = reader.readUnsigned(1);
        config.aacSpectralDataResilienceFlag = reader.readUnsigned(1);
        break;
    default:
        break;
    }
    config.extensionFlag3 = reader.readUnsigned(1);
}

} // namespace

// 4.4.1.1 program_config_element( )
//   element_instance_tag                                       4
//   object_type                                                2
//   sampling_frequency_index                                   4
//   num_front_channel_elements                                 4
//   num_side_channel_elements                                  4
//   num_back_channel_elements                                  4
//   num_lfe_channel_elements                                   2
//   num_assoc_data_elements                                    3
//   num_valid_cc_elements                                      4
//   the mixdown elements
//   front_element_is_cpe[i], front_element_tag_select[i]       1, 4
//   side_element_is_cpe[i], side_element_tag_select[i]         1, 4
//   back_element_is_cpe[i], back_element_tag_select[i]         1, 4
//   lfe_element_tag_select[i]                                  4
//   assoc_data_element_tag_select[i]                           4
//   cc_element_is_ind_sw[i], valid_cc_element_tag_select[i]    1, 4
//   byte_alignment( )
//   comment_field_bytes                                        8
//   comment_field_data[i]                                      8
ProgramConfigElement parseProgramConfigElement(BitReader& reader) {
    ProgramConfigElement element;
    element.element_instance_tag = reader.readUnsigned(4);
    element.object_type = reader.readUnsigned(2);
    element.sampling_frequency_index = reader.readUnsigned(4);
    element.num_front_channel_elements = reader.readUnsigned(4);
    element.num_side_channel_elements = reader.readUnsigned(4);
    element.num_back_channel_elements = reader.readUnsigned(4);
    element.num_lfe_channel_elements = reader.readUnsigned(2);
    element.num_assoc_data_elements = reader.readUnsigned(3);
    element.num_valid_cc_elements = reader.readUnsigned(4);
    parseMixdown(reader, element);
    readFlagsAndTags(reader, element.num_front_channel_elements, element.front_element_is_cpe,
                     element.front_element_tag_select);
    readFlagsAndTags(reader, element.num_side_channel_elements, element.side_element_is_cpe,
                     element.side_element_tag_select);
    readFlagsAndTags(reader, element.num_back_channel_elements, element.back_element_is_cpe,
                     element.back_element_tag_select);
    readValues(reader, element.num_lfe_channel_elements, 4, element.lfe_element_tag_select);
    readValues(reader, element.num_assoc_data_elements, 4, element.assoc_data_element_tag_select);
    readFlagsAndTags(reader, element.num_valid_cc_elements, element.cc_element_is_ind_sw,
                     element.valid_cc_element_tag_select);
    reader.byteAlign();
    element.comment_field_bytes = reader.readUnsigned(8);
    readValues(reader, element.comment_field_bytes, 8, element.comment_field_data);
    return element;
}

// 4.4.1 GASpecificConfig( )
//   frameLengthFlag                                            1
//   dependsOnCoreCoder                                         1
//   if (dependsOnCoreCoder)
//     coreCoderDelay                                           14
//   extensionFlag                                              1
//   if (!channelConfiguration) program_config_element( )
//   if (audioObjectType == 6 || audioObjectType == 20)
//     layerNr                                                  3
//   if (extensionFlag) the extension
void parseGASpecificConfig(BitReader& reader, std::uint32_t audioObjectType,
                           std::uint32_t channelConfiguration, GASpecificConfig& config) {
    config.frameLengthFlag = reader.readUnsigned(1);
    config.dependsOnCoreCoder = reader.readUnsigned(1);
    if (config.dependsOnCoreCoder == 1) {
        config.coreCoderDelay = reader.readUnsigned(14);
    }
    config.extensionFlag = reader.readUnsigned(1);
    if (channelConfiguration == 0) {
        config.programConfig = parseProgramConfigElement(reader);
    }
    if (audioObjectType == 6 || audioObjectType == 20) {
        config.layerNr = reader.readUnsigned(3);
    }
    if (config.extensionFlag == 1) {
        parseExtension(reader, audioObjectType, config);
    }
}

GASpecificConfig parseGASpecificConfig(BitReader& reader, std::uint32_t audioObjectType,
                                       std::uint32_t channelConfiguration) {
    GASpecificConfig config;
    parseGASpecificConfig(reader, audioObjectType, channelConfiguration, config);
    return config;
}

} // namespace KorvelVideo::Network
