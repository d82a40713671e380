#pragma once

#include <bit>
#include <cstdint>

#include "BitReader.h"

namespace KorvelVideo::Network {

// The Exp-Golomb codes of ISO/IEC 14496-10, clause 9.1. Constant time.
//
// Codes have at most 32 leading zeros. A longer run, or one that reaches the end of the data, is no code: it
// gives 0, as any element that is missing does, and the reader stands behind the zeros that it looked at.

// ue(v): 2^leadingZeros - 1 + the leadingZeros bits behind the first 1 bit. At most 33 bits wide.
inline std::uint64_t readUe(BitReader& reader) noexcept {
    constexpr std::int32_t longestPrefix = 33; // 32 zeros and the 1
    const std::uint64_t prefix = reader.peekBits(longestPrefix);
    if (prefix == 0) {
        reader.skipBits(longestPrefix);
        return 0;
    }
    const auto peeked = std::min<std::int64_t>(longestPrefix, reader.bitsLeft());
    const auto leadingZeros =
        static_cast<std::int32_t>(peeked) - static_cast<std::int32_t>(std::bit_width(prefix));
    reader.skipBits(leadingZeros + 1);
    const std::uint64_t suffix = reader.peekBits(leadingZeros);
    reader.skipBits(leadingZeros);
    return (std::uint64_t{1} << leadingZeros) - 1 + suffix;
}

inline std::uint32_t readUe32(BitReader& reader) noexcept {
    return static_cast<std::uint32_t>(readUe(reader));
}
inline std::uint8_t readUe8(BitReader& reader) noexcept { return static_cast<std::uint8_t>(readUe(reader)); }

// se(v): (-1)^(k + 1) x Ceil(k / 2) for the code number k, cut to 32 bits.
inline std::int32_t readSe(BitReader& reader) noexcept {
    const auto k = static_cast<std::int64_t>(readUe(reader));
    return static_cast<std::int32_t>((k & 1) != 0 ? (k + 1) / 2 : -(k / 2));
}

} // namespace KorvelVideo::Network
