#include "H264SequenceParameterSet.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <limits>

#include "ExpGolomb.h"

namespace KorvelVideo::Network {

namespace {

// Profiles whose parameter sets carry chroma_format_idc and what follows it.
bool carriesChromaFormat(std::uint8_t profile) noexcept {
    constexpr std::uint8_t profiles[] = {44, 83, 86, 100, 110, 118, 122, 128, 244};
    return std::find(std::begin(profiles), std::end(profiles), profile) != std::end(profiles);
}

std::uint8_t readFlag(BitReader& reader) noexcept {
    return static_cast<std::uint8_t>(reader.readUnsigned(1));
}

// 7.3.2.1.1.1 scaling_list( ): walked for its length, the values are not kept.
//   for (j = 0; j < sizeOfScalingList; j++) {
//     if (nextScale != 0) {
//       delta_scale                                            se(v)
//       nextScale = (lastScale + delta_scale + 256) % 256
//     }
//     lastScale = nextScale == 0 ? lastScale : nextScale
//   }
void skipScalingList(BitReader& reader, std::uint32_t sizeOfScalingList) noexcept {
    std::uint32_t lastScale = 8;
    for (std::uint32_t j = 0; j < sizeOfScalingList; ++j) {
        const std::uint32_t nextScale = (lastScale + static_cast<std::uint32_t>(readSe(reader))) % 256;
        if (nextScale == 0) {
            return; // the rest of the list repeats lastScale and has no bits
        }
        lastScale = nextScale;
    }
}

//   for (i = 0; i < ((chroma_format_idc != 3) ? 8 : 12); i++) {
//     seq_scaling_list_present_flag[i]                         u(1)
//     if (seq_scaling_list_present_flag[i])
//       scaling_list( ) of 16 entries for i < 6, else of 64
//   }
void skipScalingLists(BitReader& reader, std::uint8_t chroma_format_idc) noexcept {
    const std::uint32_t lists = chroma_format_idc == 3 ? 12 : 8;
    for (std::uint32_t i = 0; i < lists; ++i) {
        if (readFlag(reader) != 0) {
            skipScalingList(reader, i < 6 ? 16 : 64);
        }
    }
}

} // namespace

H264SequenceParameterSet::H264SequenceParameterSet(const std::uint8_t* payload, std::uint32_t size) {
    constexpr std::uint32_t largest = std::numeric_limits<std::int32_t>::max();
    BitReader reader(payload, static_cast<std::int32_t>(std::min(size, largest)));
    parse(reader);
}

// 7.3.2.1.1 seq_parameter_set_data( )                          descriptor
//   profile_idc                                                u(8)
//   constraint flags, reserved_zero_2bits                      u(8)
//   level_idc                                                  u(8)
//   seq_parameter_set_id                                       ue(v)
//   if (profile_idc is one of the high profiles) chroma format, bit depths, scaling matrix
//   log2_max_frame_num_minus4                                  ue(v)
//   pic_order_cnt_type ...
//   max_num_ref_frames                                         ue(v)
//   gaps_in_frame_num_value_allowed_flag                       u(1)
//   pic_width_in_mbs_minus1                                    ue(v)
//   pic_height_in_map_units_minus1                             ue(v)
//   frame_mbs_only_flag                                        u(1)
//   if (!frame_mbs_only_flag)
//     mb_adaptive_frame_field_flag                             u(1)
//   direct_8x8_inference_flag                                  u(1)
//   frame_cropping_flag                                        u(1)
//   if (frame_cropping_flag) the four offsets
//   vui_parameters_present_flag                                u(1)
//   if (vui_parameters_present_flag) vui_parameters( )
void H264SequenceParameterSet::parse(BitReader& reader) {
    profile_idc = static_cast<std::uint8_t>(reader.readUnsigned(8));
    reader.skipBits(8);
    level_idc = static_cast<std::uint8_t>(reader.readUnsigned(8));
    seq_parameter_set_id = readUe32(reader);
    if (carriesChromaFormat(profile_idc)) {
        parseChromaAndDepth(reader);
    } else {
        chroma_format_idc = 1; // 4:2:0, inferred
        ChromaArrayType = 1;
    }
    log2_max_frame_num_minus4 = readUe32(reader);
    parsePictureOrderCount(reader);
    max_num_ref_frames = readUe32(reader);
    reader.skipBits(1);
    pic_width_in_mbs_minus1 = readUe32(reader);
    pic_height_in_map_units_minus1 = readUe32(reader);
    frame_mbs_only_flag = readFlag(reader);
    if (frame_mbs_only_flag == 0) {
        mb_adaptive_frame_field_flag = readFlag(reader);
    }
    reader.skipBits(1);
    parseFrameCropping(reader);
    if (readFlag(reader) != 0) {
        parseH264VuiParameters(reader, vui.emplace());
    }
}

//   chroma_format_idc                                          ue(v)
//   if (chroma_format_idc == 3)
//     separate_colour_plane_flag                               u(1)
//   bit_depth_luma_minus8                                      ue(v)
//   bit_depth_chroma_minus8                                    ue(v)
//   qpprime_y_zero_transform_bypass_flag                       u(1)
//   seq_scaling_matrix_present_flag                            u(1)
//   if (seq_scaling_matrix_present_flag) the scaling lists
void H264SequenceParameterSet::parseChromaAndDepth(BitReader& reader) noexcept {
    chroma_format_idc = readUe8(reader);
    if (chroma_format_idc == 3) {
        separate_colour_plane_flag = readFlag(reader);
    }
    ChromaArrayType = separate_colour_plane_flag == 1 ? std::uint8_t{0} : chroma_format_idc;
    bit_depth_luma_minus8 = readUe8(reader);
    bit_depth_chroma_minus8 = readUe8(reader);
    reader.skipBits(1);
    if (readFlag(reader) != 0) {
        skipScalingLists(reader, chroma_format_idc);
    }
}

//   pic_order_cnt_type                                         ue(v)
//   if (pic_order_cnt_type == 0)
//     log2_max_pic_order_cnt_lsb_minus4                        ue(v)
//   else if (pic_order_cnt_type == 1) {
//     delta_pic_order_always_zero_flag                         u(1)
//     offset_for_non_ref_pic                                   se(v)
//     offset_for_top_to_bottom_field                           se(v)
//     num_ref_frames_in_pic_order_cnt_cycle                    ue(v)
//     for (i = 0; i < num_ref_frames_in_pic_order_cnt_cycle; i++)
//       offset_for_ref_frame[i]                                se(v)
//   }
void H264SequenceParameterSet::parsePictureOrderCount(BitReader& reader) {
    pic_order_cnt_type = readUe32(reader);
    if (pic_order_cnt_type == 0) {
        log2_max_pic_order_cnt_lsb_minus4 = readUe32(reader);
    } else if (pic_order_cnt_type == 1) {
        delta_pic_order_always_zero_flag = readFlag(reader);
        offset_for_non_ref_pic = readSe(reader);
        offset_for_top_to_bottom_field = readSe(reader);
        num_ref_frames_in_pic_order_cnt_cycle = readUe32(reader);
        for (std::uint32_t i = 0; i < num_ref_frames_in_pic_order_cnt_cycle && reader.bitsLeft() > 0; ++i) {
            offset_for_ref_frame.push_back(readSe(reader));
        }
    }
}

//   frame_cropping_flag                                        u(1)
//   if (frame_cropping_flag)
//     frame_crop_{left,right,top,bottom}_offset                ue(v) each
void H264SequenceParameterSet::parseFrameCropping(BitReader& reader) noexcept {
    frame_cropping_flag = readFlag(reader);
    if (frame_cropping_flag != 0) {
        frame_crop_left_offset = readUe(reader);
        frame_crop_right_offset = readUe(reader);
        frame_crop_top_offset = readUe(reader);
        frame_crop_bottom_offset = readUe(reader);
    }
}

// SubWidthC and SubHeightC of Table 6-1 with the crop units of 7.4.2.1.1. Formats above 4:4:4 do not exist;
// they are taken as unsubsampled.
std::uint32_t H264SequenceParameterSet::cropUnitX() const noexcept {
    return ChromaArrayType == 1 || ChromaArrayType == 2 ? 2 : 1;
}

std::uint32_t H264SequenceParameterSet::cropUnitY() const noexcept {
    return (ChromaArrayType == 1 ? 2U : 1U) * (2U - frame_mbs_only_flag);
}

std::uint32_t H264SequenceParameterSet::getWidth() const noexcept {
    const auto crop = static_cast<std::uint32_t>(frame_crop_left_offset + frame_crop_right_offset);
    return (pic_width_in_mbs_minus1 + 1) * 16 - crop * cropUnitX();
}

std::uint32_t H264SequenceParameterSet::getHeight() const noexcept {
    const auto crop = static_cast<std::uint32_t>(frame_crop_top_offset + frame_crop_bottom_offset);
    return (2U - frame_mbs_only_flag) * (pic_height_in_map_units_minus1 + 1) * 16 - crop * cropUnitY();
}

std::uint32_t H264SequenceParameterSet::getLumaBitDepth() const noexcept {
    return bit_depth_luma_minus8 + 8U;
}

double H264SequenceParameterSet::getDisplayAspectRatio() const noexcept {
    const std::uint32_t width = getWidth();
    const std::uint32_t height = getHeight();
    if (width == 0 || height == 0) {
        return 0.0;
    }
    return static_cast<double>(width) / static_cast<double>(height) * sampleAspectRatio();
}

double H264SequenceParameterSet::sampleAspectRatio() const noexcept {
    // Table E-1; 0 is unspecified.
    static constexpr std::array<double, 17> ratios = {
        1.0,         1.0,          12.0 / 11.0, 10.0 / 11.0, 16.0 / 11.0, 40.0 / 33.0,
        24.0 / 11.0, 20.0 / 11.0,  32.0 / 11.0, 80.0 / 33.0, 18.0 / 11.0, 15.0 / 11.0,
        64.0 / 33.0, 160.0 / 99.0, 4.0 / 3.0,   3.0 / 2.0,   2.0};
    if (!vui || vui->aspect_ratio_info_present_flag == 0) {
        return 1.0;
    }
    if (vui->aspect_ratio_idc < ratios.size()) {
        return ratios[vui->aspect_ratio_idc];
    }
    if (vui->sar_width == 0 || vui->sar_height == 0) {
        return 1.0;
    }
    return static_cast<double>(vui->sar_width) / static_cast<double>(vui->sar_height);
}

double H264SequenceParameterSet::getFrameRate() const noexcept {
    if (!vui || vui->fixed_frame_rate_flag == 0 || vui->timing_info_present_flag == 0 ||
        vui->num_units_in_tick == 0) {
        return 0.0;
    }
    const double fields = static_cast<double>(vui->time_scale) / static_cast<double>(vui->num_units_in_tick);
    return frame_mbs_only_flag != 0 ? fields / 2.0 : fields;
}

std::uint8_t H264SequenceParameterSet::getColourPrimaries() const noexcept {
    return vui ? vui->colour_primaries : std::uint8_t{0};
}

std::uint8_t H264SequenceParameterSet::getTransferCharacteristics() const noexcept {
    return vui ? vui->transfer_characteristics : std::uint8_t{0};
}

std::uint8_t H264SequenceParameterSet::getMatrixCoefficients() const noexcept {
    return vui ? vui->matrix_coefficients : std::uint8_t{0};
}

std::uint8_t H264SequenceParameterSet::getVideoFullRangeFlag() const noexcept {
    return vui ? vui->video_full_range_flag : std::uint8_t{0};
}

} // namespace KorvelVideo::Network
