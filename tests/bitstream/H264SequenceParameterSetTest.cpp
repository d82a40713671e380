#include "H264SequenceParameterSet.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "BitWriter.h"
#include "TestData.h"

using namespace KorvelVideo::Network;

namespace {

H264SequenceParameterSet parse(const Bytes& payload) {
    return {payload.data(), static_cast<std::uint32_t>(payload.size())};
}

// A parameter set of 1920x1088 coded samples; each case changes what it is about.
struct Sps {
    std::uint8_t profile_idc = 66;
    std::uint32_t chroma_format_idc = 1;
    std::uint32_t separate_colour_plane_flag = 0;
    std::uint32_t bit_depth_luma_minus8 = 0;
    std::function<void(BitWriter&)> scalingMatrix = nullptr;
    std::function<void(BitWriter&)> pictureOrderCount = [](BitWriter& bits) { bits.ue(2); };
    std::uint32_t pic_width_in_mbs_minus1 = 119;
    std::uint32_t pic_height_in_map_units_minus1 = 67;
    std::uint32_t frame_mbs_only_flag = 1;
    std::vector<std::uint64_t> crop = {}; // left, right, top, bottom
    std::function<void(BitWriter&)> vui = nullptr;

    [[nodiscard]] Bytes payload() const {
        BitWriter bits;
        bits.u(profile_idc, 8).u(0xC0, 8).u(40, 8).ue(3);
        if (profile_idc >= 100) {
            bits.ue(chroma_format_idc);
            if (chroma_format_idc == 3) {
                bits.u(separate_colour_plane_flag, 1);
            }
            bits.ue(bit_depth_luma_minus8).ue(0).u(0, 1).u(scalingMatrix ? 1 : 0, 1);
            if (scalingMatrix) {
                scalingMatrix(bits);
            }
        }
        bits.ue(0);
        pictureOrderCount(bits);
        bits.ue(4).u(0, 1).ue(pic_width_in_mbs_minus1).ue(pic_height_in_map_units_minus1);
        bits.u(frame_mbs_only_flag, 1).bits(frame_mbs_only_flag == 0 ? "1" : "").u(1, 1);
        bits.u(crop.empty() ? 0 : 1, 1);
        for (const std::uint64_t offset : crop) {
            bits.ue(offset);
        }
        bits.u(vui ? 1 : 0, 1);
        if (vui) {
            vui(bits);
        }
        return bits.u(1, 1).data();
    }
};

struct SizeCase {
    const char* name;
    Sps sps;
    std::uint32_t width;
    std::uint32_t height;
};

class Sizes : public testing::TestWithParam<SizeCase> {};

TEST_P(Sizes, Cropped) {
    const auto sps = parse(GetParam().sps.payload());
    EXPECT_EQ(sps.getWidth(), GetParam().width);
    EXPECT_EQ(sps.getHeight(), GetParam().height);
}

const std::vector<std::uint64_t> c_bottom4 = {0, 0, 0, 4};

INSTANTIATE_TEST_SUITE_P(
    H264, Sizes,
    testing::Values(
        SizeCase{"Baseline", {.crop = c_bottom4}, 1920, 1080},
        SizeCase{"High420", {.profile_idc = 100, .crop = c_bottom4}, 1920, 1080},
        SizeCase{"High422", {.profile_idc = 122, .chroma_format_idc = 2, .crop = {1, 2, 3, 5}}, 1914, 1080},
        SizeCase{"High444", {.profile_idc = 244, .chroma_format_idc = 3, .crop = c_bottom4}, 1920, 1084},
        SizeCase{"SeparatePlanes",
                 {.profile_idc = 244,
                  .chroma_format_idc = 3,
                  .separate_colour_plane_flag = 1,
                  .crop = {1, 1, 1, 1}},
                 1918,
                 1086},
        SizeCase{
            "Monochrome", {.profile_idc = 100, .chroma_format_idc = 0, .crop = {1, 1, 1, 1}}, 1918, 1086},
        SizeCase{
            "UnknownChroma", {.profile_idc = 100, .chroma_format_idc = 5, .crop = {1, 1, 1, 1}}, 1918, 1086},
        SizeCase{"Interlaced", {.pic_height_in_map_units_minus1 = 33, .frame_mbs_only_flag = 0}, 1920, 1088},
        SizeCase{"InterlacedCropped",
                 {.pic_height_in_map_units_minus1 = 33, .frame_mbs_only_flag = 0, .crop = {0, 0, 0, 2}},
                 1920,
                 1080},
        SizeCase{"CropLargerThanThePicture", {.crop = {0, 961, 0, 0}}, 4294967294U, 1088},
        SizeCase{"LowBitsOfTheCrop", {.crop = {0, 0x100000001, 0, 0}}, 1918, 1088},
        SizeCase{"LargestSize", {.pic_width_in_mbs_minus1 = 0xFFFFFFFF}, 0, 1088}),
    nameOfRow);

TEST(H264, SizeOfZeroHasNoAspectRatio) {
    EXPECT_EQ(parse(Sps{.crop = {0, 960, 0, 0}}.payload()).getDisplayAspectRatio(), 0.0);
    EXPECT_EQ(parse(Sps{.crop = {0, 0, 0, 544}}.payload()).getDisplayAspectRatio(), 0.0);
}

TEST(H264, BitDepthKeepsTheLowByte) {
    EXPECT_EQ(parse(Sps{.profile_idc = 110, .bit_depth_luma_minus8 = 2}.payload()).getLumaBitDepth(), 10U);
    EXPECT_EQ(parse(Sps{.profile_idc = 110, .bit_depth_luma_minus8 = 0x1FF}.payload()).getLumaBitDepth(),
              263U);
}

TEST(H264, ScalingListsAreWalkedToTheirEnd) {
    const auto lists = [](BitWriter& bits) {
        bits.bits("1").se(-8);                             // default matrix: ends after one entry
        bits.bits("1").se(300).se(-44);                    // 8 + 300 = 52 modulo 256, 52 - 44 = 8
        bits.se(-264);                                     // 8 - 264 = 0 modulo 256: ends
        bits.bits("0000 1").se(1).se(1).se(-10).bits("0"); // the seventh list
    };
    const auto sps = parse(Sps{.profile_idc = 100, .scalingMatrix = lists, .crop = c_bottom4}.payload());
    EXPECT_EQ(sps.getHeight(), 1080U);
    const auto twelve = [](BitWriter& bits) { bits.bits("0000 0000 0001").se(-8); };
    EXPECT_EQ(
        parse(Sps{.profile_idc = 244, .chroma_format_idc = 3, .scalingMatrix = twelve}.payload()).getHeight(),
        1088U);
}

TEST(H264, PictureOrderCountTypes) {
    const auto type0 = parse(Sps{.pictureOrderCount = [](BitWriter& bits) { bits.ue(0).ue(9); }}.payload());
    EXPECT_EQ(type0.log2_max_pic_order_cnt_lsb_minus4, 9U);
    EXPECT_EQ(type0.getWidth(), 1920U);

    const auto type1 = parse(Sps{.pictureOrderCount = [](BitWriter& bits) {
                                 bits.ue(1).u(1, 1).se(-2).se(3).ue(3).se(5).se(-2147483648LL).se(0);
                             }}.payload());
    EXPECT_EQ(type1.delta_pic_order_always_zero_flag, 1);
    EXPECT_EQ(type1.offset_for_non_ref_pic, -2);
    EXPECT_EQ(type1.offset_for_top_to_bottom_field, 3);
    EXPECT_EQ(type1.num_ref_frames_in_pic_order_cnt_cycle, 3U);
    EXPECT_EQ(type1.offset_for_ref_frame, (std::vector<std::int32_t>{5, -2147483647 - 1, 0}));
    EXPECT_EQ(type1.getWidth(), 1920U);

    EXPECT_EQ(parse(Sps{.pictureOrderCount = [](BitWriter& bits) { bits.ue(7); }}.payload()).getWidth(),
              1920U);
}

// aspect_ratio_info_present_flag and its elements, then nothing until the timing.
Sps withAspectRatio(std::uint32_t aspect_ratio_idc, std::uint32_t sar_width = 0,
                    std::uint32_t sar_height = 0) {
    Sps sps{.pic_width_in_mbs_minus1 = 89, .crop = c_bottom4};
    sps.vui = [=](BitWriter& bits) {
        bits.u(1, 1).u(aspect_ratio_idc, 8);
        if (aspect_ratio_idc == 255) {
            bits.u(sar_width, 16).u(sar_height, 16);
        }
        bits.u(0, 8);
    };
    return sps;
}

TEST(H264, DisplayAspectRatioOf1440x1080) {
    const double square = 1440.0 / 1080.0;
    // ISO/IEC 14496-10, Table E-1
    const double widths[] = {1, 1, 12, 10, 16, 40, 24, 20, 32, 80, 18, 15, 64, 160, 4, 3, 2};
    const double heights[] = {1, 1, 11, 11, 11, 33, 11, 11, 11, 33, 11, 11, 33, 99, 3, 2, 1};
    for (std::uint32_t idc = 0; idc < 17; ++idc) {
        const auto sps = parse(withAspectRatio(idc).payload());
        EXPECT_DOUBLE_EQ(sps.getDisplayAspectRatio(), square * widths[idc] / heights[idc]) << idc;
    }
    EXPECT_DOUBLE_EQ(parse(withAspectRatio(17).payload()).getDisplayAspectRatio(), square);
    EXPECT_DOUBLE_EQ(parse(withAspectRatio(200).payload()).getDisplayAspectRatio(), square);
    EXPECT_DOUBLE_EQ(parse(withAspectRatio(255, 4, 3).payload()).getDisplayAspectRatio(), 16.0 / 9.0);
    EXPECT_DOUBLE_EQ(parse(withAspectRatio(255, 4, 0).payload()).getDisplayAspectRatio(), square);
    EXPECT_DOUBLE_EQ(parse(withAspectRatio(255, 0, 3).payload()).getDisplayAspectRatio(), square);
}

struct TimingCase {
    const char* name;
    std::uint32_t frame_mbs_only_flag;
    std::uint64_t num_units_in_tick;
    int tickBits; // 32, or 40 with an emulation prevention byte
    std::uint32_t time_scale;
    std::uint32_t fixed_frame_rate_flag;
    double rate;
};

class Timing : public testing::TestWithParam<TimingCase> {};

TEST_P(Timing, FrameRate) {
    const TimingCase& timing = GetParam();
    Sps sps{.frame_mbs_only_flag = timing.frame_mbs_only_flag};
    sps.vui = [&](BitWriter& bits) {
        bits.bits("0 0 0 0 1"); // no aspect ratio, overscan, signal type, chroma location
        bits.u(timing.num_units_in_tick, timing.tickBits)
            .u(timing.time_scale, 32)
            .u(timing.fixed_frame_rate_flag, 1);
        bits.bits("0 0 1 0"); // no HRD, pic_struct, no restriction
    };
    const auto parsed = parse(sps.payload());
    EXPECT_DOUBLE_EQ(parsed.getFrameRate(), timing.rate);
    EXPECT_EQ(parsed.vui->time_scale, timing.time_scale);
    EXPECT_EQ(parsed.vui->pic_struct_present_flag, 1);
}

INSTANTIATE_TEST_SUITE_P(H264, Timing,
                         testing::Values(TimingCase{"Progressive", 1, 1001, 32, 60000, 1, 30000.0 / 1001.0},
                                         TimingCase{"InterlacedGivesFields", 0, 1001, 32, 60000, 1,
                                                    60000.0 / 1001.0},
                                         TimingCase{"NotFixed", 1, 1001, 32, 60000, 0, 0.0},
                                         TimingCase{"NoTick", 1, 0, 32, 60000, 1, 0.0}),
                         nameOfRow);

TEST(H264, TimingIsReadAcrossEmulationPrevention) {
    // 45 bits of flags and sizes come before, so the VUI is padded until the tick stands on a byte boundary.
    for (int overscan = 0; overscan < 2; ++overscan) {
        for (std::uint32_t log2Zeros = 0; log2Zeros < 8; ++log2Zeros) {
            Sps sps{.pictureOrderCount = [=](BitWriter& bits) { bits.ue(0).ue((1U << log2Zeros) - 1); }};
            sps.vui = [=](BitWriter& bits) { bits.bits(overscan != 0 ? "0 1 1 0 0 1" : "0 0 0 0 1"); };
            Bytes payload = sps.payload();
            // The stop bit is the last; it must be the first of the byte that the tick takes the place of.
            if (payload.back() != 0x80) {
                continue;
            }
            payload.pop_back();
            const Bytes timing = {0x00, 0x00, 0x03, 0x03, 0xE9, 0x00, 0x00, 0xEA, 0x60, 0xC8};
            payload.insert(payload.end(), timing.begin(), timing.end());
            EXPECT_DOUBLE_EQ(parse(payload).getFrameRate(), 30000.0 / 1001.0);
            return;
        }
    }
    FAIL() << "no padding puts the tick on a byte boundary";
}

TEST(H264, HypotheticalReferenceDecoders) {
    Sps sps;
    sps.vui = [](BitWriter& bits) {
        bits.bits("0 0 0 0 0"); // up to no timing
        bits.bits("1").ue(1).u(15, 4).u(2, 4).ue(0xFFFFFFFE).ue(7).u(1, 1).ue(4).ue(5).u(0, 1).u(0x12345, 20);
        bits.bits("1").ue(32).u(1, 4).u(0, 4).ue(9).ue(8).u(1, 1).u(0, 20); // 33 entries are not
        bits.bits("1 1");                                                   // low delay, pic_struct
    };
    const auto parsed = parse(sps.payload());
    const H264HrdParameters& nal = parsed.vui->nalHrdParameters.value();
    EXPECT_EQ(nal.cpb_cnt_minus1, 1U);
    EXPECT_EQ(nal.bit_rate_value_minus1[0], 0xFFFFFFFEU);
    EXPECT_EQ(nal.BitRate[0], 0xFFE00000U); // modulo 2^32
    EXPECT_EQ(nal.BitRate[1], 5U << 21);
    EXPECT_EQ(nal.cpb_size_value_minus1[1], 5U);
    EXPECT_EQ(nal.cbr_flag[0], 1U);
    const H264HrdParameters& vcl = parsed.vui->vclHrdParameters.value();
    EXPECT_EQ(vcl.cpb_cnt_minus1, 0U);
    EXPECT_EQ(vcl.BitRate[0], 10U << 7);
    EXPECT_EQ(parsed.vui->pic_struct_present_flag, 1);
}

TEST(H264, WithoutVui) {
    const auto sps = parse(Sps{.crop = c_bottom4}.payload());
    EXPECT_DOUBLE_EQ(sps.getDisplayAspectRatio(), 16.0 / 9.0);
    EXPECT_EQ(sps.getFrameRate(), 0.0);
    EXPECT_EQ(sps.getColourPrimaries() + sps.getTransferCharacteristics() + sps.getMatrixCoefficients(), 0);
    EXPECT_EQ(sps.getVideoFullRangeFlag(), 0);
}

} // namespace
