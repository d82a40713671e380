#include "BitReader.h"

#include <gtest/gtest.h>

#include <tuple>

#include "BitWriter.h"
#include "ExpGolomb.h"
#include "TestData.h"

using namespace KorvelVideo::Network;

namespace {

TEST(BitReader, Peeks) {
    constexpr bool rbsp = true; // over emulation prevention
    struct Row {
        const char* name;
        bool isRbsp;
        Bytes bytes;
        int skip, peek;
        std::uint64_t value;
        int consumed; // by the skip, in bits
    };
    const Row rows[] = {
        {"missing bits take no room", !rbsp, {0xFF}, 5, 16, 7, 5},
        {"64 unaligned", !rbsp, {0xF1, 2, 3, 4, 5, 6, 7, 8, 0x9F}, 4, 64, 0x1020304050607089, 4},
        {"skip lands behind it", rbsp, {0x25, 0, 0, 3, 1, 0x80}, 24, 8, 1, 32},
        {"peek across it", rbsp, {0x25, 0, 0, 3, 1, 0x80}, 8, 32, 0x00000180, 8},
        {"four is data", rbsp, {0, 0, 3, 4}, 0, 32, 0x00000304, 0},
        {"final one is stepped over", rbsp, {7, 0, 0, 3}, 24, 8, 0, 32},
    };
    for (const Row& row : rows) {
        BitReader reader = readerOver(row.bytes);
        row.isRbsp ? reader.skipRbspBits(row.skip) : reader.skipBits(row.skip);
        EXPECT_EQ(row.isRbsp ? reader.peekRbspBits(row.peek) : reader.peekBits(row.peek), row.value)
            << row.name;
        EXPECT_EQ(reader.bitsConsumed(), row.consumed) << row.name;
    }
}

TEST(BitReader, SkipsFarBehindTheEndKeepCounting) {
    const Bytes bytes = {1, 2, 3};
    BitReader reader = readerOver(bytes);
    reader.skipBits(2147483647);
    reader.skipBits(2147483647);
    reader.skipBits(5);
    EXPECT_EQ(reader.bitsConsumed(), 3); // 2^32 + 3
    EXPECT_EQ(reader.peekBits(32) + reader.peekRbspBits(32), 0U);
    EXPECT_EQ(reader.bitsLeft(), 0);
    EXPECT_EQ(BitReader(bytes.data(), -1).peekBits(8), 0U);
}

TEST(ExpGolomb, EveryLengthOfCode) {
    for (int zeros = 0; zeros <= 32; ++zeros) {
        const std::uint64_t first = (std::uint64_t{1} << zeros) - 1;
        for (const std::uint64_t value : {first, 2 * first}) {
            const Bytes bytes = BitWriter("ue5 ue" + std::to_string(value) + " ue5").data();
            BitReader reader = readerOver(bytes);
            EXPECT_EQ(readUe(reader), 5U);
            EXPECT_EQ(readUe(reader), value);
            EXPECT_EQ(readUe(reader), 5U);
        }
    }
}

TEST(ExpGolomb, WhatIsNoCode) {
    const std::tuple<const char*, std::uint64_t, std::int32_t> rows[] = {
        // bits, value, bits consumed
        {"33*0 x8000", 0, 33},
        {"x00", 0, 33},
        {"00001 111", 22, 9}}; // the last bit did not arrive
    for (const auto& [bits, value, consumed] : rows) {
        const Bytes bytes = BitWriter(bits).data();
        BitReader reader = readerOver(bytes);
        EXPECT_EQ(readUe(reader), value) << bits;
        EXPECT_EQ(reader.bitsConsumed(), consumed) << bits;
    }
}

} // namespace
