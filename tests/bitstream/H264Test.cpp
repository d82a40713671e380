#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "RecordElements.h"
#include "TestData.h"
#include "VideoFormatDetection.h"

using namespace KorvelVideo::Network;

namespace {

std::string describe(const Bytes& bytes) {
    const auto found = describeAvcConfiguration(bytes.data(), static_cast<std::uint32_t>(bytes.size()));
    const SKvVideoFormatDescription& format = found.format;
    return asValue(std::vector<std::uint32_t>{
               format.m_size, format.m_width, format.m_height, format.m_bitDepth, format.m_aspectRatio,
               format.m_frameRate, format.m_scanMode, found.colourClass, found.profile, found.level}) +
           "\n";
}

// Parameter sets that x264 wrote: every element against what ffmpeg reads from them, what the host is told,
// and every prefix inside its bounds.
TEST(H264, RealParameterSets) {
    constexpr std::size_t startCodeAndHeader = 5;
    for (const TableRow& row : readTable("tables/AvcConfiguration.txt")) {
        SCOPED_TRACE(row.name);
        const Bytes bytes = readBytes("sps/" + row.name + ".sps");
        const auto expected = readExpected("sps/" + row.name + ".expected");
        const H264SequenceParameterSet sps(bytes.data() + startCodeAndHeader,
                                           static_cast<std::uint32_t>(bytes.size() - startCodeAndHeader));
        std::size_t compared = 0;
        for (const auto& [element, value] : elementsOf(sps)) {
            if (const auto found = expected.find(element); found != expected.end()) {
                EXPECT_EQ(value, found->second) << element;
                ++compared;
            }
        }
        EXPECT_GE(compared, 20U);
        EXPECT_EQ(describe(bytes), row.expected);
        for (std::size_t size = 0; size < bytes.size(); ++size) {
            const std::string cut = describe(Bytes(bytes.data(), bytes.data() + size));
            EXPECT_EQ(cut == "(28,0,0,0,0,0,0,0,0,0)\n", size <= startCodeAndHeader) << size;
        }
    }
    EXPECT_EQ(describeAvcConfiguration(nullptr, 30).profile, 0U);
}

// A parameter set with just the numbers that the detection looks at.
H264SequenceParameterSet picture(std::uint32_t width, bool isInterlaced = false,
                                 std::uint32_t time_scale = 50, std::uint32_t num_units_in_tick = 1) {
    H264SequenceParameterSet sps(nullptr, 0);
    sps.ChromaArrayType = 0; // crops in luma samples
    sps.frame_mbs_only_flag = isInterlaced ? 0 : 1;
    sps.pic_width_in_mbs_minus1 = width / 16;
    sps.frame_crop_right_offset = sps.getWidth() - width;
    sps.pic_height_in_map_units_minus1 = 62; // 1008 lines, or twice as many
    sps.frame_crop_bottom_offset = 8;
    H264VuiParameters& vui = sps.vui.emplace();
    vui.timing_info_present_flag = 1;
    vui.fixed_frame_rate_flag = 1;
    vui.time_scale = time_scale;
    vui.num_units_in_tick = num_units_in_tick;
    return sps;
}

SKvVideoFormatDescription detect(const H264SequenceParameterSet& sps) {
    SKvVideoFormatDescription format;
    detectVideoFormat(sps, format);
    return format;
}

TEST(H264, AspectRatios) { // at the bounds, which are single-precision numbers
    const std::uint32_t rows[][2] = {{1299, 0}, {1300, 1}, {1370, 1}, {1371, 0}, {1740, 0},
                                     {1741, 2}, {1820, 2}, {1821, 0}, {1880, 4}, {1950, 4},
                                     {1951, 3}, {2000, 3}, {2050, 0}};
    for (const auto& [width, aspectRatio] : rows) { // of 1000 lines
        EXPECT_EQ(detect(picture(width)).m_aspectRatio, aspectRatio) << width;
    }
}

TEST(H264, FrameRates) { // interlaced or not, time scale, units in a tick, and what it is
    const std::uint32_t rows[][4] = {
        {0, 46, 1, 0},       {0, 48000, 1001, 2}, {0, 479890, 10000, 2}, {0, 479910, 10000, 1},
        {0, 48, 1, 1},       {0, 49, 1, 0},       {0, 50, 1, 3},         {0, 58, 1, 0},
        {0, 60000, 1001, 5}, {0, 60, 1, 4},       {0, 96, 1, 0},         {0, 98, 1, 0},
        {0, 100, 1, 8},      {0, 118, 1, 0},      {0, 120, 1, 9},        {0, 120000, 1001, 10},
        {1, 50, 1, 3},       {1, 60000, 1001, 5}, {1, 60, 1, 4},         {1, 30, 1, 4}};
    for (const auto& [isInterlaced, time_scale, tick, frameRate] : rows) { // 30 fields are not halved
        EXPECT_EQ(detect(picture(1920, isInterlaced != 0, time_scale, tick)).m_frameRate, frameRate)
            << time_scale << "/" << tick;
    }
}

TEST(H264, ColourClasses) { // primaries, transfer, matrix, full range, and what it is
    const std::uint8_t rows[][5] = {{1, 1, 1, 0, 2},  {1, 1, 1, 1, 2},   {9, 14, 9, 0, 3}, {9, 16, 9, 1, 4},
                                    {9, 18, 9, 0, 5}, {9, 2, 9, 1, 6},   {9, 2, 9, 0, 0},  {9, 15, 9, 0, 0},
                                    {1, 14, 9, 0, 0}, {9, 16, 10, 0, 0}, {9, 1, 1, 0, 0},  {1, 2, 1, 1, 0}};
    for (const auto& [primaries, transfer, matrix, fullRange, colourClass] : rows) {
        EXPECT_EQ(classifyColourDescription({20, primaries, transfer, matrix, fullRange, {}}), colourClass)
            << int{primaries} << " " << int{transfer} << " " << int{matrix} << " " << int{fullRange};
    }
}

TEST(H264, ProfilesThatCarryTheChromaFormat) {
    const std::set<std::uint32_t> carriers = {44, 83, 86, 100, 110, 118, 122, 128, 244};
    for (std::uint32_t profile = 0; profile < 256; ++profile) {
        const Bytes payload = {static_cast<std::uint8_t>(profile), 0, 40, 0b1'011'0000}; // ue(0), ue(2)
        const H264SequenceParameterSet sps(payload.data(), 4);
        EXPECT_EQ(sps.chroma_format_idc, carriers.contains(profile) ? 2 : 1) << profile;
    }
}

TEST(H264, DisplayAspectRatios) {
    H264SequenceParameterSet sps = picture(1440);
    H264VuiParameters& vui = *sps.vui;
    vui.aspect_ratio_info_present_flag = 1;
    // ISO/IEC 14496-10, Table E-1
    const double widths[] = {1, 1, 12, 10, 16, 40, 24, 20, 32, 80, 18, 15, 64, 160, 4, 3, 2, 1};
    const double heights[] = {1, 1, 11, 11, 11, 33, 11, 11, 11, 33, 11, 11, 33, 99, 3, 2, 1, 1};
    for (vui.aspect_ratio_idc = 0; vui.aspect_ratio_idc < 18; ++vui.aspect_ratio_idc) {
        const double ratio = widths[vui.aspect_ratio_idc] / heights[vui.aspect_ratio_idc];
        EXPECT_DOUBLE_EQ(sps.getDisplayAspectRatio(), 1.44 * ratio) << int{vui.aspect_ratio_idc};
    }
    vui.aspect_ratio_idc = 255;
    const std::uint16_t extended[][2] = {{4, 3}, {4, 0}, {0, 3}};
    for (const auto& [width, height] : extended) {
        vui.sar_width = width;
        vui.sar_height = height;
        EXPECT_DOUBLE_EQ(sps.getDisplayAspectRatio(), width * height == 0 ? 1.44 : 1.44 * 4 / 3);
    }
}

} // namespace
