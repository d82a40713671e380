#include "AdtsHeader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace KorvelVideo::Host {

namespace {

using Bytes = std::vector<std::uint8_t>;

AdtsHeader headerFor(const Bytes& configuration) {
    return std::get<AdtsHeader>(AdtsHeader::fromConfiguration(configuration));
}

// Configuration from the .m4a and first header from the .aac that ffmpeg 5.1 made of one encoding:
//     ffmpeg -f lavfi -i sine=r=RATE:d=0.2 -ac CHANNELS -ar RATE -c:a aac -b:a 64k t.m4a
//     ffmpeg -i t.m4a -c copy t.aac
TEST(AdtsHeader, IsWhatAnotherMuxerWrites) {
    struct Row {
        const char* name;
        Bytes configuration;
        std::size_t payload;
        Bytes header;
    };
    const Row rows[] = {
        {"48 kHz stereo", {0x11, 0x90, 0x56, 0xE5, 0x00}, 132, {0xFF, 0xF1, 0x4C, 0x80, 0x11, 0x7F, 0xFC}},
        {"44.1 kHz mono", {0x12, 0x08, 0x56, 0xE5, 0x00}, 280, {0xFF, 0xF1, 0x50, 0x40, 0x23, 0xFF, 0xFC}},
        {"96 kHz 7.1", {0x10, 0x38, 0x56, 0xE5, 0x00}, 60, {0xFF, 0xF1, 0x41, 0xC0, 0x08, 0x7F, 0xFC}},
        {"8 kHz 4.0", {0x15, 0xA0, 0x56, 0xE5, 0x00}, 583, {0xFF, 0xF1, 0x6D, 0x00, 0x49, 0xDF, 0xFC}},
    };
    for (const Row& row : rows) {
        EXPECT_THAT(*headerFor(row.configuration).frame(row.payload), testing::ElementsAreArray(row.header))
            << row.name;
    }
    EXPECT_TRUE(headerFor({0x11, 0x90}).frame(8184).has_value());
    EXPECT_FALSE(headerFor({0x11, 0x90}).frame(8185).has_value());
}

TEST(AdtsHeader, SaysTheCoreOfSbrAndTheIndexOfAFrequency) {
    // Object type 5, index 6 (24 kHz), 2 channels, extension index 3 (48 kHz), object type 2, frameLengthFlag
    // 0.
    const auto core = *headerFor({0x2B, 0x11, 0x88, 0x00}).frame(100);
    EXPECT_EQ(core[2], 0x40 | 6 << 2);
    EXPECT_EQ(core[3] >> 6, 2);
    // Object type 2, index 15, 48000 in 24 bits, 2 channels.
    EXPECT_EQ((*headerFor({0x17, 0x80, 0x5D, 0xC0, 0x10}).frame(1))[2] >> 2 & 15, 3);
}

TEST(AdtsHeader, WhatDoesNotFit) {
    const std::pair<Bytes, const char*> rows[] = {
        {{}, "without its codec configuration"},
        {{0x11}, "is cut"},
        {{0x17, 0x80, 0x5D}, "is cut"},
        {{0xF8, 0xE6, 0x40, 0x00}, "audio object type 39"},
        {{0x01, 0x90, 0x00}, "audio object type 0"},
        {{0x17, 0x80, 0x5D, 0x40, 0x10}, "sampling frequency"},
        {{0x16, 0x90, 0x00}, "sampling frequency"},
        {{0x11, 0x80}, "channel configuration 0"},
        {{0x11, 0xD8}, "channel configuration 11"},
        {{0x11, 0x94}, "960 samples"},
    };
    for (const auto& [configuration, problem] : rows) {
        EXPECT_THAT(std::get<std::string>(AdtsHeader::fromConfiguration(configuration)),
                    testing::HasSubstr(problem));
    }
}

} // namespace

} // namespace KorvelVideo::Host
