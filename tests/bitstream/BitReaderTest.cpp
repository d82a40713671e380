#include "BitReader.h"

#include <gtest/gtest.h>

#include <random>

#include "BitWriter.h"
#include "ExpGolomb.h"
#include "NaiveBitReader.h"
#include "TestData.h"

using namespace KorvelVideo::Network;

namespace {

TEST(BitReader, Peeks) {
    const Bytes digits = {0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF, 0x0F};
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
        {"missing bits take no room", !rbsp, {0xFF}, 0, 16, 0xFF, 0},
        {"part of a byte left", !rbsp, {0xFF}, 5, 8, 7, 5},
        {"far behind the end", !rbsp, {0xFF}, 803, 32, 0, 803},
        {"64 unaligned", !rbsp, digits, 4, 64, 0x123456789ABCDEF0, 4},
        {"64 cut short", !rbsp, {digits.begin(), digits.end() - 1}, 4, 64, 0x123456789ABCDEF, 4},
        {"skip lands behind it", rbsp, {0x25, 0, 0, 3, 1, 0x80}, 24, 8, 1, 32},
        {"peek across it", rbsp, {0x25, 0, 0, 3, 1, 0x80}, 8, 32, 0x00000180, 8},
        {"four is data", rbsp, {0, 0, 3, 4}, 0, 32, 0x00000304, 0},
        {"before three", rbsp, {0, 0, 3, 3}, 0, 24, 0x000003, 0},
        {"two in a row", rbsp, {0, 0, 3, 0, 0, 3, 1}, 32, 8, 1, 48},
        {"final one is stepped over", rbsp, {7, 0, 0, 3}, 24, 8, 0, 32},
        {"final one adds nothing", rbsp, {7, 0, 0, 3}, 8, 24, 0, 8},
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
    reader.byteAlign();
    EXPECT_EQ(reader.bitsConsumed(), 8);
}

TEST(BitReader, NegativeSizeAndNullAreEmpty) {
    const Bytes bytes = {0xFF};
    EXPECT_EQ(BitReader(bytes.data(), -1).peekBits(8), 0U);
    EXPECT_EQ(BitReader(nullptr, 0).readBits(8), 0);
}

// Any sequence of operations gives what the plainest reader gives. Bytes are mostly 0 to 3, for emulation
// prevention at every place.
TEST(BitReader, AgreesWithTheNaiveReader) {
    std::mt19937 random(7);
    const auto below = [&](std::uint32_t n) { return static_cast<std::int32_t>(random() % n); };
    for (int round = 0; round < 3000; ++round) {
        Bytes bytes(static_cast<std::size_t>(below(40)));
        for (std::uint8_t& byte : bytes) {
            byte = static_cast<std::uint8_t>(below(2) == 0 ? below(4) : below(256));
        }
        BitReader reader = readerOver(bytes);
        NaiveBitReader naive(bytes.data(), static_cast<std::int32_t>(bytes.size()));
        while (naive.bitsConsumed() < static_cast<std::int32_t>(bytes.size() * 8 + 16)) {
            const std::int32_t n = below(4) == 0 ? below(65) : below(33);
            ASSERT_EQ(reader.peekBits(n), naive.peekBits(n)) << n << " at " << naive.bitsConsumed();
            ASSERT_EQ(reader.peekRbspBits(n), naive.peekRbspBits(n)) << n << " at " << naive.bitsConsumed();
            switch (below(8)) {
            case 0:
                reader.byteAlign();
                naive.byteAlign();
                break;
            case 1:
                reader.skipRbspBits(n);
                naive.skipRbspBits(n);
                break;
            case 2: {
                Bytes copy(static_cast<std::size_t>(below(30)));
                reader.readBytes(copy.data(), static_cast<std::uint32_t>(copy.size()));
                for (const std::uint8_t byte : copy) {
                    ASSERT_EQ(byte, naive.readUnsigned(8));
                }
                break;
            }
            case 3:
                ASSERT_EQ(reader.readBits(n % 33), static_cast<std::int32_t>(naive.readUnsigned(n % 33)));
                break;
            default:
                reader.skipBits(n);
                naive.skipBits(n);
            }
            ASSERT_EQ(reader.bitsConsumed(), naive.bitsConsumed());
        }
    }
}

TEST(ExpGolomb, EveryLengthOfCode) {
    for (int zeros = 0; zeros <= 32; ++zeros) {
        const std::uint64_t first = (std::uint64_t{1} << zeros) - 1;
        for (const std::uint64_t value : {first, 2 * first}) {
            const Bytes bytes = BitWriter("101").ue(value).ue(5).data();
            BitReader reader = readerOver(bytes);
            reader.skipBits(3);
            EXPECT_EQ(readUe(reader), value);
            EXPECT_EQ(readUe(reader), 5U);
        }
    }
    for (const std::int64_t value : {0LL, 1LL, -1LL, 2LL, -128LL, 2147483647LL, -2147483648LL}) {
        const Bytes bytes = BitWriter("se" + std::to_string(value)).data();
        BitReader reader = readerOver(bytes);
        EXPECT_EQ(readSe(reader), value);
    }
}

TEST(ExpGolomb, WhatIsNoCode) {
    struct Row {
        const char* bits;
        std::uint64_t value;
        std::int32_t consumed;
    };
    const Row rows[] = {
        {"33*0 x8000", 0, 33}, {"x00", 0, 33}, {"00001 111", 22, 9}}; // the last bit did not arrive
    for (const Row& row : rows) {
        const Bytes bytes = BitWriter(row.bits).data();
        BitReader reader = readerOver(bytes);
        EXPECT_EQ(readUe(reader), row.value) << row.bits;
        EXPECT_EQ(reader.bitsConsumed(), row.consumed) << row.bits;
    }
}

} // namespace
