#include "VideoFormatDetection.h"

#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <vector>

#include "TestData.h"

using namespace KorvelVideo::Network;

namespace {

// A parameter set with just the numbers that the detection looks at.
H264SequenceParameterSet picture(std::uint32_t width, std::uint32_t height, bool isInterlaced = false,
                                 std::uint32_t time_scale = 50, std::uint32_t num_units_in_tick = 1) {
    H264SequenceParameterSet sps(nullptr, 0);
    sps.ChromaArrayType = 0; // crops in luma samples
    sps.frame_mbs_only_flag = isInterlaced ? 0 : 1;
    sps.pic_width_in_mbs_minus1 = width / 16;
    sps.pic_height_in_map_units_minus1 = height / 32 * (isInterlaced ? 1 : 2) + (isInterlaced ? 0 : 1);
    sps.frame_crop_right_offset = sps.getWidth() - width;
    sps.frame_crop_bottom_offset = (sps.getHeight() - height) / (isInterlaced ? 2 : 1);
    H264VuiParameters& vui = sps.vui.emplace();
    vui.timing_info_present_flag = 1;
    vui.fixed_frame_rate_flag = 1;
    vui.time_scale = time_scale;
    vui.num_units_in_tick = num_units_in_tick;
    return sps;
}

using Words = std::vector<std::uint32_t>; // size, width, height, depth, aspect ratio, frame rate, scan mode

Words wordsOf(const SKvVideoFormatDescription& format) {
    Words words(sizeof format / sizeof(std::uint32_t));
    std::memcpy(words.data(), &format, sizeof format);
    return words;
}

Words detect(const H264SequenceParameterSet& sps) {
    SKvVideoFormatDescription format;
    std::memset(&format, 0xFF, sizeof format);
    detectVideoFormat(sps, format);
    return wordsOf(format);
}

TEST(VideoFormat, AspectRatios) { // at the bounds, which are single-precision numbers
    const std::uint32_t rows[][2] = {{1299, 0}, {1300, 1}, {1370, 1}, {1371, 0}, {1740, 0},
                                     {1741, 2}, {1820, 2}, {1821, 0}, {1880, 4}, {1950, 4},
                                     {1951, 3}, {2000, 3}, {2050, 0}};
    for (const auto& [width, aspectRatio] : rows) {
        EXPECT_EQ(detect(picture(width, 1000)), (Words{28, width, 1000, 8, aspectRatio, 3, 3}));
    }
}

TEST(VideoFormat, FrameRates) {
    struct Row {
        std::uint32_t time_scale, num_units_in_tick, frameRate;
    };
    const Row progressive[] = {{46, 1, 0},       {48000, 1001, 2}, {479890, 10000, 2}, {479910, 10000, 1},
                               {48, 1, 1},       {49, 1, 0},       {50, 1, 3},         {58, 1, 0},
                               {60000, 1001, 5}, {60, 1, 4},       {96, 1, 0},         {98, 1, 0},
                               {100, 1, 8},      {118, 1, 0},      {120000, 1001, 10}, {120, 1, 9}};
    const Row interlaced[] = {
        {30, 1, 4}, {50, 1, 3}, {60000, 1001, 5}, {60, 1, 4}}; // 30 fields are not halved
    for (const auto& [time_scale, tick, frameRate] : progressive) {
        EXPECT_EQ(detect(picture(1920, 1080, false, time_scale, tick)),
                  (Words{28, 1920, 1080, 8, 2, frameRate, 3}))
            << time_scale << "/" << tick;
    }
    for (const auto& [time_scale, tick, frameRate] : interlaced) {
        EXPECT_EQ(detect(picture(1920, 1080, true, time_scale, tick)),
                  (Words{28, 1920, 1080, 8, 2, frameRate, 1}))
            << time_scale << "/" << tick;
    }
    EXPECT_EQ(detect(picture(640, 480, true)), (Words{28, 640, 480, 8, 1, 3, 2}));
}

TEST(VideoFormat, ColourClasses) {
    struct Row {
        std::uint32_t primaries, transfer, matrix;
        std::uint8_t fullRange;
        std::uint32_t colourClass;
    };
    const Row rows[] = {{1, 1, 1, 0, 2},  {1, 1, 1, 1, 2},  {9, 14, 9, 0, 3},  {9, 16, 9, 1, 4},
                        {9, 18, 9, 0, 5}, {9, 2, 9, 1, 6},  {9, 2, 9, 0, 0},   {0, 0, 0, 0, 0},
                        {9, 15, 9, 0, 0}, {1, 14, 9, 0, 0}, {9, 16, 10, 0, 0}, {1, 1, 9, 0, 0},
                        {9, 1, 1, 0, 0},  {1, 2, 1, 1, 0}};
    for (const auto& [primaries, transfer, matrix, fullRange, colourClass] : rows) {
        EXPECT_EQ(classifyColourDescription({20, primaries, transfer, matrix, fullRange, {}}), colourClass)
            << primaries << " " << transfer << " " << matrix << " " << int{fullRange};
    }
}

TEST(VideoFormat, WithoutAParameterSetAllIsZero) {
    const Bytes bytes = {0, 0, 0, 1, 0x67, 100};
    for (const auto& found :
         {describeAvcConfiguration(nullptr, 30), describeAvcConfiguration(bytes.data(), 0),
          describeAvcConfiguration(bytes.data(), 5)}) {
        EXPECT_EQ(wordsOf(found.format), (Words{28, 0, 0, 0, 0, 0, 0}));
        EXPECT_EQ(found.colourClass + found.profile + found.level, 0U);
    }
    EXPECT_EQ(describeAvcConfiguration(bytes.data(), 6).profile, 100U);
}

TEST(SequenceParameterSet, ProfilesThatCarryTheChromaFormat) {
    const std::set<std::uint32_t> carriers = {44, 83, 86, 100, 110, 118, 122, 128, 244};
    for (std::uint32_t profile = 0; profile < 256; ++profile) {
        const Bytes payload = {static_cast<std::uint8_t>(profile), 0, 40, 0b1'011'0000}; // ue(0), ue(2)
        const H264SequenceParameterSet sps(payload.data(), 4);
        EXPECT_EQ(sps.chroma_format_idc, carriers.contains(profile) ? 2 : 1) << profile;
    }
}

TEST(SequenceParameterSet, DisplayAspectRatioOf1440x1080) {
    H264SequenceParameterSet sps = picture(1440, 1080);
    const double square = 1440.0 / 1080.0;
    EXPECT_DOUBLE_EQ(sps.getDisplayAspectRatio(), square);
    H264VuiParameters& vui = *sps.vui;
    vui.aspect_ratio_info_present_flag = 1;
    // ISO/IEC 14496-10, Table E-1
    const double widths[] = {1, 1, 12, 10, 16, 40, 24, 20, 32, 80, 18, 15, 64, 160, 4, 3, 2, 1};
    const double heights[] = {1, 1, 11, 11, 11, 33, 11, 11, 11, 33, 11, 11, 33, 99, 3, 2, 1, 1};
    for (vui.aspect_ratio_idc = 0; vui.aspect_ratio_idc < 18; ++vui.aspect_ratio_idc) {
        const double ratio = widths[vui.aspect_ratio_idc] / heights[vui.aspect_ratio_idc];
        EXPECT_DOUBLE_EQ(sps.getDisplayAspectRatio(), square * ratio) << int{vui.aspect_ratio_idc};
    }
    const std::uint16_t extended[][2] = {{4, 3}, {4, 0}, {0, 3}};
    for (const auto& [width, height] : extended) {
        vui.aspect_ratio_idc = 255;
        vui.sar_width = width;
        vui.sar_height = height;
        EXPECT_DOUBLE_EQ(sps.getDisplayAspectRatio(), width * height == 0 ? square : square * 4 / 3);
    }
}

} // namespace
