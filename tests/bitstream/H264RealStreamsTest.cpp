#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <string>

#include "H264SequenceParameterSet.h"
#include "TestData.h"
#include "VideoFormatDetection.h"

// Parameter sets that x264 wrote, against what ffmpeg and ffprobe read from them.

using namespace KorvelVideo::Network;

namespace {

constexpr std::size_t c_startCodeAndHeader = 5;

using Expected = std::multimap<std::string, std::string>;

std::string property(const Expected& expected, const std::string& name) {
    const auto found = expected.find("ffprobe." + name);
    return found == expected.end() ? "unknown" : found->second;
}

double ratio(const std::string& text) { // "4:3", "30000/1001"
    const std::size_t separator = text.find_first_of(":/");
    return separator == std::string::npos ? 1.0 : std::stod(text) / std::stod(text.substr(separator + 1));
}

class RealParameterSets : public testing::TestWithParam<std::string> {
protected:
    const Bytes bytes = readBytes("sps/" + GetParam() + ".sps");
    const Expected expected = readExpected("sps/" + GetParam() + ".expected");
    const H264SequenceParameterSet sps{bytes.data() + c_startCodeAndHeader,
                                       static_cast<std::uint32_t>(bytes.size() - c_startCodeAndHeader)};
};

#define KV_ELEMENT(record, name)                                                                             \
    {                                                                                                        \
#name, [&] { return std::int64_t((record).name); }                                                   \
    }

std::map<std::string, std::function<std::int64_t()>> vuiElements(const H264VuiParameters& vui) {
    return {
        KV_ELEMENT(vui, aspect_ratio_info_present_flag),
        KV_ELEMENT(vui, aspect_ratio_idc),
        KV_ELEMENT(vui, sar_width),
        KV_ELEMENT(vui, sar_height),
        KV_ELEMENT(vui, overscan_info_present_flag),
        KV_ELEMENT(vui, overscan_appropriate_flag),
        KV_ELEMENT(vui, video_signal_type_present_flag),
        KV_ELEMENT(vui, video_format),
        KV_ELEMENT(vui, video_full_range_flag),
        KV_ELEMENT(vui, colour_description_present_flag),
        KV_ELEMENT(vui, colour_primaries),
        KV_ELEMENT(vui, transfer_characteristics),
        KV_ELEMENT(vui, matrix_coefficients),
        KV_ELEMENT(vui, chroma_loc_info_present_flag),
        KV_ELEMENT(vui, chroma_sample_loc_type_top_field),
        KV_ELEMENT(vui, chroma_sample_loc_type_bottom_field),
        KV_ELEMENT(vui, timing_info_present_flag),
        KV_ELEMENT(vui, num_units_in_tick),
        KV_ELEMENT(vui, time_scale),
        KV_ELEMENT(vui, fixed_frame_rate_flag),
        KV_ELEMENT(vui, pic_struct_present_flag),
        {"nal_hrd_parameters_present_flag", [&] { return vui.nalHrdParameters ? 1 : 0; }},
        {"vcl_hrd_parameters_present_flag", [&] { return vui.vclHrdParameters ? 1 : 0; }},
    };
}

std::map<std::string, std::function<std::int64_t()>> hrdElements(const H264HrdParameters& hrd) {
    return {
        KV_ELEMENT(hrd, cpb_cnt_minus1),           KV_ELEMENT(hrd, bit_rate_scale),
        KV_ELEMENT(hrd, cpb_size_scale),           KV_ELEMENT(hrd, bit_rate_value_minus1[0]),
        KV_ELEMENT(hrd, cpb_size_value_minus1[0]), KV_ELEMENT(hrd, cbr_flag[0]),
    };
}

std::map<std::string, std::function<std::int64_t()>> spsElements(const H264SequenceParameterSet& sps) {
    return {
        KV_ELEMENT(sps, profile_idc),
        KV_ELEMENT(sps, level_idc),
        KV_ELEMENT(sps, seq_parameter_set_id),
        KV_ELEMENT(sps, chroma_format_idc),
        KV_ELEMENT(sps, separate_colour_plane_flag),
        KV_ELEMENT(sps, bit_depth_luma_minus8),
        KV_ELEMENT(sps, bit_depth_chroma_minus8),
        KV_ELEMENT(sps, log2_max_frame_num_minus4),
        KV_ELEMENT(sps, pic_order_cnt_type),
        KV_ELEMENT(sps, log2_max_pic_order_cnt_lsb_minus4),
        KV_ELEMENT(sps, max_num_ref_frames),
        KV_ELEMENT(sps, pic_width_in_mbs_minus1),
        KV_ELEMENT(sps, pic_height_in_map_units_minus1),
        KV_ELEMENT(sps, frame_mbs_only_flag),
        KV_ELEMENT(sps, mb_adaptive_frame_field_flag),
        KV_ELEMENT(sps, frame_cropping_flag),
        KV_ELEMENT(sps, frame_crop_left_offset),
        KV_ELEMENT(sps, frame_crop_right_offset),
        KV_ELEMENT(sps, frame_crop_top_offset),
        KV_ELEMENT(sps, frame_crop_bottom_offset),
        {"vui_parameters_present_flag", [&] { return sps.vui ? 1 : 0; }},
    };
}

#undef KV_ELEMENT

TEST_P(RealParameterSets, EverySyntaxElement) {
    auto elements = spsElements(sps);
    ASSERT_TRUE(sps.vui);
    elements.merge(vuiElements(*sps.vui));
    if (sps.vui->nalHrdParameters) {
        elements.merge(hrdElements(*sps.vui->nalHrdParameters));
    }
    std::size_t compared = 0;
    for (const auto& [name, value] : expected) {
        if (const auto element = elements.find(name); element != elements.end()) {
            EXPECT_EQ(element->second(), std::stoll(value)) << name;
            ++compared;
        }
    }
    EXPECT_GE(compared, 20U);
}

TEST_P(RealParameterSets, DerivedNumbers) {
    const double size = std::stod(property(expected, "width")) / std::stod(property(expected, "height"));
    const double rate =
        ratio(property(expected, "r_frame_rate")) * (sps.frame_mbs_only_flag != 0 ? 1.0 : 2.0);
    const bool isFixed = expected.find("fixed_frame_rate_flag")->second == "1";
    EXPECT_DOUBLE_EQ(sps.getDisplayAspectRatio(), size * ratio(property(expected, "sample_aspect_ratio")));
    EXPECT_DOUBLE_EQ(sps.getFrameRate(), isFixed ? rate : 0.0);
    EXPECT_EQ(sps.getVideoFullRangeFlag(), property(expected, "color_range") == "pc" ? 1 : 0);
}

TEST_P(RealParameterSets, Description) {
    const std::map<std::string, std::uint32_t> rates = {
        {"24/1", keKvFrameRate24},     {"24000/1001", keKvFrameRate23_976}, {"25/1", keKvFrameRate25},
        {"30/1", keKvFrameRate30},     {"30000/1001", keKvFrameRate29_97},  {"50/1", keKvFrameRate50},
        {"60/1", keKvFrameRate60},     {"60000/1001", keKvFrameRate59_94},  {"15/1", keKvFrameRateUnknown},
        {"10/1", keKvFrameRateUnknown}};
    const std::map<std::string, std::uint32_t> colours = {
        {"bt709/bt709/bt709", keKvColourClassBt709},
        {"bt2020/bt2020-10/bt2020nc", keKvColourClassBt2020},
        {"bt2020/smpte2084/bt2020nc", keKvColourClassBt2020Pq},
        {"bt2020/arib-std-b67/bt2020nc", keKvColourClassBt2020Hlg},
        {"bt2020/unknown/bt2020nc", keKvColourClassBt2020FullRange},
        {"unknown/unknown/unknown", keKvColourClassUnknown}};
    const auto description = describeAvcConfiguration(bytes.data(), static_cast<std::uint32_t>(bytes.size()));
    const SKvVideoFormatDescription& format = description.format;
    EXPECT_EQ(format.m_size, 28U);
    EXPECT_EQ(format.m_width, std::stoul(property(expected, "width")));
    EXPECT_EQ(format.m_height, std::stoul(property(expected, "height")));
    EXPECT_EQ(format.m_bitDepth, std::stoul(property(expected, "bits_per_raw_sample")));
    const bool isFixed = expected.find("fixed_frame_rate_flag")->second == "1";
    EXPECT_EQ(format.m_frameRate,
              isFixed ? rates.at(property(expected, "r_frame_rate")) : keKvFrameRateUnknown);
    EXPECT_EQ(description.profile,
              std::stoul(property(expected, "profile")) & 0xFF); // without constraint bits
    EXPECT_EQ(description.level, std::stoul(property(expected, "level")));
    EXPECT_EQ(description.colourClass,
              colours.at(property(expected, "color_primaries") + "/" + property(expected, "color_transfer") +
                         "/" + property(expected, "color_space")));
}

// Every prefix of a parameter set is parsed inside its bounds (exact heap buffers under the address
// sanitizer).
TEST_P(RealParameterSets, CutAtEveryByte) {
    for (std::size_t size = 0; size < bytes.size(); ++size) {
        const Bytes cut(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size));
        const auto description = describeAvcConfiguration(cut.data(), static_cast<std::uint32_t>(cut.size()));
        EXPECT_EQ(description.profile, size > c_startCodeAndHeader ? sps.profile_idc : 0);
    }
}

INSTANTIATE_TEST_SUITE_P(X264, RealParameterSets, testing::ValuesIn(listCases("sps", ".sps")), nameOfFile);

} // namespace
