#include "H264VuiParameters.h"

#include "ExpGolomb.h"

namespace KorvelVideo::Network {

namespace {

std::uint8_t readFlag(BitReader& reader) noexcept {
    return static_cast<std::uint8_t>(reader.readUnsigned(1));
}
std::uint8_t readByte(BitReader& reader) noexcept {
    return static_cast<std::uint8_t>(reader.readUnsigned(8));
}

std::uint32_t readRbspWord(BitReader& reader) noexcept {
    const auto value = static_cast<std::uint32_t>(reader.peekRbspBits(32));
    reader.skipRbspBits(32);
    return value;
}

void parseAspectRatio(BitReader& reader, H264VuiParameters& vui) noexcept {
    constexpr std::uint8_t extendedSar = 255;
    vui.aspect_ratio_idc = readByte(reader);
    if (vui.aspect_ratio_idc == extendedSar) {
        vui.sar_width = static_cast<std::uint16_t>(reader.readUnsigned(16));
        vui.sar_height = static_cast<std::uint16_t>(reader.readUnsigned(16));
    }
}

void parseVideoSignalType(BitReader& reader, H264VuiParameters& vui) noexcept {
    vui.video_format = static_cast<std::uint8_t>(reader.readUnsigned(3));
    vui.video_full_range_flag = readFlag(reader);
    vui.colour_description_present_flag = readFlag(reader);
    if (vui.colour_description_present_flag != 0) {
        vui.colour_primaries = readByte(reader);
        vui.transfer_characteristics = readByte(reader);
        vui.matrix_coefficients = readByte(reader);
    }
}

// The wide fields are those in which emulation prevention bytes occur in practice (00 00 03 00 01); they
// alone are read across them.
void parseTimingInfo(BitReader& reader, H264VuiParameters& vui) noexcept {
    vui.num_units_in_tick = readRbspWord(reader);
    vui.time_scale = readRbspWord(reader);
    vui.fixed_frame_rate_flag = readFlag(reader);
}

bool parseOptionalHrd(BitReader& reader, std::optional<H264HrdParameters>& hrd) noexcept {
    if (readFlag(reader) == 0) {
        return false;
    }
    parseH264HrdParameters(reader, hrd.emplace());
    return true;
}

} // namespace

// E.1.2 hrd_parameters( )                                      descriptor
//   cpb_cnt_minus1                                             ue(v)
//   bit_rate_scale                                             u(4)
//   cpb_size_scale                                             u(4)
//   for (SchedSelIdx = 0; SchedSelIdx <= cpb_cnt_minus1; SchedSelIdx++) {
//     bit_rate_value_minus1[SchedSelIdx]                       ue(v)
//     cpb_size_value_minus1[SchedSelIdx]                       ue(v)
//     cbr_flag[SchedSelIdx]                                    u(1)
//   }
//   initial_cpb_removal_delay_length_minus1                    u(5)
//   cpb_removal_delay_length_minus1                            u(5)
//   dpb_output_delay_length_minus1                             u(5)
//   time_offset_length                                         u(5)
void parseH264HrdParameters(BitReader& reader, H264HrdParameters& hrd) noexcept {
    hrd.cpb_cnt_minus1 = readUe32(reader);
    if (hrd.cpb_cnt_minus1 >= H264HrdParameters::c_maxCpbCount) {
        hrd.cpb_cnt_minus1 = 0;
    }
    hrd.bit_rate_scale = reader.readUnsigned(4);
    hrd.cpb_size_scale = reader.readUnsigned(4);
    for (std::uint32_t i = 0; i <= hrd.cpb_cnt_minus1; ++i) {
        hrd.bit_rate_value_minus1[i] = readUe32(reader);
        hrd.cpb_size_value_minus1[i] = readUe32(reader);
        hrd.cbr_flag[i] = reader.readUnsigned(1);
        hrd.BitRate[i] = (hrd.bit_rate_value_minus1[i] + 1) << (hrd.bit_rate_scale + 6);
    }
    reader.skipBits(4 * 5);
}

// E.1.1 vui_parameters( )                                      descriptor
//   aspect_ratio_info_present_flag                             u(1)
//   if (aspect_ratio_info_present_flag) {
//     aspect_ratio_idc                                         u(8)
//     if (aspect_ratio_idc == Extended_SAR)
//       sar_width, sar_height                                  u(16) each
//   }
//   overscan_info_present_flag                                 u(1)
//   if (overscan_info_present_flag)
//     overscan_appropriate_flag                                u(1)
//   video_signal_type_present_flag                             u(1)
//   if (video_signal_type_present_flag) {
//     video_format                                             u(3)
//     video_full_range_flag                                    u(1)
//     colour_description_present_flag                          u(1)
//     if (colour_description_present_flag)
//       colour_primaries, transfer_characteristics, matrix_coefficients   u(8) each
//   }
//   chroma_loc_info_present_flag                               u(1)
//   if (chroma_loc_info_present_flag)
//     chroma_sample_loc_type_top_field, chroma_sample_loc_type_bottom_field   ue(v) each
//   timing_info_present_flag                                   u(1)
//   if (timing_info_present_flag) {
//     num_units_in_tick, time_scale                            u(32) each
//     fixed_frame_rate_flag                                    u(1)
//   }
//   nal_hrd_parameters_present_flag                            u(1)
//   if (nal_hrd_parameters_present_flag) hrd_parameters( )
//   vcl_hrd_parameters_present_flag                            u(1)
//   if (vcl_hrd_parameters_present_flag) hrd_parameters( )
//   if (nal_hrd_parameters_present_flag || vcl_hrd_parameters_present_flag)
//     low_delay_hrd_flag                                       u(1)
//   pic_struct_present_flag                                    u(1)
//   bitstream_restriction_flag ...                             not needed, and nothing follows
void parseH264VuiParameters(BitReader& reader, H264VuiParameters& vui) noexcept {
    vui.aspect_ratio_info_present_flag = readFlag(reader);
    if (vui.aspect_ratio_info_present_flag != 0) {
        parseAspectRatio(reader, vui);
    }
    vui.overscan_info_present_flag = readFlag(reader);
    if (vui.overscan_info_present_flag != 0) {
        vui.overscan_appropriate_flag = readFlag(reader);
    }
    vui.video_signal_type_present_flag = readFlag(reader);
    if (vui.video_signal_type_present_flag != 0) {
        parseVideoSignalType(reader, vui);
    }
    vui.chroma_loc_info_present_flag = readFlag(reader);
    if (vui.chroma_loc_info_present_flag != 0) {
        vui.chroma_sample_loc_type_top_field = readUe32(reader);
        vui.chroma_sample_loc_type_bottom_field = readUe32(reader);
    }
    vui.timing_info_present_flag = readFlag(reader);
    if (vui.timing_info_present_flag != 0) {
        parseTimingInfo(reader, vui);
    }
    const bool hasNalHrd = parseOptionalHrd(reader, vui.nalHrdParameters);
    const bool hasVclHrd = parseOptionalHrd(reader, vui.vclHrdParameters);
    if (hasNalHrd || hasVclHrd) {
        reader.skipBits(1);
    }
    vui.pic_struct_present_flag = readFlag(reader);
}

} // namespace KorvelVideo::Network
