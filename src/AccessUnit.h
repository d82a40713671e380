#pragma once

#include <cstdint>
#include <utility>
#include <vector>

namespace KorvelVideo::Network {

// The pieces of one access unit: all bytes that share one time stamp, as (bytes, length in bytes), to be
// joined in this order with nothing between them. Whoever fills it owns the bytes; a reader keeps nothing
// beyond its call.
using AccessUnit = std::vector<std::pair<std::uint8_t*, std::uint32_t>>;

// The size to ask the host for. One that does not fit 32 bits fits no host buffer either: raises
// KV_E_BUFFER_SIZE_TOO_SMALL before the host is asked for anything.
[[nodiscard]] std::uint32_t toBufferSize(std::uint64_t byteCount);

// The length of the access unit in bytes, as a size to ask the host for.
[[nodiscard]] std::uint32_t getAccessUnitSize(const AccessUnit& accessUnit);

// Copies the pieces one after another to `destination`, which has room for all of them.
void copyAccessUnit(const AccessUnit& accessUnit, std::uint8_t* destination) noexcept;

} // namespace KorvelVideo::Network
