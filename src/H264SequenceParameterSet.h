#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "BitReader.h"
#include "H264VuiParameters.h"

namespace KorvelVideo::Network {

// An H.264 sequence parameter set (ISO/IEC 14496-10, 7.3.2.1.1) and what follows from it: the size, depth,
// shape and rate of the picture. Fields bear the standard's names and hold the values as read; what the
// stream does not carry is 0.
//
// Parsing never fails: behind the end of the payload everything reads as 0. Emulation prevention bytes stay
// in the payload; only the two 32-bit timing fields, where they occur in practice, are read across them.
//
// Bounds: time in proportion to the payload, plus a constant (480 scaling list entries, 64 HRD entries).
// Memory beyond the record: offset_for_ref_frame, at most one 4-byte entry for each bit of the payload.
class H264SequenceParameterSet {
public:
    // payload: the bytes behind the NAL unit header, profile_idc first; not kept. size: in bytes.
    H264SequenceParameterSet(const std::uint8_t* payload, std::uint32_t size);

    // The cropped size in luma samples, in unsigned 32-bit arithmetic: a crop larger than the picture gives
    // the difference modulo 2^32, so a number close to 2^32.
    [[nodiscard]] std::uint32_t getWidth() const noexcept;
    [[nodiscard]] std::uint32_t getHeight() const noexcept;
    [[nodiscard]] std::uint32_t getLumaBitDepth() const noexcept;
    // Of the displayed picture: width / height x sample aspect ratio (Table E-1). 0.0 when the size is empty.
    [[nodiscard]] double getDisplayAspectRatio() const noexcept;
    // Frames a second of progressive video, fields a second otherwise; 0.0 unless the rate is known and
    // fixed.
    [[nodiscard]] double getFrameRate() const noexcept;
    [[nodiscard]] std::uint8_t getProfileIdc() const noexcept { return profile_idc; }
    [[nodiscard]] std::uint8_t getLevelIdc() const noexcept { return level_idc; }
    // Code points of Annex E; 0 without VUI.
    [[nodiscard]] std::uint8_t getColourPrimaries() const noexcept;
    [[nodiscard]] std::uint8_t getTransferCharacteristics() const noexcept;
    [[nodiscard]] std::uint8_t getMatrixCoefficients() const noexcept;
    [[nodiscard]] std::uint8_t getVideoFullRangeFlag() const noexcept;

    std::uint8_t profile_idc = 0;
    std::uint8_t level_idc = 0;
    std::uint32_t seq_parameter_set_id = 0;
    std::uint8_t chroma_format_idc = 0;
    std::uint8_t separate_colour_plane_flag = 0;
    std::uint8_t ChromaArrayType = 0;
    std::uint8_t bit_depth_luma_minus8 = 0;
    std::uint8_t bit_depth_chroma_minus8 = 0;
    std::uint32_t pic_width_in_mbs_minus1 = 0;
    std::uint32_t pic_height_in_map_units_minus1 = 0;
    std::uint32_t log2_max_frame_num_minus4 = 0;
    std::uint32_t pic_order_cnt_type = 0;
    std::uint32_t log2_max_pic_order_cnt_lsb_minus4 = 0;
    std::uint8_t delta_pic_order_always_zero_flag = 0;
    std::int32_t offset_for_non_ref_pic = 0;
    std::int32_t offset_for_top_to_bottom_field = 0;
    std::uint32_t num_ref_frames_in_pic_order_cnt_cycle = 0;
    std::vector<std::int32_t> offset_for_ref_frame; // ends with the payload, whatever the count announces
    std::uint32_t max_num_ref_frames = 0;
    std::uint8_t frame_mbs_only_flag = 0;
    std::uint8_t mb_adaptive_frame_field_flag = 0;
    std::uint8_t frame_cropping_flag = 0;
    std::uint64_t frame_crop_left_offset = 0; // the size uses the low 32 bits of each offset
    std::uint64_t frame_crop_right_offset = 0;
    std::uint64_t frame_crop_top_offset = 0;
    std::uint64_t frame_crop_bottom_offset = 0;
    std::optional<H264VuiParameters> vui;

private:
    void parse(BitReader& reader);
    void parseChromaAndDepth(BitReader& reader) noexcept;
    void parsePictureOrderCount(BitReader& reader);
    void parseFrameCropping(BitReader& reader) noexcept;
    [[nodiscard]] std::uint32_t cropUnitX() const noexcept;
    [[nodiscard]] std::uint32_t cropUnitY() const noexcept;
    [[nodiscard]] double sampleAspectRatio() const noexcept;
};

} // namespace KorvelVideo::Network
