#pragma once

#include <cstdint>
#include <vector>

#include "BitReader.h"

namespace KorvelVideo::Network {

// Decoder configuration of the AAC family: ISO/IEC 14496-3, 4.4.1. Fields bear the standard's names; what is
// not read is 0 or empty. Nothing is validated, missing bits read as 0.
//
// Bounds: constant. A program_config_element has at most 15 elements of each kind and 255 comment bytes, so
// less than 2 kB of memory.

// program_config_element( ), 4.4.1.1.
struct ProgramConfigElement {
    std::uint32_t element_instance_tag = 0;
    std::uint32_t object_type = 0;
    std::uint32_t sampling_frequency_index = 0;
    std::uint32_t num_front_channel_elements = 0;
    std::uint32_t num_side_channel_elements = 0;
    std::uint32_t num_back_channel_elements = 0;
    std::uint32_t num_lfe_channel_elements = 0;
    std::uint32_t num_assoc_data_elements = 0;
    std::uint32_t num_valid_cc_elements = 0;
    std::uint32_t mono_mixdown_present = 0;
    std::uint32_t mono_mixdown_element_number = 0;
    std::uint32_t stereo_mixdown_present = 0;
    std::uint32_t stereo_mixdown_element_number = 0;
    std::uint32_t matrix_mixdown_idx_present = 0;
    std::uint32_t matrix_mixdown_idx = 0;
    std::uint32_t pseudo_surround_enable = 0;
    std::vector<std::uint32_t> front_element_is_cpe{};
    std::vector<std::uint32_t> front_element_tag_select{};
    std::vector<std::uint32_t> side_element_is_cpe{};
    std::vector<std::uint32_t> side_element_tag_select{};
    std::vector<std::uint32_t> back_element_is_cpe{};
    std::vector<std::uint32_t> back_element_tag_select{};
    std::vector<std::uint32_t> lfe_element_tag_select{};
    std::vector<std::uint32_t> assoc_data_element_tag_select{};
    std::vector<std::uint32_t> cc_element_is_ind_sw{};
    std::vector<std::uint32_t> valid_cc_element_tag_select{};
    std::uint32_t comment_field_bytes = 0;
    std::vector<std::uint32_t> comment_field_data{}; // one element a byte

    bool operator==(const ProgramConfigElement&) const = default;
};

struct GASpecificConfig {
    std::uint32_t frameLengthFlag = 0;
    std::uint32_t dependsOnCoreCoder = 0;
    std::uint32_t coreCoderDelay = 0;
    std::uint32_t extensionFlag = 0;
    ProgramConfigElement programConfig; // when the channel configuration is 0
    std::uint32_t layerNr = 0;
    std::uint32_t numOfSubFrame = 0;
    std::uint32_t layer_length = 0;
    std::uint32_t aacSectionDataResilienceFlag = 0;
    std::uint32_t aacScalefactorDataResilienceFlag = 0;
    std::uint32_t aacSpectralDataResilienceFlag = 0;
    std::uint32_t extensionFlag3 = 0;

    bool operator==(const GASpecificConfig&) const = default;
};

[[nodiscard]] GASpecificConfig parseGASpecificConfig(BitReader& reader, std::uint32_t audioObjectType,
                                                     std::uint32_t channelConfiguration);
// The same into a default record, where it stays: the record is large.
void parseGASpecificConfig(BitReader& reader, std::uint32_t audioObjectType,
                           std::uint32_t channelConfiguration, GASpecificConfig& config);

// The comment field is aligned to the reader's own byte boundaries.
[[nodiscard]] ProgramConfigElement parseProgramConfigElement(BitReader& reader);

} // namespace KorvelVideo::Network
