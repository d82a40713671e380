#pragma once

#include <algorithm>
#include <cstdint>

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
        if (end - position >= 8 && n <= c_widestPeek) [[likely]] {
            return loadWord(position) << bitOffset >> 1 >> (63 - n);
        }
        return peekBitsSlowly(n);
    }

    void skipBits(std::int32_t n) noexcept {
        const std::int64_t total = std::int64_t{bitOffset} + n;
        bitOffset = static_cast<std::int32_t>(total & 7);
        advance(total >> 3);
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
    void readBytes(std::uint8_t* destination, std::uint32_t count) noexcept;

    [[nodiscard]] std::uint64_t peekRbspBits(std::int32_t n) const noexcept;
    void skipRbspBits(std::int32_t n) noexcept;

private:
    static constexpr std::int32_t c_widestPeek = 57; // of one 64-bit word at any bit offset

    const std::uint8_t* start;
    const std::uint8_t* position; // the byte that holds the next unread bit, at most end
    const std::uint8_t* end;
    std::int32_t bitOffset = 0; // consumed high-order bits of the byte at position, 0 to 7
    // A pointer must not leave its buffer, so what was skipped behind the end is counted apart.
    std::uint32_t bytesBeyondEnd = 0;

    void advance(std::int64_t bytes) noexcept {
        const std::int64_t inside = std::min<std::int64_t>(bytes, end - position);
        position += inside;
        bytesBeyondEnd += static_cast<std::uint32_t>(bytes - inside);
    }

    static std::uint64_t loadWord(const std::uint8_t* p) noexcept {
        return std::uint64_t{p[0]} << 56 | std::uint64_t{p[1]} << 48 | std::uint64_t{p[2]} << 40 |
               std::uint64_t{p[3]} << 32 | std::uint64_t{p[4]} << 24 | std::uint64_t{p[5]} << 16 |
               std::uint64_t{p[6]} << 8 | std::uint64_t{p[7]};
    }

    [[nodiscard]] std::uint64_t peekBitsSlowly(std::int32_t n) const noexcept;
    [[nodiscard]] std::uint64_t lastWord() const noexcept;
    [[nodiscard]] std::uint64_t unconsumedBits(std::uint8_t byte) const noexcept;
    [[nodiscard]] bool isEmulationPrevention(const std::uint8_t* p) const noexcept;
    void copyShifted(std::uint8_t* destination, std::uint32_t count) const noexcept;
};

} // namespace KorvelVideo::Network
