#include "BitReader.h"

#include <cstring>

namespace KorvelVideo::Network {

// Near the end of the buffer, and for more bits than one word holds at any bit offset.
std::uint64_t BitReader::peekBitsSlowly(std::int32_t n) const noexcept {
    if (n > c_widestPeek) {
        BitReader rest = *this;
        rest.skipBits(c_widestPeek);
        const auto low = static_cast<std::int32_t>(std::min<std::int64_t>(n - c_widestPeek, rest.bitsLeft()));
        return peekBits(c_widestPeek) << low | rest.peekBits(low);
    }
    const auto taken = static_cast<std::int32_t>(std::min<std::int64_t>(n, bitsLeft()));
    return lastWord() << bitOffset >> 1 >> (63 - taken);
}

// The bytes from position to the end, fewer than eight, left-aligned.
std::uint64_t BitReader::lastWord() const noexcept {
    const auto left = end - position;
    if (left == 0) {
        return 0;
    }
    if (end - start >= 8) {
        return loadWord(end - 8) << (64 - 8 * left);
    }
    std::uint64_t word = 0;
    for (std::int64_t i = 0; i < left; ++i) {
        word |= std::uint64_t{position[i]} << (56 - 8 * i);
    }
    return word;
}

void BitReader::readBytes(std::uint8_t* destination, std::uint32_t count) noexcept {
    const auto whole = static_cast<std::uint32_t>(std::min<std::int64_t>(count, bitsLeft() / 8));
    if (whole > 0) {
        if (bitOffset == 0) {
            std::memcpy(destination, position, whole);
        } else {
            copyShifted(destination, whole);
        }
        advance(whole);
    }
    if (whole < count) {
        destination[whole] = static_cast<std::uint8_t>(readUnsigned(8));
        std::fill(destination + whole + 1, destination + count, std::uint8_t{0});
        advance(count - whole - 1);
    }
}

// Byte i of the copy straddles bytes i and i + 1, both before the end. Eight at a time: each byte of a word
// is a lane, in whatever order the machine has them, and the masks drop what the shifts bring in from the
// next lane.
void BitReader::copyShifted(std::uint8_t* destination, std::uint32_t count) const noexcept {
    constexpr std::uint64_t lanes = 0x0101010101010101;
    const std::uint8_t* const source = position;
    const std::int32_t fromThis = bitOffset;
    const std::int32_t fromNext = 8 - bitOffset;
    const std::uint64_t high = lanes * (0xFFU << fromThis & 0xFFU);
    const std::uint64_t low = lanes * (0xFFU >> fromNext);
    std::size_t i = 0;
    for (; i + 8 <= count; i += 8) {
        std::uint64_t here = 0;
        std::uint64_t next = 0;
        std::memcpy(&here, source + i, 8);
        std::memcpy(&next, source + i + 1, 8);
        const std::uint64_t word = (here << fromThis & high) | (next >> fromNext & low);
        std::memcpy(destination + i, &word, 8);
    }
    for (; i < count; ++i) {
        destination[i] = static_cast<std::uint8_t>(source[i] << fromThis | source[i + 1] >> fromNext);
    }
}

std::uint64_t BitReader::unconsumedBits(std::uint8_t byte) const noexcept {
    return byte & (0xFFU >> bitOffset);
}

// 00 00 03 before 00, 01, 02 or 03. A final 00 00 03 is one as well: a NAL unit never ends in 00, so this 03
// can only have been put behind zeros (ISO/IEC 14496-10, 7.4.1).
bool BitReader::isEmulationPrevention(const std::uint8_t* p) const noexcept {
    return p - start >= 2 && p != end && p[-2] == 0 && p[-1] == 0 && p[0] == 3 && (p + 1 == end || p[1] <= 3);
}

std::uint64_t BitReader::peekRbspBits(std::int32_t n) const noexcept {
    if (position == end) {
        return 0;
    }
    const std::int32_t available = 8 - bitOffset;
    const std::uint8_t* next = position;
    if (n <= available) {
        next += isEmulationPrevention(next) ? 1 : 0;
        return next == end ? 0 : unconsumedBits(*next) >> (available - n);
    }
    // The byte at position is taken as it is: skipping has stepped over what was to be stepped over.
    std::uint64_t value = unconsumedBits(*next++);
    std::int32_t remaining = n - available;
    while (remaining > 0 && next != end) {
        next += isEmulationPrevention(next) ? 1 : 0;
        if (next == end) {
            break;
        }
        const std::int32_t taken = std::min(remaining, 8);
        value = value << taken | static_cast<std::uint64_t>(*next++ >> (8 - taken));
        remaining -= taken;
    }
    return value;
}

void BitReader::skipRbspBits(std::int32_t n) noexcept {
    const std::int64_t total = std::int64_t{bitOffset} + n;
    bitOffset = static_cast<std::int32_t>(total & 7);
    std::int64_t bytes = total >> 3;
    for (; bytes > 0 && position != end; --bytes) {
        advance(1);
        advance(isEmulationPrevention(position) ? 1 : 0);
    }
    advance(bytes);
}

} // namespace KorvelVideo::Network
