#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "BitWriter.h"
#include "LoasFrame.h"
#include "TestData.h"

using namespace KorvelVideo::Network;

namespace {

// Streams of two encoders, against the access units that were wrapped.
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

TEST(LoasFrame, SyncWord) {
    const Bytes synchronised = {0x56, 0xFF};
    const Bytes other = {0x56, 0xC0};
    const Bytes cut = {0x56};
    EXPECT_TRUE(isLoasFrame(readerOver(synchronised)));
    EXPECT_FALSE(isLoasFrame(readerOver(other)));
    EXPECT_FALSE(isLoasFrame(readerOver(cut)));
}

TEST(LoasFrame, UseSameStreamMuxTakesTheConfigurationOfTheState) {
    const Bytes config = BitWriter("0 1 000001 0000 000 00010 0011 0010 000 000 xFF 0 0").data();
    BitReader reader = readerOver(config);
    LatmConfigState state;
    state.muxConfig = parseStreamMuxConfig(reader, {}); // two sub-frames
    const Bytes bytes = BitWriter("x56E000 1 x02 x0102 x01 x03").data();
    Bytes payload(3);
    EXPECT_EQ(measureLoasFrame(readerOver(bytes), state), 3);
    const AudioMuxElement element =
        parseLoasFrame(readerOver(bytes), payload.data(), 3, state).audioMuxElement;
    EXPECT_EQ(payload, (Bytes{1, 2, 3}));
    EXPECT_EQ(element.useSameStreamMux, 1U);
    EXPECT_EQ(element.muxConfig, state.muxConfig);
}

// With useSameConfig, the first layer of a later program takes the configuration of the state.
TEST(LoasFrame, SameConfigurationFromTheState) {
    LatmConfigState state;
    state.currentConfig.audioObjectType = 8;
    state.muxConfig.allStreamsSameTimeFraming = 0;
    state.programIndex = 2;
    state.layerIndex = 1;
    const Bytes mux = BitWriter("0 1 000000 0001  000 00010 0011 0010 000 010  001 1 010 1 010  0 0").data();
    BitReader reader = readerOver(mux);
    const std::vector<LatmLayer> layers = parseStreamMuxConfig(reader, state).programs.at(1).layers;
    EXPECT_EQ(layers.at(0).config, state.currentConfig);
    EXPECT_EQ(layers.at(1).config, state.currentConfig);

    const Bytes program = BitWriter("000 1 010").data();
    reader = readerOver(program);
    const LatmProgram parsed = parseLatmProgram(reader, state);
    EXPECT_EQ(parsed.programIndex, 2U);
    EXPECT_EQ(parsed.layers.at(0).config, state.currentConfig);

    const Bytes scalable = BitWriter("0 00110 1011 0001 000 000 000 00000111 000101").data();
    reader = readerOver(scalable);
    const LatmLayer layer = parseLatmLayer(reader, state);
    EXPECT_EQ(layer.layerIndex, 1U);
    EXPECT_EQ(layer.coreFrameOffset, 5U); // above CELP
}

TEST(LoasFrame, LatmValues) {
    const Bytes bytes = BitWriter("10 x800001").data();
    BitReader reader = readerOver(bytes);
    EXPECT_EQ(latmGetValue(reader), 0x800001U);
}

} // namespace
