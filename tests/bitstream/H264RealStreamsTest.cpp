#include <gtest/gtest.h>

#include <map>
#include <string>

#include "RecordElements.h"
#include "TestData.h"
#include "VideoFormatDetection.h"

// Parameter sets that x264 wrote, against what ffmpeg and ffprobe read from them.

using namespace KorvelVideo::Network;

namespace {

constexpr std::size_t c_startCodeAndHeader = 5;

double ratio(const std::string& text) { // "4:3", "30000/1001"
    const std::size_t separator = text.find_first_of(":/");
    return separator == std::string::npos ? 1.0 : std::stod(text) / std::stod(text.substr(separator + 1));
}

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

} // namespace
