#include "StreamMuxConfig.h"

#include <gtest/gtest.h>

#include <string>

#include "BitWriter.h"
#include "TestData.h"

using namespace KorvelVideo::Network;

namespace {

const std::string c_lowComplexity = "00010 0011 0010 000 "; // 16 bits: 48000 Hz, two channels
const std::string c_celp = "01000 1011 0001 0 0 10 ";       // 17 bits: object type 8, 8000 Hz
const std::string c_scalable = "00110 1011 0001 000 000 ";  // 19 bits: object type 6

AudioSpecificConfig parseAlone(const std::string& digits) {
    const Bytes bytes = BitWriter(digits).data();
    BitReader reader(bytes.data(), static_cast<std::int32_t>(bytes.size()));
    return parseAudioSpecificConfig(reader);
}

// Parses and checks that just these bits were taken; ones follow them.
StreamMuxConfig parse(const std::string& digits, const LatmConfigState& state = {}) {
    const auto count = std::count_if(digits.begin(), digits.end(), [](char c) { return c != ' '; });
    const Bytes bytes = BitWriter(digits).u(~0ULL, 64).data();
    BitReader reader(bytes.data(), static_cast<std::int32_t>(bytes.size()));
    StreamMuxConfig config = parseStreamMuxConfig(reader, state);
    EXPECT_EQ(reader.bitsConsumed(), count) << digits;
    return config;
}

// What a row says of a layer; the rest is 0.
struct Layer {
    std::uint32_t useSameConfig = 0;
    AudioSpecificConfig config = {};
    std::uint32_t ascBytesForValue = 0;
    std::uint32_t ascLen = 0;
    std::uint32_t frameLengthType = 0;
    std::uint32_t latmBufferFullness = 0;
    std::uint32_t coreFrameOffset = 0;
    std::uint32_t frameLength = 0;

    [[nodiscard]] LatmLayer at(std::uint32_t index) const {
        LatmLayer layer(index);
        layer.useSameConfig = useSameConfig;
        layer.config = config;
        layer.ascBytesForValue = ascBytesForValue;
        layer.ascLen = ascLen;
        layer.frameLengthType = frameLengthType;
        layer.latmBufferFullness = latmBufferFullness;
        layer.coreFrameOffset = coreFrameOffset;
        layer.frameLength = frameLength;
        return layer;
    }
};

// A configuration of programs with these layers.
StreamMuxConfig withPrograms(const std::vector<std::vector<Layer>>& programs) {
    StreamMuxConfig config;
    config.allStreamsSameTimeFraming = 1;
    config.numProgram = static_cast<std::int32_t>(programs.size()) - 1;
    for (const std::vector<Layer>& layers : programs) {
        LatmProgram& program =
            config.programs.emplace_back(static_cast<std::uint32_t>(config.programs.size()));
        program.numLayer = static_cast<std::int32_t>(layers.size()) - 1;
        for (const Layer& layer : layers) {
            program.layers.push_back(layer.at(static_cast<std::uint32_t>(program.layers.size())));
        }
    }
    return config;
}

TEST(StreamMuxConfig, OneProgramOneLayer) {
    EXPECT_EQ(parse("0 1 000000 0000 000 " + c_lowComplexity + "000 11111111 0 0"),
              withPrograms({{{.config = parseAlone(c_lowComplexity), .latmBufferFullness = 255}}}));
}

TEST(StreamMuxConfig, OfASyntaxToComeNothingIsRead) {
    EXPECT_EQ(parse("1 1"), (StreamMuxConfig{.audioMuxVersion = 1, .audioMuxVersionA = 1}));
}

TEST(StreamMuxConfig, VersionOneHasLengths) {
    // 24 fill bits behind 16 of configuration
    StreamMuxConfig expected = withPrograms({{{.config = parseAlone(c_lowComplexity),
                                               .ascBytesForValue = 0,
                                               .ascLen = 40,
                                               .frameLengthType = 2}}});
    expected.audioMuxVersion = 1;
    expected.taraBytesForValue = 1;
    expected.taraBufferFullness = 0x1234;
    expected.numSubFrames = 33;
    expected.otherDataPresent = 1;
    expected.otherDataBytesForValue = 3;
    expected.otherDataLenBits = 0xFF000001;
    expected.crcCheckPresent = 1;
    expected.crcCheckSum = 0xA5;
    EXPECT_EQ(parse("1 0 01 0001001000110100 1 100001 0000 000 00 00101000 " + c_lowComplexity +
                    "101010101010101010101010 010 1 11 11111111000000000000000000000001 1 10100101"),
              expected);
}

TEST(StreamMuxConfig, ALengthBelowTheConfigurationSkipsNothing) {
    StreamMuxConfig expected =
        withPrograms({{{.config = parseAlone(c_lowComplexity), .ascLen = 15, .frameLengthType = 2}}});
    expected.audioMuxVersion = 1;
    EXPECT_EQ(parse("1 0 00 00000000 1 000000 0000 000 00 00001111 " + c_lowComplexity + "010 0 0"),
              expected);
}

TEST(StreamMuxConfig, TheLongestLengthSkipsToTheEnd) {
    const Bytes bytes = BitWriter("1 0 00 00000000 1 000000 0000 000 11")
                            .u(0xFFFFFFFF, 32)
                            .bits(c_lowComplexity + "111 1 1 1")
                            .data();
    BitReader reader(bytes.data(), static_cast<std::int32_t>(bytes.size()));
    const StreamMuxConfig config = parseStreamMuxConfig(reader, {});
    EXPECT_EQ(config.programs.at(0).layers.at(0).ascLen, 0xFFFFFFFFU);
    EXPECT_EQ(config.programs.at(0).layers.at(0).frameLengthType, 0U);
    EXPECT_EQ(reader.bitsLeft(), 0);
}

TEST(StreamMuxConfig, UseSameConfig) {
    const AudioSpecificConfig first = parseAlone(c_lowComplexity);
    const AudioSpecificConfig second = parseAlone(c_celp);
    LatmConfigState state;
    state.currentConfig.audioObjectType = 4;
    const std::string digits = "0 1 000000 0001 " // two programs
                               "001 " +
                               c_lowComplexity +
                               "010 1 010 " // the second layer as the first
                               "010 1 010 0 " +
                               c_celp +
                               "010 1 010 0 0"; // the first layer as the state, the third as the second
    EXPECT_EQ(parse(digits, state),
              withPrograms({{{.config = first, .frameLengthType = 2},
                             {.useSameConfig = 1, .config = first, .frameLengthType = 2}},
                            {{.useSameConfig = 1, .config = state.currentConfig, .frameLengthType = 2},
                             {.config = second, .frameLengthType = 2},
                             {.useSameConfig = 1, .config = second, .frameLengthType = 2}}}));
}

TEST(StreamMuxConfig, FrameLengthTypes) {
    struct Row {
        const char* bits;
        std::uint32_t frameLengthType, frameLength;
    };
    const Row rows[] = {
        {"001 100000001", 1, 257}, {"010", 2, 0},   {"011 100001", 3, 33}, {"100 000011", 4, 3},
        {"101 111111", 5, 63},     {"110 1", 6, 1}, {"111 1", 7, 1}};
    for (const Row& row : rows) {
        EXPECT_EQ(parse("0 1 000000 0000 000 " + c_lowComplexity + row.bits + "0 0"),
                  withPrograms({{{.config = parseAlone(c_lowComplexity),
                                  .frameLengthType = row.frameLengthType,
                                  .frameLength = row.frameLength}}}))
            << row.frameLengthType;
    }
}

TEST(StreamMuxConfig, CoreFrameOffsetOfAScalableLayerAboveCelp) {
    const auto layers = [&](const char* sameTime, const std::string& first, const std::string& second) {
        return "0 " + std::string(sameTime) + " 000000 0000 001 " + first + "000 00000001 0 " + second;
    };
    const StreamMuxConfig above = parse(layers("0", c_celp, c_scalable) + "000 00000010 100001 0 0");
    EXPECT_EQ(above.programs[0].layers[1].coreFrameOffset, 33U);
    EXPECT_EQ(above.programs[0].layers[1].latmBufferFullness, 2U);
    // Not when the streams are framed alike, nor above another type, nor of another type.
    parse(layers("1", c_celp, c_scalable) + "000 00000010 0 0");
    parse(layers("0", c_lowComplexity, c_scalable) + "000 00000010 0 0");
    parse(layers("0", c_celp, c_lowComplexity) + "000 00000010 0 0");
}

TEST(StreamMuxConfig, OtherDataLengthOfVersionZero) {
    const std::string start = "0 1 000000 0000 000 " + c_lowComplexity + "010 1 ";
    EXPECT_EQ(parse(start + "0 10000001 0").otherDataLenBits, 129U);
    EXPECT_EQ(parse(start + "1 00000001 0 00000010 0").otherDataLenBits, 258U);
    EXPECT_EQ(parse(start + "1 11111111 1 00000001 1 00000010 1 00000011 0 00000100 0").otherDataLenBits,
              0x01020304U); // modulo 2^32
}

TEST(StreamMuxConfig, ProgramAndLayerAlone) {
    LatmConfigState state;
    state.muxConfig.allStreamsSameTimeFraming = 0;
    state.currentConfig = parseAlone(c_celp);
    state.programIndex = 2;
    state.layerIndex = 1;
    const Bytes bytes = BitWriter("0 " + c_scalable + "000 00000111 000101").data();
    BitReader reader(bytes.data(), static_cast<std::int32_t>(bytes.size()));
    EXPECT_EQ(parseLatmLayer(reader, state),
              (Layer{.config = parseAlone(c_scalable), .latmBufferFullness = 7, .coreFrameOffset = 5}.at(1)));
    const Bytes program = BitWriter("000 1 010").data();
    reader = BitReader(program.data(), static_cast<std::int32_t>(program.size()));
    const LatmProgram parsed = parseLatmProgram(reader, state);
    EXPECT_EQ(parsed.programIndex, 2U);
    ASSERT_EQ(parsed.layers.size(), 1U);
    EXPECT_EQ(parsed.layers[0].config, state.currentConfig);
}

TEST(StreamMuxConfig, LatmValues) {
    const Bytes bytes = BitWriter("00 11111111 01 0000000100000000 10 100000000000000000000001").data();
    BitReader reader(bytes.data(), static_cast<std::int32_t>(bytes.size()));
    EXPECT_EQ(latmGetValue(reader), 255U);
    EXPECT_EQ(latmGetValue(reader), 256U);
    EXPECT_EQ(latmGetValue(reader), 0x800001U);
}

} // namespace
