#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "RecordElements.h"
#include "TestData.h"
#include "VideoFormatDetection.h"

using namespace KorvelVideo::Network;

namespace {

constexpr std::size_t c_startCodeAndHeader = 5;

double ratio(const std::string& text) { // "4:3", "30000/1001"
    const std::size_t separator = text.find_first_of(":/");
    return separator == std::string::npos ? 1.0 : std::stod(text) / std::stod(text.substr(separator + 1));
}

// Parameter sets that x264 wrote, against what ffmpeg and ffprobe read from them.
class RealParameterSets : public testing::TestWithParam<std::string> {
protected:
    const Bytes bytes = readBytes("sps/" + GetParam() + ".sps");
    const std::multimap<std::string, std::string> expected = readExpected("sps/" + GetParam() + ".expected");
    const H264SequenceParameterSet sps{bytes.data() + c_startCodeAndHeader,
                                       static_cast<std::uint32_t>(bytes.size() - c_startCodeAndHeader)};
    const bool isFixed = expected.find("fixed_frame_rate_flag")->second == "1";

    [[nodiscard]] std::string property(const std::string& name) const {
        const auto found = expected.find("ffprobe." + name);
        return found == expected.end() ? "unknown" : found->second;
    }
};

TEST_P(RealParameterSets, EverySyntaxElement) {
    std::size_t compared = 0;
    for (const auto& [name, value] : elementsOf(sps)) {
        if (const auto found = expected.find(name); found != expected.end()) {
            EXPECT_EQ(value, found->second) << name;
            ++compared;
        }
    }
    EXPECT_GE(compared, 20U);
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
    const double size = std::stod(property("width")) / std::stod(property("height"));
    const double rate = ratio(property("r_frame_rate")) * (sps.frame_mbs_only_flag != 0 ? 1.0 : 2.0);
    EXPECT_DOUBLE_EQ(sps.getDisplayAspectRatio(), size * ratio(property("sample_aspect_ratio")));
    EXPECT_DOUBLE_EQ(sps.getFrameRate(), isFixed ? rate : 0.0);
    EXPECT_EQ(sps.getVideoFullRangeFlag(), property("color_range") == "pc" ? 1 : 0);
    const auto description = describeAvcConfiguration(bytes.data(), static_cast<std::uint32_t>(bytes.size()));
    const SKvVideoFormatDescription& format = description.format;
    EXPECT_EQ(format.m_size, 28U);
    EXPECT_EQ(format.m_width, std::stoul(property("width")));
    EXPECT_EQ(format.m_height, std::stoul(property("height")));
    EXPECT_EQ(format.m_bitDepth, std::stoul(property("bits_per_raw_sample")));
    EXPECT_EQ(format.m_frameRate, isFixed ? rates.at(property("r_frame_rate")) : keKvFrameRateUnknown);
    EXPECT_EQ(description.profile, std::stoul(property("profile")) & 0xFF); // without constraint bits
    EXPECT_EQ(description.level, std::stoul(property("level")));
    EXPECT_EQ(description.colourClass,
              colours.at(property("color_primaries") + "/" + property("color_transfer") + "/" +
                         property("color_space")));
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
