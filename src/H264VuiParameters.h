#pragma once

#include <cstdint>
#include <optional>

#include "BitReader.h"

namespace KorvelVideo::Network {

// Video usability information of an H.264 sequence parameter set: ISO/IEC 14496-10, Annex E.
// The fields bear the standard's names; what the stream does not carry is 0. Nothing is validated.
// Time: at most 32 rounds for each HRD record, whatever the stream announces. No allocation.

// Hypothetical reference decoder parameters, E.1.2.
struct H264HrdParameters {
    static constexpr std::uint32_t c_maxCpbCount = 32;

    std::uint32_t cpb_cnt_minus1 = 0; // above 31 becomes 0
    std::uint32_t bit_rate_scale = 0;
    std::uint32_t cpb_size_scale = 0;
    std::uint32_t bit_rate_value_minus1[c_maxCpbCount] = {};
    std::uint32_t cpb_size_value_minus1[c_maxCpbCount] = {};
    std::uint32_t cbr_flag[c_maxCpbCount] = {};
    std::uint32_t BitRate[c_maxCpbCount] = {}; // bits per second, modulo 2^32
};

// E.1.1
struct H264VuiParameters {
    std::uint8_t aspect_ratio_info_present_flag = 0;
    std::uint8_t aspect_ratio_idc = 0;
    std::uint16_t sar_width = 0;
    std::uint16_t sar_height = 0;
    std::uint8_t overscan_info_present_flag = 0;
    std::uint8_t overscan_appropriate_flag = 0;
    std::uint8_t video_signal_type_present_flag = 0;
    std::uint8_t video_format = 0;
    std::uint8_t video_full_range_flag = 0;
    std::uint8_t colour_description_present_flag = 0;
    std::uint8_t colour_primaries = 0;
    std::uint8_t transfer_characteristics = 0;
    std::uint8_t matrix_coefficients = 0;
    std::uint8_t chroma_loc_info_present_flag = 0;
    std::uint32_t chroma_sample_loc_type_top_field = 0;
    std::uint32_t chroma_sample_loc_type_bottom_field = 0;
    std::uint8_t timing_info_present_flag = 0;
    std::uint8_t pic_struct_present_flag = 0;
    std::uint32_t num_units_in_tick = 0;
    std::uint32_t time_scale = 0;
    std::uint8_t fixed_frame_rate_flag = 0;
    std::optional<H264HrdParameters> nalHrdParameters;
    std::optional<H264HrdParameters> vclHrdParameters;
};

void parseH264HrdParameters(BitReader& reader, H264HrdParameters& hrd) noexcept;
void parseH264VuiParameters(BitReader& reader, H264VuiParameters& vui) noexcept;

} // namespace KorvelVideo::Network
