#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "LoasFrame.h"
#include "TestData.h"

// LOAS streams of two encoders, against the access units that were wrapped.

using namespace KorvelVideo::Network;

namespace {

BitReader readerOver(const Bytes& bytes) { return {bytes.data(), static_cast<std::int32_t>(bytes.size())}; }

class RealLoas : public testing::TestWithParam<std::string> {
protected:
    const std::vector<Bytes> frames = splitLoasFrames(readBytes("loas/" + GetParam() + ".loas"));
    const std::multimap<std::string, std::string> expected = readExpected("loas/" + GetParam() + ".expected");
};

TEST_P(RealLoas, PayloadIsWhatTheEncoderMade) {
    const Bytes accessUnits = readBytes("loas/" + GetParam() + ".aac");
    auto size = expected.lower_bound("size");
    Bytes payload(accessUnits.size());
    std::uint32_t written = 0;
    ASSERT_EQ(frames.size(), expected.count("size"));
    for (const Bytes& frame : frames) {
        ASSERT_TRUE(isLoasFrame(readerOver(frame)));
        EXPECT_EQ(measureLoasFrame(readerOver(frame), {}), std::stoi((size++)->second));
        const auto room = static_cast<std::uint32_t>(payload.size()) - written;
        const LoasFrame parsed = parseLoasFrame(readerOver(frame), payload.data() + written, room, {});
        EXPECT_EQ(parsed.frameByteLength, frame.size());
        written += parsed.audioMuxElement.payloadByteCount;
    }
    EXPECT_EQ(written, accessUnits.size());
    EXPECT_EQ(payload, accessUnits);
}

TEST_P(RealLoas, Configuration) {
    const LoasFrame parsed = parseLoasFrame(readerOver(frames.at(0)), nullptr, 0, {});
    const AudioSpecificConfig& config = parsed.audioMuxElement.muxConfig.programs.at(0).layers.at(0).config;
    EXPECT_EQ(config.samplingFrequency, std::stoul(expected.find("sample_rate")->second));
    EXPECT_EQ(config.audioObjectType, std::stoul(expected.find("profile")->second) + 1);
    const ProgramConfigElement& program = config.gaConfig.programConfig;
    std::uint32_t channels = config.channelConfiguration == 7 ? 8 : config.channelConfiguration;
    if (config.channelConfiguration == 0) {
        channels = program.num_front_channel_elements + program.num_side_channel_elements +
                   program.num_back_channel_elements + program.num_lfe_channel_elements;
        for (const auto* pairs :
             {&program.front_element_is_cpe, &program.side_element_is_cpe, &program.back_element_is_cpe}) {
            channels += static_cast<std::uint32_t>(std::count(pairs->begin(), pairs->end(), 1U));
        }
        EXPECT_EQ(
            std::string(program.comment_field_data.begin(), program.comment_field_data.end()).substr(0, 4),
            "Lavc");
    }
    EXPECT_EQ(channels, std::stoul(expected.find("channels")->second));
}

// Whatever arrives of a frame: both passes agree, nothing is written behind the capacity or read behind the
// end (exact heap buffers under the address sanitizer), and the payload that did arrive is there.
TEST_P(RealLoas, CutAtEveryByte) {
    const Bytes& frame = frames.at(frames.size() / 2);
    Bytes whole(frame.size());
    whole.resize(parseLoasFrame(readerOver(frame), whole.data(), static_cast<std::uint32_t>(whole.size()), {})
                     .audioMuxElement.payloadByteCount);
    for (std::size_t size = 0; size < frame.size(); ++size) {
        const Bytes cut(frame.begin(), frame.begin() + static_cast<std::ptrdiff_t>(size));
        const std::int32_t measured = measureLoasFrame(readerOver(cut), {});
        ASSERT_GE(measured, 0);
        ASSERT_LE(measured, static_cast<std::int32_t>(size) + 8191);
        Bytes output(static_cast<std::size_t>(measured));
        const LoasFrame parsed =
            parseLoasFrame(readerOver(cut), output.data(), static_cast<std::uint32_t>(output.size()), {});
        ASSERT_EQ(parsed.audioMuxElement.payloadByteCount, output.size());
        if (output.size() == whole.size()) { // the lengths arrived
            const std::size_t framing = frame.size() - whole.size() + 1;
            const auto arrived = static_cast<std::ptrdiff_t>(size > framing ? size - framing : 0);
            ASSERT_TRUE(std::equal(output.begin(), output.begin() + arrived, whole.begin())) << size;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Encoders, RealLoas, testing::ValuesIn(listCases("loas", ".loas")), nameOfFile);

} // namespace
