// What senders' framings become, from bytes that x264 and ffmpeg's AAC encoder made.

#include <map>

#include <gtest/gtest.h>

#include "AacFraming.h"
#include "AvcFragments.h"
#include "ClientTestSupport.h"
#include "ConsumerSink.h"
#include "StampSequence.h"
#include "StreamTranslator.h"

namespace {

using namespace ClientTest;

// Hexadecimal digits and the names of NAL units of a 320x240 stream, each a start code before it where +
// stands.
Octets nals(const std::string& text) {
    static const std::map<std::string, std::string> names{
        {"SPS", "6764000dacb40a0fd808800000030080000019078a1550"},
        {"PPS", "68ef0fcb"},
        {"OTHERPPS", "685b0fcb"}, // pic_parameter_set_id 0 and 1
        {"IDR", "658884002b"},
        {"SLICE", "419a24"},
        {"AUD", "0910"},
        {"SEI", "060001c080"}}; // a buffering period
    std::string digits;
    for (std::string word : split(text, ' ')) {
        if (word.starts_with('+')) {
            digits += "00000001";
            word.erase(0, 1);
        }
        const auto found = names.find(word);
        digits += found == names.end() ? word : found->second;
    }
    return fromHex(digits);
}

Octets joined(std::span<const Bytes> parts, const Octets& before = {}) {
    Octets all;
    for (const Bytes part : parts) {
        append(all, before);
        append(all, Octets(part.begin(), part.end()));
    }
    return all;
}

// Consumer 0 of a sink, with buffers of a size.
struct Lender {
    explicit Lender(std::uint32_t bufferSize = 4096) : consumer(bufferSize) { (*table)[0].enabled = true; }

    RecordingConsumer consumer;
    std::shared_ptr<ConsumerTable> table = [this] {
        auto made = std::make_shared<ConsumerTable>();
        made->emplace_back(0U, &consumer);
        return made;
    }();
    ConsumerSink sink{table, &testClock};
};

ParameterSets knownSets() {
    ParameterSets sets;
    EXPECT_EQ(sets.keep(nals("SPS")), 0);
    EXPECT_EQ(sets.keep(nals("PPS")), 0);
    return sets;
}

TEST(AvcFraming, NalUnitsAreFound) {
    for (const auto& row : readTable("nal-units.txt")) {
        const Octets bytes = fromHex(row.at(1));
        std::vector<Bytes> parts{Bytes(bytes)};
        splitNalUnits(bytes, static_cast<unsigned>(std::stoi(row.at(2))), parts);
        EXPECT_EQ(joined(parts, nals("+")), nals(row.at(3))) << row[0];
    }
}

TEST(AvcFraming, ConfigurationsGiveTheirParameterSets) {
    const Octets record = nals("0164000dffe10017 SPS 010004 PPS");
    for (const Octets& configuration : {record, nals("+SPS 000001 PPS")}) {
        const auto translator = makeAvcTranslator();
        translator->configure(configuration);
        EXPECT_EQ(translator->announcement().codecConfig, nals("+SPS +PPS"));
    }
    for (std::size_t length = 0; length < record.size(); ++length) {
        const auto translator = makeAvcTranslator();
        translator->configure(Octets(record.begin(), record.begin() + static_cast<std::ptrdiff_t>(length)));
        EXPECT_FALSE(translator->complete()) << length;
    }
}

TEST(AvcFraming, IdrPicturesGetTheParameterSetsThatTheyLack) {
    for (const auto& row : readTable("avc-access-units.txt")) {
        ParameterSets sets = knownSets();
        AccessUnitFormatter formatter;
        const Octets accessUnit = nals(row.at(1));
        EXPECT_EQ(joined(formatter.format(accessUnit, 2, sets)), nals(row.at(2))) << row[0];
    }
}

TEST(AvcFraming, OnlySaneParameterSetsAreKept) {
    ParameterSets sets = knownSets();
    EXPECT_EQ(sets.keep(nals("OTHERPPS")), 1);
    Octets endless = nals("PPS");
    endless.resize(5000, 0xAA);
    for (const Octets& wrong :
         {endless, nals("IDR"), nals("67"), nals("6764000d0420"), nals("676400000000000000")}) {
        EXPECT_EQ(sets.keep(wrong), -1); // the last two: identifier 32, without end
    }
    EXPECT_EQ(sets.sequence().size(), 1U);
    EXPECT_EQ(sets.picture().size(), 2U);
}

TEST(AvcFraming, FragmentsBecomeAccessUnits) {
    for (const auto& row : readTable("avc-fragments.txt")) {
        std::vector<Octets> expected;
        for (const std::string& unit : split(row.at(2), ',')) {
            expected.push_back(nals(unit));
        }
        for (const std::uint32_t bufferSize : {1U, 7U, 4096U}) {
            ParameterSets sets = knownSets();
            Lender lender(bufferSize);
            AvcFragmentWriter writer;
            for (const std::string& fragment : split(row.at(1), ',')) {
                const auto time =
                    fragment[0] == '-' ? std::nullopt : std::optional(std::stoi(fragment) * 10'000);
                const Octets bytes = nals(fragment.substr(fragment.find(' ')));
                EXPECT_EQ(writer.write(bytes, time, sets, 0, lender.sink), 0U);
                if (bufferSize == 7) { // pauses within an access unit do not split it
                    writer.flush(0, lender.sink);
                }
            }
            writer.flush(0, lender.sink);
            EXPECT_EQ(lender.consumer.payloads(), expected) << row[0] << ", buffers of " << bufferSize;
            EXPECT_EQ(lender.consumer.lent, 0);
        }
    }
}

TEST(AacFraming, ConfigurationsTellTheirFormat) {
    for (const auto& row : readTable("audio-configurations.txt")) {
        const AacFormat format = readAudioSpecificConfig(fromHex(row.at(0))).value_or(AacFormat{});
        EXPECT_EQ(std::to_string(format.samplingRate) + " " + std::to_string(format.channels), row.at(1))
            << row[0];
    }
}

TEST(AacFraming, AdtsIsTakenOffAndTellsTheConfiguration) {
    // Two frames of 11 bytes, 48 kHz stereo; the second with a CRC.
    const Octets frames = fromHex("fff14c80017ffc de020001  fff04c8001bffc 1234 de020002  ff");
    const auto translator = makeAacTranslator(0, 0);
    Lender lender;
    EXPECT_EQ(translator->deliver({frames, 0, 0}, 0, lender.sink), 1U);
    EXPECT_EQ(translator->announcement().codecConfig, fromHex("1190"));
    EXPECT_EQ(translator->announcement().audioSamplingRate, 48000U);
    EXPECT_EQ(lender.consumer.payloads(), (std::vector<Octets>{fromHex("de020001"), fromHex("de020002")}));
    EXPECT_EQ(lender.consumer.timeStamps().at(1), 213'333U);
    for (std::size_t length = 0; length < 11; ++length) {
        EXPECT_FALSE(readAdtsFrame(Bytes(frames).first(length))) << length;
    }
}

TEST(AacFraming, LoasFramesThatRelyOnAnEarlierConfigurationGetIt) {
    // StreamMuxConfig of AAC LC, 48 kHz, stereo, then a payload of 2 bytes 12 34; and the same without it.
    const Octets full = fromHex("56e00a 20001190 3fc0 0848d000");
    const Octets reuse = fromHex("56e004 81091a00");
    LoasConfigurator configurator;
    EXPECT_TRUE(configurator.withConfiguration(reuse).empty()) << "there is none yet";
    ASSERT_FALSE(configurator.withConfiguration(full).empty());
    EXPECT_EQ(configurator.audioSpecificConfig(), fromHex("1190"));
    const Bytes mended = configurator.withConfiguration(reuse);
    EXPECT_EQ(Octets(mended.begin(), mended.end()), full);
    for (std::size_t length = 0; length < full.size(); ++length) {
        LoasConfigurator fresh;
        EXPECT_EQ(loasFrameLength(Bytes(full).first(length)), 0U);
        EXPECT_TRUE(fresh.withConfiguration(Bytes(full).first(length)).empty()) << length;
    }
}

TEST(TimeStamps, RiseAndRunOn) {
    for (const auto& row : readTable("time-stamps.txt")) {
        StampSequence stamps;
        CounterUnwrapper counter(33);
        std::vector<std::string> found;
        for (const std::string& text : split(row.at(2), ' ')) {
            const auto time = text == "-" ? std::nullopt : std::optional<std::int64_t>(std::stoll(text));
            found.push_back(row.at(1) == "times" ? std::to_string(stamps.next(time, 40))
                                                 : std::to_string(counter.unwrap(*time)));
        }
        EXPECT_EQ(found, split(row.at(3), ' ')) << row[0];
    }
}

} // namespace
