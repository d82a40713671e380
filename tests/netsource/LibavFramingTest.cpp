// What senders' framings become, from bytes that x264 and ffmpeg's AAC encoder made.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "AacFraming.h"
#include "AvcFragments.h"
#include "LibavTestSupport.h"
#include "StampSequence.h"
#include "StreamTranslator.h"

namespace KorvelVideo::NetworkSource::test {
namespace {

using testing::ElementsAre;

ByteVector hex(const std::string& text) {
    ByteVector bytes;
    unsigned digits = 0;
    unsigned value = 0;
    for (const char c : text) {
        if (c != ' ') {
            value = value << 4 | static_cast<unsigned>(c <= '9' ? c - '0' : c - 'a' + 10);
            if (++digits % 2 == 0) {
                bytes.push_back(static_cast<std::uint8_t>(value));
                value = 0;
            }
        }
    }
    return bytes;
}

// Of a 320x240 stream.
const std::string kSps = "6764000dacb40a0fd808800000030080000019078a1550";
const std::string kPps = "68ef0fcb";
const std::string kOtherPps = "685b0fcb"; // pic_parameter_set_id 1
const std::string kIdr = "658884002b";
const std::string kSlice = "419a24";
const std::string kDelimiter = "0910";
const std::string kBufferingPeriod = "060001c080";
const std::string kStart = "00000001";

struct SplitCase {
    const char* name;
    const char* bytes;
    unsigned lengthSize;
    std::vector<std::string> nals;
};

TEST(LibavFramingTest, NalUnitsAreFound) {
    const SplitCase rows[] = {
        {"three and four byte start codes", "00000165aa 0000000141bb", 0, {"65aa", "41bb"}},
        {"zeros around", "0000000000000165aa000000 0000014100", 0, {"65aa", "41"}},
        {"zeros inside", "00000165000003000001aa", 0, {"65000003", "aa"}},
        {"nothing before the first start code", "ffff00000165", 0, {"65"}},
        {"empty NAL units", "000001000001000001", 0, {}},
        {"no start code", "65aabb", 0, {}},
        {"start code at the end", "00000165000001", 0, {"65"}},
        {"lengths of 4 bytes", "0000000265aa 0000000141", 4, {"65aa", "41"}},
        {"lengths of 2 bytes", "000265aa 0000 000141", 2, {"65aa", "41"}},
        {"lengths of 1 byte", "0265aa 0141", 1, {"65aa", "41"}},
        {"a length that lies", "00000002 65aa ffffffff 41", 4, {"65aa", "41"}},
        {"a cut length", "0000000265aa 0000", 4, {"65aa"}},
        {"empty", "", 0, {}},
        {"empty with lengths", "", 4, {}},
    };
    for (const SplitCase& row : rows) {
        const ByteVector bytes = hex(row.bytes);
        std::vector<Bytes> nals{Bytes(bytes)};
        splitNalUnits(bytes, row.lengthSize, nals);
        std::vector<ByteVector> expected;
        for (const std::string& nal : row.nals) {
            expected.push_back(hex(nal));
        }
        std::vector<ByteVector> found;
        for (const Bytes nal : nals) {
            found.emplace_back(nal.begin(), nal.end());
        }
        EXPECT_EQ(expected, found) << row.name;
    }
}

std::string avcRecord() { return "0164000dffe10017" + kSps + "010004" + kPps; }

TEST(LibavFramingTest, ConfigurationsGiveTheirParameterSets) {
    for (const std::string& text : {avcRecord(), kStart + kSps + "000001" + kPps}) {
        const auto translator = makeAvcTranslator();
        translator->configure(hex(text));
        EXPECT_TRUE(translator->complete());
        EXPECT_EQ(hex(kStart + kSps + kStart + kPps), translator->announcement().codecConfig);
    }
    const ByteVector record = hex(avcRecord());
    for (std::size_t length = 0; length < record.size(); ++length) {
        const ByteVector cut(record.begin(), record.begin() + static_cast<std::ptrdiff_t>(length));
        const auto translator = makeAvcTranslator();
        translator->configure(cut);
        EXPECT_FALSE(translator->complete()) << length;
    }
}

struct FormatCase {
    const char* name;
    std::vector<std::string> nals;     // length-prefixed in the test
    std::vector<std::string> expected; // behind 4-byte start codes
};

TEST(LibavFramingTest, IdrPicturesGetTheParameterSetsThatTheyLack) {
    const FormatCase rows[] = {
        {"all lacking", {kIdr}, {kSps, kPps, kIdr}},
        {"delimiter stays first", {kDelimiter, kIdr}, {kDelimiter, kSps, kPps, kIdr}},
        {"before supplemental information", {kBufferingPeriod, kIdr}, {kSps, kPps, kBufferingPeriod, kIdr}},
        {"picture parameter set lacking", {kSps, kIdr}, {kSps, kPps, kIdr}},
        {"sequence parameter set lacking", {kPps, kIdr}, {kSps, kPps, kIdr}},
        {"none lacking", {kSps, kPps, kIdr}, {kSps, kPps, kIdr}},
        {"two slices", {kIdr, kIdr}, {kSps, kPps, kIdr, kIdr}},
        {"no IDR picture", {kDelimiter, kSlice}, {kDelimiter, kSlice}},
        {"another set in band joins the known ones", {kOtherPps, kIdr}, {kSps, kPps, kOtherPps, kIdr}},
    };
    for (const FormatCase& row : rows) {
        ParameterSets sets;
        sets.keep(hex(kSps));
        sets.keep(hex(kPps));
        ByteVector accessUnit;
        for (const std::string& nal : row.nals) {
            const ByteVector bytes = hex(nal);
            accessUnit.insert(accessUnit.end(), {0, static_cast<std::uint8_t>(bytes.size())});
            accessUnit.insert(accessUnit.end(), bytes.begin(), bytes.end());
        }
        std::string expected;
        for (const std::string& nal : row.expected) {
            expected += kStart + nal;
        }
        AccessUnitFormatter formatter;
        ByteVector formatted;
        for (const Bytes piece : formatter.format(accessUnit, 2, sets)) {
            formatted.insert(formatted.end(), piece.begin(), piece.end());
        }
        EXPECT_EQ(hex(expected), formatted) << row.name;
    }
}

TEST(LibavFramingTest, OnlySaneParameterSetsAreKept) {
    ParameterSets sets;
    EXPECT_EQ(0, sets.keep(hex(kSps)));
    EXPECT_EQ(1, sets.keep(hex(kOtherPps)));
    EXPECT_EQ(-1, sets.keep(hex("67640000000000000000"))); // identifier never ends
    EXPECT_EQ(-1, sets.keep(hex("6764000d0420")));         // identifier 32
    EXPECT_EQ(-1, sets.keep(hex("67")));                   // cut
    EXPECT_EQ(-1, sets.keep(hex(kIdr)));                   // no parameter set
    ByteVector endless = hex(kPps);
    endless.resize(5000, 0xAA);
    EXPECT_EQ(-1, sets.keep(endless));
    EXPECT_EQ(1U, sets.sequence().size());
    EXPECT_EQ(1U, sets.picture().size());
}

struct Fragment {
    std::string bytes;
    std::optional<std::int64_t> time; // ms
};
struct FragmentCase {
    const char* name;
    std::vector<Fragment> fragments;
    std::vector<std::string> units;
};

TEST(LibavFramingTest, FragmentsBecomeAccessUnits) {
    const FragmentCase rows[] = {
        {"one NAL unit a fragment",
         {{kStart + kSps, 0}, {kStart + kPps, 0}, {kStart + kIdr, 0}, {kStart + kSlice, 40}},
         {kStart + kSps + kStart + kPps + kStart + kIdr, kStart + kSlice}},
        {"continued NAL units, with zeros at the seams",
         {{kStart + "419a00", 0}, {"0001020300", 0}, {"04", 0}, {kStart + "419a05", 40}, {"00", 40}},
         {kStart + "419a0000010203 0004", kStart + "419a0500"}},
        {"parameter sets before the IDR picture that lacks them",
         {{kStart + kDelimiter, 0}, {kStart + kIdr, 0}},
         {kStart + kDelimiter + kStart + kSps + kStart + kPps + kStart + kIdr}},
        {"parameter sets before its buffering period, once",
         {{kStart + kBufferingPeriod + kStart + kIdr, 0}},
         {kStart + kSps + kStart + kPps + kStart + kBufferingPeriod + kStart + kIdr}},
        {"3-byte start codes",
         {{"000001" + kSlice + "000001" + kSlice, 0}},
         {kStart + kSlice + kStart + kSlice}},
        {"a clock that is corrected within an access unit",
         {{kStart + kSps, 0}, {kStart + kIdr, 1}, {"aa", 1}, {kStart + "4111", 1}, {kStart + kSlice, 40}},
         {kStart + kSps + kStart + kPps + kStart + kIdr + "aa" + kStart + "4111", kStart + kSlice}},
        {"fields of one time",
         {{kStart + kSlice, 0}, {kStart + kSlice, 0}},
         {kStart + kSlice + kStart + kSlice}},
        {"no time",
         {{kStart + kSlice, 0}, {kStart + kSlice, std::nullopt}},
         {kStart + kSlice + kStart + kSlice}},
        {"a picture whose first slice is lost",
         {{kStart + kSlice, 0}, {kStart + "4111", 40}},
         {kStart + kSlice, kStart + "4111"}},
    };
    for (const FragmentCase& row : rows) {
        for (const std::size_t bufferSize : {std::size_t{1}, std::size_t{7}, std::size_t{4096}}) {
            ParameterSets sets;
            sets.keep(hex(kSps));
            sets.keep(hex(kPps));
            RecordingSink sink;
            sink.bufferSize = bufferSize;
            AvcFragmentWriter writer;
            for (const Fragment& fragment : row.fragments) {
                const std::optional<std::int64_t> time =
                    fragment.time ? std::optional(*fragment.time * 10'000) : std::nullopt;
                EXPECT_EQ(0U, writer.write(hex(fragment.bytes), time, sets, 0, sink));
                if (bufferSize == 7) { // pauses within an access unit do not split it
                    writer.flush(0, sink);
                }
            }
            writer.flush(0, sink);
            std::vector<ByteVector> expected;
            for (const std::string& unit : row.units) {
                expected.push_back(hex(unit));
            }
            EXPECT_EQ(expected, payloads(sink.units(0))) << row.name << ", buffers of " << bufferSize;
            EXPECT_EQ(0U, sink.lentBuffers());
        }
    }
}

TEST(LibavFramingTest, WhatFindsNoBufferIsLeftOutAndNothingElse) {
    ParameterSets sets;
    RecordingSink sink;
    AvcFragmentWriter writer;
    EXPECT_EQ(2U, writer.write(hex("aabb"), 0, sets, 0, sink)) << "its start was missed";
    sink.refusing = true;
    EXPECT_EQ(7U, writer.write(hex(kStart + kSlice), 0, sets, 0, sink));
    sink.refusing = false;
    EXPECT_EQ(0U, writer.write(hex(kStart + kSlice), 400'000, sets, 0, sink));
    EXPECT_THAT(payloads(sink.units(0)), ElementsAre(hex(kStart + kSlice)));
}

struct AudioCase {
    const char* config;
    std::uint32_t samplingRate;
    std::uint32_t channels;
};

TEST(LibavFramingTest, AudioConfigurationsTellTheirFormat) {
    const AudioCase rows[] = {
        {"1190", 48000, 2},
        {"119056e500", 48000, 2},
        {"1208", 44100, 1},
        {"2b920800", 44100, 2},
        {"eb8a0800", 44100, 2},   // spectral band replication, parametric stereo
        {"17805dc010", 48000, 2}, // sampling rate given in full
        {"11b8", 48000, 8},
        {"1180", 48000, 0},
        {"fff8", 0, 0},
        {"1198", 48000, 3},
        {"11", 0, 0},
        {"", 0, 0},
    };
    for (const AudioCase& row : rows) {
        const std::optional<AacFormat> format = readAudioSpecificConfig(hex(row.config));
        EXPECT_EQ(row.samplingRate != 0, format.has_value()) << row.config;
        if (format) {
            EXPECT_EQ(row.samplingRate, format->samplingRate) << row.config;
            EXPECT_EQ(row.channels, format->channels) << row.config;
        }
    }
}

TEST(LibavFramingTest, AdtsIsTakenOffAndTellsTheConfiguration) {
    // Two frames of 11 bytes, 48 kHz stereo; the second with a CRC.
    const std::string frame = "fff14c80017ffc de020001";
    const std::string withCrc = "fff04c8001bffc 1234 de020002";
    const auto translator = makeAacTranslator(0, 0);
    RecordingSink sink;
    EXPECT_EQ(1U, translator->deliver({hex(frame + withCrc + "ff"), 0, 0}, 0, sink));
    EXPECT_EQ(hex("1190"), translator->announcement().codecConfig);
    EXPECT_EQ(48000U, translator->announcement().audioSamplingRate);
    const auto units = sink.units(0);
    EXPECT_THAT(payloads(units), ElementsAre(hex("de020001"), hex("de020002")));
    EXPECT_EQ(213'333U, units.at(1).timeStamp - units.at(0).timeStamp);

    const ByteVector whole = hex(frame);
    for (std::size_t length = 0; length < whole.size(); ++length) {
        EXPECT_FALSE(readAdtsFrame(Bytes(whole).first(length))) << length;
    }
}

TEST(LibavFramingTest, LoasFramesThatRelyOnAnEarlierConfigurationGetIt) {
    // StreamMuxConfig of AAC LC, 48 kHz, stereo, then a payload of 2 bytes 12 34; and the same without it.
    const ByteVector full = hex("56e00a 20001190 3fc0 0448d000");
    LoasConfigurator configurator;
    ByteVector reuse = hex("56e004 81091a00");
    EXPECT_TRUE(configurator.withConfiguration(reuse).empty()) << "there is none yet";
    ASSERT_FALSE(configurator.withConfiguration(full).empty());
    EXPECT_EQ(hex("1190"), configurator.audioSpecificConfig());
    const Bytes mended = configurator.withConfiguration(reuse);
    ASSERT_GT(mended.size(), reuse.size());
    EXPECT_EQ(mended.size(), loasFrameLength(mended));
    for (std::size_t length = 0; length < full.size(); ++length) {
        LoasConfigurator fresh;
        EXPECT_EQ(0U, loasFrameLength(Bytes(full).first(length)));
        EXPECT_TRUE(fresh.withConfiguration(Bytes(full).first(length)).empty()) << length;
    }
}

TEST(LibavFramingTest, TimeStampsRiseUnlessTheSenderStartsAnew) {
    struct Row {
        std::optional<std::int64_t> time;
        std::int64_t duration;
        std::uint64_t expected;
    };
    const Row rows[] = {
        {-5, 0, 0},
        {0, 0, 1},
        {100, 0, 100},
        {100, 0, 101},
        {50, 0, 102},
        {std::nullopt, 40, 142},
        {std::nullopt, 0, 143},
        {200'000'000, 0, 200'000'000},
        {150'000'001, 0, 200'000'001}, // less than 5 s back
        {10, 0, 10},                   // a new start
        {20, 0, 20},
    };
    StampSequence stamps;
    for (const Row& row : rows) {
        EXPECT_EQ(row.expected, stamps.next(row.time, row.duration));
    }
}

TEST(LibavFramingTest, CountersRunOnWhenTheyStartOver) {
    constexpr std::int64_t kFull = std::int64_t{1} << 33;
    CounterUnwrapper clock(33);
    EXPECT_EQ(kFull - 10, clock.unwrap(kFull - 10));
    EXPECT_EQ(kFull + 5, clock.unwrap(5));
    EXPECT_EQ(kFull, clock.unwrap(0));
    EXPECT_EQ(kFull * 3 / 2 - 1, clock.unwrap(kFull / 2 - 1));
    EXPECT_EQ(kFull * 2 - 2, clock.unwrap(kFull - 2));
    EXPECT_EQ(kFull * 2 + 1, clock.unwrap(1)) << "the second time";
    EXPECT_EQ(kFull * 2 + 3, clock.unwrap(kFull + 3)) << "someone has unwrapped it before";
    CounterUnwrapper negative(32);
    EXPECT_EQ(-7, negative.unwrap(-7));
    EXPECT_EQ(3, negative.unwrap(3));
}

} // namespace
} // namespace KorvelVideo::NetworkSource::test
