#include "BitReader.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

#include "BitWriter.h"
#include "ExpGolomb.h"
#include "NaiveBitReader.h"
#include "TestData.h"

using namespace KorvelVideo::Network;

namespace {

// Exact heap buffers, so that the address sanitizer sees every byte beyond them.
BitReader readerOver(const Bytes& bytes) { return {bytes.data(), static_cast<std::int32_t>(bytes.size())}; }

struct PeekCase {
    const char* name;
    Bytes bytes;
    int skip;
    int peek;
    std::uint64_t value;
};

class Peeks : public testing::TestWithParam<PeekCase> {};

TEST_P(Peeks, ValueAndPosition) {
    BitReader reader = readerOver(GetParam().bytes);
    reader.skipBits(GetParam().skip);
    EXPECT_EQ(reader.peekBits(GetParam().peek), GetParam().value);
    EXPECT_EQ(reader.bitsConsumed(), GetParam().skip);
}

INSTANTIATE_TEST_SUITE_P(
    BitReader, Peeks,
    testing::Values(
        PeekCase{"HighBitsFirst", {0xAB, 0xCD}, 0, 4, 0xA}, PeekCase{"AcrossBytes", {0xAB, 0xCD}, 4, 8, 0xBC},
        PeekCase{"SyncWord", {0x56, 0xE0}, 0, 11, 0x2B7}, PeekCase{"Nothing", {0xFF}, 3, 0, 0},
        PeekCase{"MissingBitsTakeNoRoom", {0xFF}, 0, 16, 0xFF}, PeekCase{"PartOfAByteLeft", {0xFF}, 5, 8, 7},
        PeekCase{"BehindTheEnd", {0xFF}, 8, 1, 0}, PeekCase{"FarBehindTheEnd", {0xFF}, 803, 32, 0},
        PeekCase{"Empty", {}, 5, 8, 0},
        PeekCase{"SixtyFourUnaligned",
                 {0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF, 0x0F},
                 4,
                 64,
                 0x123456789ABCDEF0},
        PeekCase{
            "SixtyFourCutShort", {0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF}, 4, 64, 0x123456789ABCDEF}),
    nameOfRow);

TEST(BitReader, ReadsAsSigned) {
    const Bytes bytes = {0xFF, 0xFF, 0xFF, 0xFE, 0x80};
    BitReader reader = readerOver(bytes);
    EXPECT_EQ(reader.readBits(32), -2);
    EXPECT_EQ(reader.readBits(1), 1);
}

TEST(BitReader, SkipsFarBehindTheEndKeepCounting) {
    const Bytes bytes = {1, 2, 3};
    BitReader reader = readerOver(bytes);
    reader.skipBits(2147483647);
    reader.skipBits(2147483647);
    reader.skipBits(5);
    EXPECT_EQ(reader.bitsConsumed(), 3); // 2^32 + 3
    EXPECT_EQ(reader.peekBits(32), 0U);
    EXPECT_EQ(reader.peekRbspBits(32), 0U);
    EXPECT_EQ(reader.bitsLeft(), 0);
    reader.byteAlign();
    EXPECT_EQ(reader.bitsConsumed(), 8);
}

TEST(BitReader, NegativeSizeAndNullAreEmpty) {
    BitReader reader(nullptr, 0);
    EXPECT_EQ(reader.readBits(8), 0);
    const Bytes bytes = {0xFF};
    EXPECT_EQ(BitReader(bytes.data(), -1).peekBits(8), 0U);
}

struct RbspCase {
    const char* name;
    Bytes bytes;
    int skip;
    int consumed; // bits
    int peek;
    std::uint64_t value; // at that place
};

class RbspReads : public testing::TestWithParam<RbspCase> {};

TEST_P(RbspReads, StepOverEmulationPrevention) {
    BitReader reader = readerOver(GetParam().bytes);
    reader.skipRbspBits(GetParam().skip);
    EXPECT_EQ(reader.bitsConsumed(), GetParam().consumed);
    EXPECT_EQ(reader.peekRbspBits(GetParam().peek), GetParam().value);
}

INSTANTIATE_TEST_SUITE_P(
    BitReader, RbspReads,
    testing::Values(RbspCase{"SkipLandsBehindIt", {0x25, 0, 0, 3, 1, 0x80}, 24, 32, 8, 1},
                    RbspCase{"PeekAcrossIt", {0x25, 0, 0, 3, 1, 0x80}, 8, 8, 32, 0x00000180},
                    RbspCase{"FourIsData", {0, 0, 3, 4}, 0, 0, 32, 0x00000304},
                    RbspCase{"SecondByteIsData", {0, 3, 1, 1}, 0, 0, 32, 0x00030101},
                    RbspCase{"ThirdByteIsOne", {0, 0, 3, 3}, 0, 0, 24, 0x000003},
                    RbspCase{"TwoInARow", {0, 0, 3, 0, 0, 3, 1}, 32, 48, 8, 1},
                    RbspCase{"FinalOneIsSteppedOver", {7, 0, 0, 3}, 24, 32, 8, 0},
                    RbspCase{"FinalOneAddsNothing", {7, 0, 0, 3}, 8, 8, 24, 0},
                    RbspCase{"UnalignedAcrossIt", {0xF0, 0, 0, 3, 1, 0x80}, 4, 4, 32, 0x00000018}),
    nameOfRow);

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
        for (const std::uint64_t suffix : {std::uint64_t{0}, (std::uint64_t{1} << zeros) - 1}) {
            const std::uint64_t value = (std::uint64_t{1} << zeros) - 1 + suffix;
            const Bytes bytes = BitWriter("101").ue(value).ue(5).data();
            BitReader reader = readerOver(bytes);
            reader.skipBits(3);
            EXPECT_EQ(readUe(reader), value);
            EXPECT_EQ(readUe(reader), 5U);
        }
    }
}

TEST(ExpGolomb, SignedCodes) {
    for (const std::int64_t value : {0LL, 1LL, -1LL, 2LL, -2LL, 128LL, -128LL, 2147483647LL, -2147483648LL}) {
        const Bytes bytes = BitWriter().se(value).data();
        BitReader reader = readerOver(bytes);
        EXPECT_EQ(readSe(reader), value);
    }
}

TEST(ExpGolomb, RunsOfZerosAreNoCode) {
    const Bytes longRun = BitWriter().u(0, 33).u(0x80000001, 32).data();
    BitReader reader = readerOver(longRun);
    EXPECT_EQ(readUe(reader), 0U);
    EXPECT_EQ(reader.readUnsigned(32), 0x80000001U);

    const Bytes tail = {0x00};
    reader = readerOver(tail);
    EXPECT_EQ(readUe(reader), 0U);
    EXPECT_EQ(reader.bitsLeft(), 0);

    const Bytes cutSuffix = {0x08}; // four zeros, 1, and three of the four bits that belong to it
    reader = readerOver(cutSuffix);
    EXPECT_EQ(readUe(reader), 15U);
}

} // namespace
