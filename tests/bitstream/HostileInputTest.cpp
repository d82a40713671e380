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

// What 128 layers take, however little was received for them.
constexpr std::size_t c_layerRecords = 16 * (sizeof(LatmProgram) + 8 * sizeof(LatmLayer));

// The bytes that the action takes from the heap, freed or not.
std::uint64_t heapBytes(const std::function<void()>& action) {
    const AllocationCounter allocations;
    action();
    return allocations.bytes();
}

TEST(HostileInput, MemoryIsInProportion) {
    for (const TableRow& row : readTable("tables/HostileInput.txt")) {
        SCOPED_TRACE(row.name);
        const Bytes bytes = BitWriter(row.input).data();
        const auto size = static_cast<std::uint32_t>(bytes.size());
        const BitReader reader(bytes.data(), static_cast<std::int32_t>(size));
        Bytes output(bytes.size() + 8191);
        std::int32_t measured = 0;
        LoasFrame frame;
        const auto describe = [&] { static_cast<void>(describeAvcConfiguration(bytes.data(), size)); };
        const auto measure = [&] { measured = measureLoasFrame(reader, {}); };
        const auto extract = [&] { frame = parseLoasFrame(reader, output.data(), size + 8191, {}); };
        EXPECT_LE(std::max({heapBytes(describe), heapBytes(measure), heapBytes(extract)}),
                  std::stoul(row.expected) * bytes.size() + c_layerRecords);
        EXPECT_LE(static_cast<std::size_t>(measured), bytes.size() + 8191);
        EXPECT_EQ(static_cast<std::uint32_t>(measured), frame.audioMuxElement.payloadByteCount);
    }
}

// A length that no element can hold and that did not arrive is cut; one of the two is not enough.
TEST(HostileInput, LengthsAreCut) {
    const auto measure = [](const std::string& lengths) {
        const Bytes bytes = BitWriter("x56E000 1 " + lengths).data();
        return measureLoasFrame({bytes.data(), static_cast<std::int32_t>(bytes.size())}, {});
    };
    EXPECT_EQ(measure("40*xFF"), 8191);
    EXPECT_EQ(measure("32*xFF"), 32 * 255);
    EXPECT_EQ(measure("40*xFF x00 10200*x11"), 40 * 255);
}

// A plain frame takes from the heap what its sequences of one program and one layer need, in each pass.
TEST(HostileInput, NoneInAPlainFrame) {
    const Bytes frame = splitLoasFrames(readBytes("loas/lc-48000-stereo-320k.loas")).at(3);
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
