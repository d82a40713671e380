#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "AllocationCounter.h"
#include "BitWriter.h"
#include "LoasFrame.h"
#include "RecordElements.h"
#include "TestData.h"
#include "VideoFormatDetection.h"

using namespace KorvelVideo::Network;

namespace {

std::string parseConfig(const Bytes& bytes) {
    BitReader reader = readerOver(bytes);
    const std::string elements = asText(elementsOf(parseAudioSpecificConfig(reader)));
    return elements + "consumed=" + std::to_string(reader.bitsConsumed()) + "\n";
}

std::string parseMultiplex(const Bytes& bytes) {
    BitReader reader = readerOver(bytes);
    LatmConfigState state;
    state.currentConfig.audioObjectType = 8; // CELP, before the first layer of each program
    const std::string elements = asText(elementsOf(parseStreamMuxConfig(reader, state)));
    return elements + "consumed=" + std::to_string(reader.bitsConsumed()) + "\n";
}

std::string parseSequenceParameterSet(const Bytes& bytes) {
    return asText(
        elementsOf(H264SequenceParameterSet(bytes.data(), static_cast<std::uint32_t>(bytes.size()))));
}

// Whatever the room, both passes agree and nothing is written behind it.
std::string parseFrame(const Bytes& bytes) {
    const std::int32_t measured = measureLoasFrame(readerOver(bytes), {});
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
    return asText({{"frameByteLength", std::to_string(frame.frameByteLength)},
                   {"payload", asValue(std::vector<int>(whole.begin(), whole.end()))},
                   {"otherDataBits", asValue(frame.audioMuxElement.otherDataBits)},
                   {"consumed", std::to_string(reader.bitsConsumed())}});
}

// Hand-made streams for what no encoder at hand makes: the whole record of each, and every prefix of each
// parsed inside its bounds (exact heap buffers under the address sanitizer).
TEST(Tables, WholeRecordsAndEveryPrefix) {
    const std::pair<const char*, std::string (*)(const Bytes&)> tables[] = {
        {"AudioSpecificConfig", parseConfig},
        {"H264SequenceParameterSet", parseSequenceParameterSet},
        {"LoasFrame", parseFrame},
        {"StreamMuxConfig", parseMultiplex}};
    for (const auto& [table, parse] : tables) {
        for (const TableRow& row : readTable("tables/" + std::string(table) + ".txt")) {
            const Bytes bytes = BitWriter(row.input).data();
            EXPECT_EQ(parse(bytes), row.expected) << table << " " << row.name;
            for (std::size_t size = 0; size < bytes.size(); ++size) {
                SCOPED_TRACE(row.name + " cut to " + std::to_string(size));
                static_cast<void>(parse(Bytes(bytes.data(), bytes.data() + size)));
            }
        }
    }
}

// Streams of two encoders, against the access units that were wrapped and what ffprobe reads from them.
TEST(LoasFrame, PayloadAndConfigurationAreWhatTheEncoderMade) {
    for (const std::string& name : listCases("loas", ".loas")) {
        SCOPED_TRACE(name);
        const std::vector<Bytes> frames = splitLoasFrames(readBytes("loas/" + name + ".loas"));
        const auto expected = readExpected("loas/" + name + ".expected");
        const Bytes accessUnits = readBytes("loas/" + name + ".aac");
        auto size = expected.lower_bound("size");
        Bytes payload(accessUnits.size());
        std::uint32_t written = 0;
        ASSERT_EQ(frames.size(), expected.count("size"));
        for (const Bytes& frame : frames) {
            EXPECT_TRUE(isLoasFrame(readerOver(frame)));
            const AllocationCounter allocations;
            EXPECT_EQ(measureLoasFrame(readerOver(frame), {}), std::stoi((size++)->second));
            const std::uint64_t allocated = allocations.count();
            const auto room = static_cast<std::uint32_t>(payload.size()) - written;
            const LoasFrame parsed = parseLoasFrame(readerOver(frame), payload.data() + written, room, {});
            const AudioMuxElement& element = parsed.audioMuxElement;
            const AudioSpecificConfig& config = element.muxConfig.programs.at(0).layers.at(0).config;
            EXPECT_EQ(parsed.frameByteLength, frame.size());
            EXPECT_EQ(config.samplingFrequency, std::stoul(expected.find("sample_rate")->second));
            EXPECT_EQ(config.audioObjectType, std::stoul(expected.find("profile")->second) + 1);
            EXPECT_LE(allocated, config.channelConfiguration == 0 ? 9U : 2U) << "programs and layers";
            written += element.payloadByteCount;
        }
        EXPECT_EQ(payload, accessUnits);
    }
    EXPECT_FALSE(isLoasFrame(readerOver(Bytes{0x56, 0xC0})));
    EXPECT_FALSE(isLoasFrame(readerOver(Bytes{0x56})));
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

// What 128 layers take, however little was received for them.
constexpr std::size_t c_layerRecords = 16 * (sizeof(LatmProgram) + 8 * sizeof(LatmLayer));

// What the worst inputs we know take from the heap stays within a factor of what was received. A length that
// no element can hold and that did not arrive is cut; one of the two is not enough.
TEST(HostileInput, MemoryIsInProportion) {
    for (const TableRow& row : readTable("tables/HostileInput.txt")) {
        SCOPED_TRACE(row.name);
        const Bytes bytes = BitWriter(row.input).data();
        const auto size = static_cast<std::uint32_t>(bytes.size());
        std::istringstream expected(row.expected);
        std::size_t factor = 0;
        std::int32_t payload = 0;
        expected >> factor >> payload;
        Bytes output(bytes.size() + 8191);
        const AllocationCounter allocations;
        static_cast<void>(describeAvcConfiguration(bytes.data(), size));
        const std::uint64_t described = allocations.bytes();
        EXPECT_EQ(measureLoasFrame(readerOver(bytes), {}), payload);
        const std::uint64_t both = allocations.bytes();
        const LoasFrame frame = parseLoasFrame(readerOver(bytes), output.data(), size + 8191, {});
        EXPECT_LE(std::max({described, both - described, allocations.bytes() - both}),
                  factor * bytes.size() + c_layerRecords);
        EXPECT_EQ(frame.audioMuxElement.payloadByteCount, static_cast<std::uint32_t>(payload));
    }
}

} // namespace
