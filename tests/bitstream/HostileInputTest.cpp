#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>

#include "AllocationCounter.h"
#include "BitWriter.h"
#include "LoasFrame.h"
#include "TestData.h"
#include "VideoFormatDetection.h"

// The worst inputs we know for each parser: what they take from the heap stays within a factor of what was
// received.

using namespace KorvelVideo::Network;

namespace {

const std::string c_loasHeader = "01010110111 1111111111111 0 "; // and useSameStreamMux 0
const std::string c_noChannels = "00010 0011 0000 000 "; // low complexity; a program_config_element follows

void repeat(int count, const std::function<void()>& action) {
    for (int i = 0; i < count; ++i) {
        action();
    }
}

// One reference frame offset for each bit.
Bytes offsetsForRefFrames() {
    BitWriter bits;
    bits.u(0x0000000167, 40).u(66, 8).u(0, 8).u(10, 8).ue(0).ue(0).ue(1).u(0, 1).se(0).se(0).ue(0xFFFFFFFE);
    repeat(2000, [&] { bits.u(0xFF, 8); });
    return bits.data();
}

// Program config elements have all the elements and all the comment that they can have, or nothing at all.
void programConfigElement(BitWriter& bits, int& written, bool isFull) {
    if (isFull) {
        bits.u(0, 10).u(0xFFFFFFFF, 21).u(0xFFF, 1 + 4 + 1 + 4 + 1 + 3 - 2).u(3, 2);
        written += 10 + 21 + 14;
        const int elements = 15 * 5 * 3 + 3 * 4 + 7 * 4 + 15 * 5;
        repeat(elements, [&] { bits.u(1, 1); });
        written += elements;
    } else {
        bits.u(0, 34);
        written += 34;
    }
    const int padding = (8 - written % 8) % 8;
    bits.u(0, padding).u(isFull ? 255 : 0, 8);
    written += padding + 8;
    if (isFull) {
        repeat(255, [&] { bits.u(0x55, 8); });
        written += 255 * 8;
    }
}

// 16 programs of 8 layers, each with a configuration of its own.
Bytes everyLayerWithAProgramConfigElement(bool isFull) {
    BitWriter bits(c_loasHeader + "0 1 111111 1111 ");
    int written = 25 + 12;
    for (int prog = 0; prog < 16; ++prog) {
        bits.u(7, 3);
        written += 3;
        for (int lay = 0; lay < 8; ++lay) {
            if (prog != 0 || lay != 0) {
                bits.u(0, 1);
                ++written;
            }
            bits.bits(c_noChannels);
            written += 16;
            programConfigElement(bits, written, isFull);
            bits.u(1, 3).u(0, 9);
            written += 12;
        }
    }
    return bits.data();
}

// An error protection of 63 classes in each set, as small as classes can be.
void errorProtection(BitWriter& bits, int sets) {
    bits.bits("10001 0011 0010 000 11").u(static_cast<std::uint64_t>(sets), 8).bits("10 000 000");
    repeat(sets, [&] {
        bits.u(63, 6);
        repeat(63, [&] { bits.bits("1 1 1 1 00 1 11 1 1111"); });
        bits.u(1, 1);
        repeat(63, [&] { bits.u(1, 6); });
    });
    bits.bits("0 0");
}

// 16 programs whose first layer has a large error protection, which the other seven layers copy.
Bytes copiedErrorProtections(int sets) {
    BitWriter bits(c_loasHeader + "0 1 111111 1111 ");
    for (int prog = 0; prog < 16; ++prog) {
        bits.u(7, 3).bits(prog == 0 ? "" : "0");
        errorProtection(bits, sets);
        bits.u(2, 3);
        repeat(7, [&] { bits.bits("1 010"); });
    }
    return bits.data();
}

// 16 programs of 8 layers that take 4 bits each.
Bytes smallestLayers() {
    BitWriter bits(c_loasHeader + "0 1 111111 1111 ");
    for (int prog = 0; prog < 16; ++prog) {
        bits.u(7, 3).bits(prog == 0 ? c_noChannels : "1");
        if (prog == 0) {
            int written = 25 + 12 + 3 + 16;
            programConfigElement(bits, written, true);
        }
        bits.u(2, 3);
        repeat(7, [&] { bits.bits("1 010"); });
    }
    return bits.data();
}

Bytes otherDataOfOneBitEach() {
    BitWriter bits(c_loasHeader +
                   "1 0 00 00000000 1 000000 0000 000 00 00000000 00010 0011 0010 000 010 1 11");
    bits.u(0xFFFFFFFF, 32).u(0, 1);
    repeat(2000, [&] { bits.u(0xFF, 8); });
    return bits.data();
}

Bytes lengthsOf255(std::size_t count) {
    BitWriter bits("01010110111 1111111111111 1 ");
    repeat(static_cast<int>(count), [&] { bits.u(0xFF, 8); });
    return bits.data();
}

Bytes structuredAudio() {
    BitWriter bits(c_loasHeader + "0 1 000000 0000 000 01101 0011 0010 ");
    repeat(2000, [&] { bits.u(0xFF, 8); });
    return bits.data();
}

struct HostileCase {
    const char* name;
    Bytes bytes;
    std::size_t
        factor; // bytes from the heap in one pass for each byte received, the growth of sequences included
};

// What 128 layers take, however little was received for them.
constexpr std::size_t c_layerRecords = 16 * (sizeof(LatmProgram) + 8 * sizeof(LatmLayer));

class HostileInput : public testing::TestWithParam<HostileCase> {};

// The bytes that the action takes from the heap, freed or not.
std::size_t heapBytes(const std::function<void()>& action) {
    const AllocationCounter allocations;
    action();
    return allocations.bytes();
}

TEST_P(HostileInput, MemoryIsInProportion) {
    const Bytes& bytes = GetParam().bytes;
    const auto size = static_cast<std::uint32_t>(bytes.size());
    const BitReader reader(bytes.data(), static_cast<std::int32_t>(size));
    Bytes output(bytes.size() + 8191);
    std::int32_t measured = 0;
    std::uint32_t extracted = 0;
    const std::size_t worst = std::max(
        {heapBytes([&] { static_cast<void>(describeAvcConfiguration(bytes.data(), size)); }),
         heapBytes([&] { measured = measureLoasFrame(reader, {}); }), heapBytes([&] {
             extracted =
                 parseLoasFrame(reader, output.data(), size + 8191, {}).audioMuxElement.payloadByteCount;
         })});
    EXPECT_LE(worst, GetParam().factor * bytes.size() + c_layerRecords);
    RecordProperty("HeapBytesPerByte", static_cast<int>(worst / bytes.size()));
    EXPECT_LE(static_cast<std::size_t>(measured), bytes.size() + 8191);
    EXPECT_EQ(static_cast<std::uint32_t>(measured), extracted);
}

INSTANTIATE_TEST_SUITE_P(
    WorstCases, HostileInput,
    testing::Values(HostileCase{"OffsetsForRefFrames", offsetsForRefFrames(), 128},
                    HostileCase{"FullProgramConfigElements", everyLayerWithAProgramConfigElement(true), 8},
                    HostileCase{"EmptyProgramConfigElements", everyLayerWithAProgramConfigElement(false), 0},
                    HostileCase{"CopiedErrorProtections", copiedErrorProtections(255), 352},
                    HostileCase{"CopiedSmallErrorProtections", copiedErrorProtections(2), 352},
                    HostileCase{"SmallestLayers", smallestLayers(), 352},
                    HostileCase{"OtherData", otherDataOfOneBitEach(), 32},
                    HostileCase{"LengthsOf255", lengthsOf255(5000), 0},
                    HostileCase{"ShortLengthsOf255", lengthsOf255(40), 0},
                    HostileCase{"StructuredAudio", structuredAudio(), 0},
                    HostileCase{"Ones", Bytes(8194, 0xFF), 0}, HostileCase{"Zeros", Bytes(8194, 0), 0},
                    HostileCase{"Threes", Bytes(8194, 3), 0}),
    nameOfRow);

// A length that no element can hold and that did not arrive is cut; one of the two is not enough.
TEST(HostileLengths, AreCut) {
    const auto measure = [](const Bytes& bytes) {
        return measureLoasFrame({bytes.data(), static_cast<std::int32_t>(bytes.size())}, {});
    };
    EXPECT_EQ(measure(lengthsOf255(40)), 8191);
    EXPECT_EQ(measure(lengthsOf255(32)), 32 * 255);
    BitWriter arrived("01010110111 0000000000000 1 ");
    repeat(40, [&] { arrived.u(0xFF, 8); });
    arrived.u(0, 8);
    repeat(40 * 255, [&] { arrived.u(0x11, 8); });
    EXPECT_EQ(measure(arrived.data()), 40 * 255);
}

// A plain frame takes from the heap what its sequences of one program and one layer need, in each pass.
TEST(Allocations, OfAPlainFrame) {
    const std::vector<Bytes> frames = splitLoasFrames(readBytes("loas/lc-48000-stereo-320k.loas"));
    const Bytes& frame = frames.at(3);
    const BitReader reader(frame.data(), static_cast<std::int32_t>(frame.size()));
    Bytes output(frame.size());
    AllocationCounter allocations;
    const std::int32_t measured = measureLoasFrame(reader, {});
    EXPECT_EQ(allocations.count(), 2U); // the programs and the layers
    const LoasFrame parsed = parseLoasFrame(reader, output.data(), static_cast<std::uint32_t>(measured), {});
    EXPECT_EQ(allocations.count(), 4U);
    EXPECT_EQ(parsed.audioMuxElement.payloadByteCount, static_cast<std::uint32_t>(measured));
}

} // namespace
