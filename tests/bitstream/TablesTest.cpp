#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>

#include "AllocationCounter.h"
#include "BitWriter.h"
#include "LoasFrame.h"
#include "RecordElements.h"
#include "TestData.h"
#include "VideoFormatDetection.h"

// Hand-made streams for what no encoder at hand makes: the whole record of each, and every prefix of each
// parsed inside its bounds (exact heap buffers under the address sanitizer).

using namespace KorvelVideo::Network;

namespace {

template <auto parser>
std::string parse(const Bytes& bytes) {
    BitReader reader = readerOver(bytes);
    const auto record = parser(reader);
    return asText(elementsOf(record)) + "consumed=" + std::to_string(reader.bitsConsumed()) + "\n";
}

AudioSpecificConfig audioSpecificConfig(BitReader& reader) { return parseAudioSpecificConfig(reader); }
StreamMuxConfig streamMuxConfig(BitReader& reader) { return parseStreamMuxConfig(reader, {}); }

std::string parseSequenceParameterSet(const Bytes& bytes) {
    const auto size = static_cast<std::uint32_t>(bytes.size());
    return asText(elementsOf(H264SequenceParameterSet(bytes.data(), size)));
}

// Whatever the room, both passes agree and nothing is written behind it.
std::string parseFrame(const Bytes& bytes) {
    const std::int32_t measured = measureLoasFrame(readerOver(bytes), {});
    EXPECT_GE(measured, 0);
    EXPECT_LE(measured, static_cast<std::int32_t>(bytes.size()) + 8191);
    Bytes whole(static_cast<std::size_t>(measured));
    const auto size = static_cast<std::uint32_t>(measured);
    const LoasFrame frame = parseLoasFrame(readerOver(bytes), whole.data(), 0xFFFFFFFF, {});
    EXPECT_EQ(frame.audioMuxElement.payloadByteCount, size);
    EXPECT_EQ(frame.audioMuxElement.payload,
              frame.audioMuxElement.muxConfig.audioMuxVersionA == 0 ? whole.data() : nullptr);
    for (std::uint32_t room = 0; room < std::min(size, 16U); ++room) {
        Bytes part(room);
        const LoasFrame cut = parseLoasFrame(readerOver(bytes), part.data(), room, {});
        EXPECT_EQ(cut.audioMuxElement.payloadByteCount, room);
        EXPECT_TRUE(std::equal(part.begin(), part.end(), whole.begin()));
    }
    BitReader reader = readerOver(bytes);
    reader.skipBits(24);
    static_cast<void>(parseAudioMuxElement(reader, whole.data(), size, {}));
    return asText(Elements{{"frameByteLength", std::to_string(frame.frameByteLength)},
                           {"payload", asValue(std::vector<int>(whole.begin(), whole.end()))},
                           {"otherDataBits", asValue(frame.audioMuxElement.otherDataBits)},
                           {"consumed", std::to_string(reader.bitsConsumed())}});
}

struct Table {
    const char* name;
    std::string (*parse)(const Bytes&);
};

void PrintTo(const Table& table, std::ostream* stream) { *stream << table.name; }

class Tables : public testing::TestWithParam<Table> {
protected:
    const std::vector<TableRow> rows = readTable("tables/" + std::string(GetParam().name) + ".txt");
};

TEST_P(Tables, WholeRecord) {
    for (const TableRow& row : rows) {
        EXPECT_EQ(GetParam().parse(BitWriter(row.input).data()), row.expected) << row.name;
    }
}

TEST_P(Tables, CutAtEveryByte) {
    for (const TableRow& row : rows) {
        const Bytes bytes = BitWriter(row.input).data();
        for (std::size_t size = 0; size < bytes.size(); ++size) {
            SCOPED_TRACE(row.name + " cut to " + std::to_string(size));
            const Bytes cut(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size));
            static_cast<void>(GetParam().parse(cut));
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Bitstream, Tables,
                         testing::Values(Table{"AudioSpecificConfig", parse<audioSpecificConfig>},
                                         Table{"H264SequenceParameterSet", parseSequenceParameterSet},
                                         Table{"LoasFrame", parseFrame},
                                         Table{"StreamMuxConfig", parse<streamMuxConfig>}),
                         nameOfRow);

// What 128 layers take, however little was received for them.
constexpr std::size_t c_layerRecords = 16 * (sizeof(LatmProgram) + 8 * sizeof(LatmLayer));

// The bytes that the action takes from the heap, freed or not.
std::uint64_t heapBytes(const std::function<void()>& action) {
    const AllocationCounter allocations;
    action();
    return allocations.bytes();
}

// What the worst inputs we know take from the heap stays within a factor of what was received.
TEST(HostileInput, MemoryIsInProportion) {
    for (const TableRow& row : readTable("tables/HostileInput.txt")) {
        SCOPED_TRACE(row.name);
        const Bytes bytes = BitWriter(row.input).data();
        const auto size = static_cast<std::uint32_t>(bytes.size());
        const BitReader reader = readerOver(bytes);
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
        return measureLoasFrame(readerOver(bytes), {});
    };
    EXPECT_EQ(measure("40*xFF"), 8191);
    EXPECT_EQ(measure("32*xFF"), 32 * 255);
    EXPECT_EQ(measure("40*xFF x00 10200*x11"), 40 * 255);
}

// A plain frame takes from the heap what its sequences of one program and one layer need, in each pass.
TEST(HostileInput, NoneInAPlainFrame) {
    const Bytes frame = splitLoasFrames(readBytes("loas/lc-48000-stereo-320k.loas")).at(3);
    const BitReader reader = readerOver(frame);
    Bytes output(frame.size());
    AllocationCounter allocations;
    const std::int32_t measured = measureLoasFrame(reader, {});
    EXPECT_EQ(allocations.count(), 2U); // the programs and the layers
    const LoasFrame parsed = parseLoasFrame(reader, output.data(), static_cast<std::uint32_t>(measured), {});
    EXPECT_EQ(allocations.count(), 4U);
    EXPECT_EQ(parsed.audioMuxElement.payloadByteCount, static_cast<std::uint32_t>(measured));
}

} // namespace
