#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "BitWriter.h"
#include "LoasFrame.h"
#include "RecordElements.h"
#include "TestData.h"
#include "VideoFormatDetection.h"

// Hand-made streams for what no encoder at hand makes: the whole record of each, and every prefix of each
// parsed inside its bounds (exact heap buffers under the address sanitizer).

using namespace KorvelVideo::Network;

namespace {

BitReader readerOver(const Bytes& bytes) { return {bytes.data(), static_cast<std::int32_t>(bytes.size())}; }

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

} // namespace
