#include "StatusTables.h"

#include <array>
#include <cstddef>

namespace {

constexpr std::uint32_t kUnknown = 0x89998FFF;

constexpr std::array<std::uint32_t, 26> kNetworkResults{
    0,          // 0
    kUnknown,   // 1
    0x89998044, // 2
    0x89998049, // 3
    0x89998043, // 4
    0x89998002, // 5
    kUnknown,   // 6
    0x89998292, // 7
    0x89998290, // 8
    0x89998294, // 9
    0x89998295, // 10
    0x89998296, // 11
    0x89998048, // 12
    0x89998297, // 13
    0x89998003, // 14
    0x89998298, // 15
    kUnknown,   // 16
    kUnknown,   // 17
    0x89998293, // 18
    kUnknown,   // 19
    0x89998291, // 20
    0x89998044, // 21
    0x89998079, // 22
    0x89998069, // 23
    0x89998307, // 24
    0x89998302, // 25
};

constexpr std::array<std::uint32_t, 21> kSocketServiceResults{
    0x89998294, // 0
    0x89998295, // 1
    0x89998292, // 2
    0x89998290, // 3
    0x89998254, // 4
    0x89998260, // 5
    0x89998261, // 6
    0x89998047, // 7
    0x89998259, // 8
    0x89998258, // 9
    0x89998003, // 10
    0,          // 11
    0x89998320, // 12
    kUnknown,   // 13
    0x8999831F, // 14
    0x8999832B, // 15
    kUnknown,   // 16
    kUnknown,   // 17
    0x89998069, // 18
    0x89998307, // 19
    kUnknown,   // 20
};

template <std::size_t Count>
HRESULT lookUp(const std::array<std::uint32_t, Count>& results, std::uint32_t status) noexcept {
    return status < Count ? kvResult(results[status]) : KV_E_UNKNOWN_ERROR;
}

} // namespace

HRESULT mapNetworkStatus(std::uint32_t status) noexcept { return lookUp(kNetworkResults, status); }

HRESULT mapSocketServiceStatus(std::int32_t status) noexcept {
    return lookUp(kSocketServiceResults, static_cast<std::uint32_t>(status));
}
