#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace KorvelVideo::Network {

// Reads a received buffer as a string of bits, most significant bit of each byte first. Every parser of
// received bytes goes through it.
//
// A plain value that does not own the bytes: the caller keeps them alive. It never allocates, throws or
// fails. Bits at or beyond the end neither exist nor take room: a peek of 16 bits with 8 left gives those 8
// as an 8-bit number, a peek behind the end gives 0. Skips go beyond the end and keep counting.
//
// The Rbsp pair steps over the emulation prevention bytes of an H.264 NAL unit (ISO/IEC 14496-10, 7.4.1).
//
// Counts are in bits unless the name says bytes. Bit counts are 0 to 64 for peeks, not negative for skips.
class BitReader {
public:
    BitReader(const std::uint8_t* bytes, std::int32_t size) noexcept
        : start(bytes), position(bytes), end(bytes + std::max(size, 0)) {}

    // The next n bits, right-aligned. The reader does not move.
    [[nodiscard]] std::uint64_t peekBits(std::int32_t n) const noexcept {
        if (n > c_widestPeek) {
            BitReader rest = *this;
            rest.skipBits(c_widestPeek);
            const auto low =
                static_cast<std::int32_t>(std::min<std::int64_t>(n - c_widestPeek, rest.bitsLeft()));
            return peekBits(c_widestPeek) << low | rest.peekBits(low);
        }
        const auto taken = std::min<std::int64_t>(n, bitsLeft());
        return taken == 0 ? 0 : peekWord() >> (64 - taken);
    }

    void skipBits(std::int32_t n) noexcept {
        const std::int64_t total = std::int64_t{bitOffset} + n;
        bitOffset = static_cast<std::int32_t>(total & 7);
        advance(static_cast<std::uint32_t>(total >> 3));
    }

    // A peek and a skip, the value cut to 32 bits.
    std::int32_t readBits(std::int32_t n) noexcept { return static_cast<std::int32_t>(readUnsigned(n)); }

    std::uint32_t readUnsigned(std::int32_t n) noexcept {
        const auto value = static_cast<std::uint32_t>(peekBits(n));
        skipBits(n);
        return value;
    }

    // To the next byte boundary of the buffer, unless the reader stands on one.
    void byteAlign() noexcept {
        if (bitOffset != 0) {
            bitOffset = 0;
            advance(1);
        }
    }

    // Bits from the start of the buffer, modulo 2^32.
    [[nodiscard]] std::int32_t bitsConsumed() const noexcept {
        const auto bytes = static_cast<std::uint32_t>(position - start) + bytesBeyondEnd;
        return static_cast<std::int32_t>(bytes * 8 + static_cast<std::uint32_t>(bitOffset));
    }

    // Bits from here to the end of the buffer: the bound of every count that a stream announces.
    [[nodiscard]] std::int64_t bitsLeft() const noexcept {
        return position == end ? 0 : std::int64_t{end - position} * 8 - bitOffset;
    }

    void skipBytes(std::uint32_t count) noexcept { advance(count); }

    // Copies count bytes of 8 bits each, at any bit offset; a byte behind the end is 0.
    void readBytes(std::uint8_t* destination, std::uint32_t count) noexcept {
        const auto whole = std::min(count, static_cast<std::uint32_t>(bitsLeft() / 8));
        if (whole > 0) {
            copyWholeBytes(destination, whole);
        }
        if (whole < count) {
            destination[whole] = static_cast<std::uint8_t>(readUnsigned(8));
            std::fill(destination + whole + 1, destination + count, std::uint8_t{0});
            advance(count - whole - 1);
        }
    }

    [[nodiscard]] std::uint64_t peekRbspBits(std::int32_t n) const noexcept {
        if (position == end) {
            return 0;
        }
        const std::int32_t available = 8 - bitOffset;
        const std::uint8_t* next = position;
        if (n <= available) {
            next += isEmulationPrevention(next) ? 1 : 0;
            return next == end ? 0 : unconsumedBits(*next) >> (available - n);
        }
        std::uint64_t value = unconsumedBits(*next++);
        for (std::int32_t remaining = n - available; remaining > 0 && next != end; ++next) {
            next += isEmulationPrevention(next) ? 1 : 0;
            if (next == end) {
                break;
            }
            const std::int32_t taken = std::min(remaining, 8);
            value = value << taken | static_cast<std::uint64_t>(*next >> (8 - taken));
            remaining -= taken;
        }
        return value;
    }

    void skipRbspBits(std::int32_t n) noexcept {
        const std::int64_t total = std::int64_t{bitOffset} + n;
        bitOffset = static_cast<std::int32_t>(total & 7);
        for (std::int64_t bytes = total >> 3; bytes > 0; --bytes) {
            advance(1);
            if (position == end) {
                advance(static_cast<std::uint32_t>(bytes - 1));
                break;
            }
            advance(isEmulationPrevention(position) ? 1 : 0);
        }
    }

private:
    static constexpr std::int32_t c_widestPeek = 57; // of one 64-bit word at any bit offset

    const std::uint8_t* start;
    const std::uint8_t* position; // the byte that holds the next unread bit, at most end
    const std::uint8_t* end;
    std::int32_t bitOffset = 0; // consumed high-order bits of the byte at position, 0 to 7
    // A pointer must not leave its buffer, so what was skipped behind the end is counted apart.
    std::uint32_t bytesBeyondEnd = 0;

    void advance(std::uint32_t bytes) noexcept {
        const auto inside = static_cast<std::uint32_t>(std::min<std::int64_t>(bytes, end - position));
        position += inside;
        bytesBeyondEnd += bytes - inside;
    }

    [[nodiscard]] std::uint64_t unconsumedBits(std::uint8_t byte) const noexcept {
        return byte & (0xFFU >> bitOffset);
    }

    static std::uint64_t loadWord(const std::uint8_t* p) noexcept {
        return std::uint64_t{p[0]} << 56 | std::uint64_t{p[1]} << 48 | std::uint64_t{p[2]} << 40 |
               std::uint64_t{p[3]} << 32 | std::uint64_t{p[4]} << 24 | std::uint64_t{p[5]} << 16 |
               std::uint64_t{p[6]} << 8 | std::uint64_t{p[7]};
    }

    static void storeWord(std::uint8_t* p, std::uint64_t word) noexcept {
        p[0] = static_cast<std::uint8_t>(word >> 56);
        p[1] = static_cast<std::uint8_t>(word >> 48);
        p[2] = static_cast<std::uint8_t>(word >> 40);
        p[3] = static_cast<std::uint8_t>(word >> 32);
        p[4] = static_cast<std::uint8_t>(word >> 24);
        p[5] = static_cast<std::uint8_t>(word >> 16);
        p[6] = static_cast<std::uint8_t>(word >> 8);
        p[7] = static_cast<std::uint8_t>(word);
    }

    // The next 57 bits or more, left-aligned, zeros behind the end.
    [[nodiscard]] std::uint64_t peekWord() const noexcept {
        const auto left = end - position;
        if (left >= 8) {
            return loadWord(position) << bitOffset;
        }
        if (end - start >= 8) {
            return left == 0 ? 0 : loadWord(end - 8) << (64 - 8 * left) << bitOffset;
        }
        std::uint64_t word = 0;
        for (std::int64_t i = 0; i < left; ++i) {
            word |= std::uint64_t{position[i]} << (56 - 8 * i);
        }
        return word << bitOffset;
    }

    // All count bytes lie before the end.
    void copyWholeBytes(std::uint8_t* destination, std::uint32_t count) noexcept {
        if (bitOffset == 0) {
            std::memcpy(destination, position, count);
        } else {
            copyShifted(destination, count);
        }
        advance(count);
    }

    // Byte i of the copy straddles bytes i and i + 1; eight at a time while a ninth can be read.
    void copyShifted(std::uint8_t* destination, std::uint32_t count) const noexcept {
        const std::uint8_t* source = position;
        const std::int32_t fromNext = 8 - bitOffset;
        std::uint32_t i = 0;
        for (; count - i >= 8; i += 8) {
            storeWord(destination + i,
                      loadWord(source + i) << bitOffset | std::uint64_t{source[i + 8]} >> fromNext);
        }
        for (; i < count; ++i) {
            destination[i] = static_cast<std::uint8_t>(source[i] << bitOffset | source[i + 1] >> fromNext);
        }
    }

    // 00 00 03 before 00, 01, 02 or 03. A final 00 00 03 is one as well: a NAL unit never ends in 00, so this
    // 03 can only have been put behind zeros (ISO/IEC 14496-10, 7.4.1).
    [[nodiscard]] bool isEmulationPrevention(const std::uint8_t* p) const noexcept {
        return p - start >= 2 && p != end && p[-2] == 0 && p[-1] == 0 && p[0] == 3 &&
               (p + 1 == end || p[1] <= 3);
    }
};

} // namespace KorvelVideo::Network
