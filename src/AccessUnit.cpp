#include "AccessUnit.h"

#include <cstring>
#include <limits>

#include "Raise.h"

namespace KorvelVideo::Network {

std::uint32_t toBufferSize(std::uint64_t byteCount) {
    if (byteCount > std::numeric_limits<std::uint32_t>::max()) {
        KV_THROW(KV_E_BUFFER_SIZE_TOO_SMALL);
    }
    return static_cast<std::uint32_t>(byteCount);
}

std::uint32_t getAccessUnitSize(const AccessUnit& accessUnit) {
    std::uint64_t byteCount = 0;
    for (const auto& piece : accessUnit) {
        byteCount += piece.second;
    }
    return toBufferSize(byteCount);
}

void copyAccessUnit(const AccessUnit& accessUnit, std::uint8_t* destination) noexcept {
    for (const auto& [bytes, length] : accessUnit) {
        if (length != 0) {
            std::memcpy(destination, bytes, length);
            destination += length;
        }
    }
}

} // namespace KorvelVideo::Network
