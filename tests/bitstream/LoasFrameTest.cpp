#include "LoasFrame.h"

#include <gtest/gtest.h>

#include <numeric>
#include <string>

#include "BitWriter.h"
#include "TestData.h"

using namespace KorvelVideo::Network;

namespace {

BitReader readerOver(const Bytes& bytes) { return {bytes.data(), static_cast<std::int32_t>(bytes.size())}; }

struct Extracted {
    LoasFrame frame;
    Bytes payload; // what was written
};

// Into a heap buffer of just the capacity; measures as well and expects the same count where the capacity
// allows.
Extracted extract(const Bytes& bytes, std::uint32_t capacity, const LatmConfigState& state = {}) {
    Bytes output(capacity, 0xEE);
    LoasFrame frame = parseLoasFrame(readerOver(bytes), output.data(), capacity, state);
    const auto measured = static_cast<std::uint32_t>(measureLoasFrame(readerOver(bytes), state));
    EXPECT_EQ(frame.audioMuxElement.payloadByteCount, std::min(measured, capacity));
    EXPECT_EQ(frame.audioMuxElement.payload,
              frame.audioMuxElement.muxConfig.audioMuxVersionA == 0 ? output.data() : nullptr);
    EXPECT_TRUE(std::all_of(output.begin() + frame.audioMuxElement.payloadByteCount, output.end(),
                            [](std::uint8_t byte) { return byte == 0xEE; }));
    output.resize(frame.audioMuxElement.payloadByteCount);
    return {std::move(frame), std::move(output)};
}

const Bytes c_plainFrame = {0x56, 0xE0, 0x0B, 0x20, 0x00, 0x11, 0x90,
                            0x1F, 0xE0, 0x20, 0x89, 0x11, 0x9A, 0x20};

const std::string c_header = "01010110111 0000000000000 "; // the length is not looked at
const std::string c_lowComplexity = "00010 0011 0010 000 ";

Bytes run(std::uint8_t first, std::size_t count) {
    Bytes bytes(count);
    std::iota(bytes.begin(), bytes.end(), first);
    return bytes;
}

TEST(LoasFrame, SyncWord) {
    EXPECT_TRUE(isLoasFrame(readerOver(c_plainFrame)));
    EXPECT_TRUE(isLoasFrame(readerOver({0x56, 0xFF})));
    EXPECT_FALSE(isLoasFrame(readerOver({0x56, 0xC0})));
    EXPECT_FALSE(isLoasFrame(readerOver({0x56})));
    EXPECT_FALSE(isLoasFrame(readerOver({})));
}

TEST(LoasFrame, PlainFrame) {
    const Extracted plain = extract(c_plainFrame, 100);
    EXPECT_EQ(plain.payload, (Bytes{0x11, 0x22, 0x33, 0x44}));
    EXPECT_EQ(plain.frame.syncWord, 0x2B7U);
    EXPECT_EQ(plain.frame.frameByteLength, 14U);
    EXPECT_EQ(plain.frame.audioMuxElement.useSameStreamMux, 0U);
    EXPECT_EQ(plain.frame.audioMuxElement.muxConfig.programs.at(0).layers.at(0).config.samplingFrequency,
              48000U);
}

TEST(LoasFrame, CapacityIsNeverExceeded) {
    EXPECT_EQ(extract(c_plainFrame, 2).payload, (Bytes{0x11, 0x22}));
    EXPECT_EQ(extract(c_plainFrame, 0).payload, Bytes());
    // A capacity beyond 2^31 is as good as 2^31 - 1.
    Bytes output(4);
    EXPECT_EQ(parseLoasFrame(readerOver(c_plainFrame), output.data(), 0xFFFFFFFF, {})
                  .audioMuxElement.payloadByteCount,
              4U);
}

TEST(LoasFrame, OfASyntaxToComeHasNoPayload) {
    EXPECT_EQ(extract(BitWriter(c_header + "0 1 1 11111111 1111").data(), 10).payload, Bytes());
}

TEST(LoasFrame, SubFrames) {
    BitWriter bits(c_header + "0 0 1 000001 0000 000 " + c_lowComplexity + "000 11111111 0 0 ");
    bits.u(4, 8).bytes(run(1, 4)).u(6, 8).bytes(run(5, 6));
    EXPECT_EQ(extract(bits.data(), 100).payload, run(1, 10));
    EXPECT_EQ(extract(bits.data(), 7).payload, run(1, 7));
}

// Lengths of all layers come first, those of frame length types 3, 5 and 7 in two bits and without payload
// here.
TEST(LoasFrame, ProgramsAndLayersAreReadInOrder) {
    BitWriter bits(c_header +
                   "0 0 1 000000 0001 " // two programs
                   "010 " +
                   c_lowComplexity +
                   "000 11111111 "                 // three layers: type 0,
                   "1 101 000000 1 001 000000000 " // types 5 and 1
                   "001 1 111 0 1 000 00000000 "   // two layers: types 7, 0
                   "0 0 ");
    bits.u(3, 8).bits("11").bits("10").u(5, 8).bytes(run(1, 8));
    EXPECT_EQ(extract(bits.data(), 100).payload, run(1, 8));
}

TEST(LoasFrame, EscapedLengths) {
    const std::string start = c_header + "1 "; // no configuration, and none in the state
    EXPECT_EQ(extract(BitWriter(start).bytes({255, 255, 10}).bytes(run(0, 520)).data(), 600).payload,
              run(0, 520));
    // A 255 at the end of the buffer ends the length there; what did not arrive is 0.
    EXPECT_EQ(extract(BitWriter(start).bytes({255}).data(), 600).payload, Bytes(255));
    LatmConfigState state;
    EXPECT_EQ(extract(BitWriter(start).bytes({3, 7, 8, 9}).data(), 10, state).payload, (Bytes{7, 8, 9}));
    // Cut within the last byte, whose 7 bits are left.
    Bytes cut = BitWriter(start).bytes({3, 0xFF, 0xFF, 0xFF}).data();
    cut.pop_back();
    EXPECT_EQ(extract(cut, 10).payload, (Bytes{0xFF, 0xFF, 0x7F}));
}

TEST(LoasFrame, UseSameStreamMuxTakesTheConfigurationOfTheState) {
    LatmConfigState state;
    state.muxConfig = parseLoasFrame(readerOver(c_plainFrame), nullptr, 0, {}).audioMuxElement.muxConfig;
    state.muxConfig.numSubFrames = 1;
    const Bytes bytes = BitWriter(c_header + "1 ").u(2, 8).bytes(run(1, 2)).u(1, 8).bytes(run(3, 1)).data();
    const Extracted extracted = extract(bytes, 10, state);
    EXPECT_EQ(extracted.payload, run(1, 3));
    EXPECT_EQ(extracted.frame.audioMuxElement.useSameStreamMux, 1U);
    EXPECT_EQ(extracted.frame.audioMuxElement.muxConfig, state.muxConfig);
}

// ISO/IEC 14496-3, 1.7.3.1: numChunk + 1 chunks, each with the number of its stream.
TEST(LoasFrame, Chunks) {
    const std::string start = c_header +
                              "0 0 0 000001 0001 " // two sub-frames, two programs
                              "000 " +
                              c_lowComplexity +
                              "000 11111111 " // stream 0: type 0
                              "001 0 " +
                              c_lowComplexity +
                              "011 000000 "     // stream 1: type 3
                              "1 000 00000000 " // stream 2: type 0
                              "0 0 ";
    BitWriter bits(start);
    bits.bits("0011"); // four chunks
    bits.bits("0010")
        .u(3, 8)
        .bits("1")
        .bits("0001 11")
        .bits("0000")
        .u(2, 8)
        .bits("0")
        .bits("0010")
        .u(1, 8)
        .bits("1");
    bits.bytes(run(1, 6));
    bits.bits("0001"); // two chunks, the first of a stream that was not announced
    bits.bits("1111").bits("0000").u(4, 8).bits("1").bytes(run(7, 4));
    EXPECT_EQ(extract(bits.data(), 100).payload, run(1, 10));
    EXPECT_EQ(extract(bits.data(), 3).payload, run(1, 3));
}

TEST(LoasFrame, OtherDataAndAlignment) {
    BitWriter bits(c_header + "0 0 1 000000 0000 000 " + c_lowComplexity + "000 11111111 1 0 00001010 0 ");
    bits.u(1, 8).bytes({0x99}).bits("1100110101").bits("111");
    const Extracted extracted = extract(bits.data(), 10);
    EXPECT_EQ(extracted.payload, Bytes{0x99});
    EXPECT_EQ(extracted.frame.audioMuxElement.otherDataBits,
              (std::vector<std::uint32_t>{1, 1, 0, 0, 1, 1, 0, 1, 0, 1}));
    BitReader reader = readerOver(bits.data());
    Bytes output(10);
    reader.skipBits(24);
    EXPECT_EQ(parseAudioMuxElement(reader, output.data(), 10, {}).payloadByteCount, 1U);
    EXPECT_EQ(reader.bitsConsumed() % 8, 0);
    EXPECT_EQ(measureAudioMuxElement(reader, {}).payload, nullptr);
}

TEST(LoasFrame, OtherDataEndsWithTheBuffer) {
    BitWriter bits(c_header + "0 1 0 00 00000000 1 000000 0000 000 00 00010000 " + c_lowComplexity +
                   "000 11111111 1 11");
    bits.u(0xFFFFFFFF, 32).bits("0").u(0, 8).bits("1011");
    const auto left = extract(bits.data(), 10).frame.audioMuxElement.otherDataBits;
    EXPECT_GE(left.size(), 4U);
    EXPECT_LT(left.size(), 12U);
    EXPECT_EQ((std::vector<std::uint32_t>(left.begin(), left.begin() + 4)),
              (std::vector<std::uint32_t>{1, 0, 1, 1}));
}

} // namespace
