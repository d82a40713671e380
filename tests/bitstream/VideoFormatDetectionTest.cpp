#include "VideoFormatDetection.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "TestData.h"

using namespace KorvelVideo::Network;

namespace {

// A parameter set with just the numbers that the detection looks at.
struct Picture {
    std::uint32_t width = 1920;
    std::uint32_t height = 1080;
    bool interlaced = false;
    std::uint16_t sar_width = 1;
    std::uint16_t sar_height = 1;
    std::uint32_t time_scale = 50;
    std::uint32_t num_units_in_tick = 1;

    [[nodiscard]] H264SequenceParameterSet sps() const {
        H264SequenceParameterSet sps(nullptr, 0);
        sps.frame_mbs_only_flag = interlaced ? 0 : 1;
        sps.ChromaArrayType = 0; // crops in luma samples
        sps.pic_width_in_mbs_minus1 = width / 16;
        sps.pic_height_in_map_units_minus1 = height / 32 * (interlaced ? 1 : 2) + (interlaced ? 0 : 1);
        sps.frame_crop_right_offset = sps.getWidth() - width;
        sps.frame_crop_bottom_offset = (sps.getHeight() - height) / (interlaced ? 2 : 1);
        H264VuiParameters& vui = sps.vui.emplace();
        vui.aspect_ratio_info_present_flag = 1;
        vui.aspect_ratio_idc = 255;
        vui.sar_width = sar_width;
        vui.sar_height = sar_height;
        vui.timing_info_present_flag = 1;
        vui.fixed_frame_rate_flag = 1;
        vui.time_scale = time_scale;
        vui.num_units_in_tick = num_units_in_tick;
        return sps;
    }
};

struct FormatCase {
    const char* name;
    Picture picture;
    std::uint32_t aspectRatio;
    std::uint32_t frameRate;
    std::uint32_t scanMode;
};

class Formats : public testing::TestWithParam<FormatCase> {};

TEST_P(Formats, WholeDescription) {
    const FormatCase& row = GetParam();
    const SKvVideoFormatDescription expected = {
        28, row.picture.width, row.picture.height, 8, row.aspectRatio, row.frameRate, row.scanMode};
    SKvVideoFormatDescription format;
    std::memset(&format, 0xFF, sizeof format);
    detectVideoFormat(row.picture.sps(), format);
    EXPECT_EQ(std::memcmp(&format, &expected, sizeof format), 0)
        << format.m_width << "x" << format.m_height << " aspect ratio " << format.m_aspectRatio
        << " frame rate " << format.m_frameRate << " scan mode " << format.m_scanMode;
}

INSTANTIATE_TEST_SUITE_P(
    VideoFormat, Formats,
    testing::Values(
        FormatCase{"Hd25p", {}, 2, 3, 3},
        FormatCase{"Hd5994i", {.interlaced = true, .time_scale = 60000, .num_units_in_tick = 1001}, 2, 5, 1},
        FormatCase{"Ntsc",
                   {.width = 720,
                    .height = 480,
                    .interlaced = true,
                    .sar_width = 10,
                    .sar_height = 11,
                    .time_scale = 60000,
                    .num_units_in_tick = 1001},
                   1,
                   5,
                   2},
        FormatCase{"InterlacedThirtyIsNotHalved", {.interlaced = true, .time_scale = 30}, 2, 4, 1},
        FormatCase{"InterlacedSixtyIsHalved", {.interlaced = true, .time_scale = 60}, 2, 4, 1},
        FormatCase{"Film", {.time_scale = 48000, .num_units_in_tick = 1001}, 2, 2, 3},
        FormatCase{"TwentyThree", {.time_scale = 46}, 2, 0, 3},
        FormatCase{"TwentyFour", {.time_scale = 48}, 2, 1, 3},
        FormatCase{"TwentyFourAndAHalf", {.time_scale = 49}, 2, 0, 3},
        FormatCase{"RoundsToTwentyFour", {.time_scale = 479910, .num_units_in_tick = 10000}, 2, 1, 3},
        FormatCase{"RoundsBelowTwentyFour", {.time_scale = 479890, .num_units_in_tick = 10000}, 2, 2, 3},
        FormatCase{"FortyEight", {.time_scale = 96}, 2, 0, 3},
        FormatCase{"Fifty", {.time_scale = 100}, 2, 8, 3},
        FormatCase{"FiftyNine", {.time_scale = 118}, 2, 0, 3},
        FormatCase{"FiftyNineNinetyFour", {.time_scale = 120000, .num_units_in_tick = 1001}, 2, 10, 3},
        FormatCase{"Sixty", {.time_scale = 120}, 2, 9, 3},
        FormatCase{"Ratio1_3", {.width = 1300, .height = 1000}, 1, 3, 3},
        FormatCase{"Ratio1_299", {.width = 1299, .height = 1000}, 0, 3, 3},
        FormatCase{"Ratio1_37", {.width = 1370, .height = 1000}, 1, 3, 3},
        FormatCase{"Ratio1_74", {.width = 1740, .height = 1000}, 0, 3, 3},
        FormatCase{"Ratio1_82", {.width = 1820, .height = 1000}, 2, 3, 3},
        FormatCase{"Ratio1_88", {.width = 1880, .height = 1000}, 4, 3, 3},
        FormatCase{"Ratio1_95", {.width = 1950, .height = 1000}, 4, 3, 3},
        FormatCase{"Ratio2", {.width = 2000, .height = 1000}, 3, 3, 3},
        FormatCase{"Ratio2_05", {.width = 2050, .height = 1000}, 0, 3, 3},
        FormatCase{"Ratio256_135", {.width = 4096, .height = 2160}, 4, 3, 3}),
    nameOfRow);

TEST(ColourClass, EveryRowAndItsNeighbours) {
    struct Row {
        std::uint32_t primaries, transfer, matrix;
        std::uint8_t fullRange;
        std::uint32_t colourClass;
    };
    const Row rows[] = {{1, 1, 1, 0, 2},  {1, 1, 1, 1, 2},  {9, 14, 9, 0, 3},  {9, 16, 9, 1, 4},
                        {9, 18, 9, 0, 5}, {9, 2, 9, 1, 6},  {9, 2, 9, 0, 0},   {0, 0, 0, 0, 0},
                        {9, 15, 9, 0, 0}, {1, 14, 9, 0, 0}, {9, 16, 10, 0, 0}, {1, 1, 9, 0, 0},
                        {9, 1, 1, 0, 0},  {1, 2, 1, 1, 0}};
    for (const Row& row : rows) {
        const SKvColourDescription description = {20,         row.primaries, row.transfer,
                                                  row.matrix, row.fullRange, {}};
        EXPECT_EQ(classifyColourDescription(description), row.colourClass)
            << row.primaries << " " << row.transfer << " " << row.matrix << " " << int{row.fullRange};
    }
}

TEST(AvcConfiguration, WithoutAParameterSetAllIsZero) {
    const Bytes bytes = {0, 0, 0, 1, 0x67, 100};
    const SKvVideoFormatDescription nothing = {28, 0, 0, 0, 0, 0, 0};
    const auto isNothing = [&](const AvcConfigurationDescription& found) {
        return std::memcmp(&found.format, &nothing, sizeof nothing) == 0 && found.colourClass == 0 &&
               found.profile == 0 && found.level == 0;
    };
    EXPECT_TRUE(isNothing(describeAvcConfiguration(nullptr, 30)));
    EXPECT_TRUE(isNothing(describeAvcConfiguration(bytes.data(), 0)));
    EXPECT_TRUE(isNothing(describeAvcConfiguration(bytes.data(), 5)));
    EXPECT_EQ(describeAvcConfiguration(bytes.data(), 6).profile, 100U);
}

} // namespace
