#include "StatusTables.h"

#include <map>

#include <gtest/gtest.h>

namespace {

// From the status with an entry to its result; every other status is an unknown error.
const std::map<std::int64_t, std::uint32_t> kClient{
    {0, 0},           {2, 0x89998044},  {3, 0x89998049},  {4, 0x89998043},  {5, 0x89998002},
    {7, 0x89998292},  {8, 0x89998290},  {9, 0x89998294},  {10, 0x89998295}, {11, 0x89998296},
    {12, 0x89998048}, {13, 0x89998297}, {14, 0x89998003}, {15, 0x89998298}, {18, 0x89998293},
    {20, 0x89998291}, {21, 0x89998044}, {22, 0x89998079}, {23, 0x89998069}, {24, 0x89998307},
    {25, 0x89998302}};

const std::map<std::int64_t, std::uint32_t> kSocketService{
    {0, 0x89998294},  {1, 0x89998295},  {2, 0x89998292},  {3, 0x89998290},  {4, 0x89998254},  {5, 0x89998260},
    {6, 0x89998261},  {7, 0x89998047},  {8, 0x89998259},  {9, 0x89998258},  {10, 0x89998003}, {11, 0},
    {12, 0x89998320}, {14, 0x8999831F}, {15, 0x8999832B}, {18, 0x89998069}, {19, 0x89998307}};

TEST(StatusTables, EveryStatusHasItsResult) {
    const auto result = [](const auto& table, std::int64_t status) {
        const auto entry = table.find(status);
        return entry == table.end() ? KV_E_UNKNOWN_ERROR : kvResult(entry->second);
    };
    for (std::int64_t status = -2; status < 300; ++status) {
        EXPECT_EQ(mapNetworkStatus(static_cast<std::uint32_t>(status)), result(kClient, status)) << status;
        EXPECT_EQ(mapSocketServiceStatus(static_cast<std::int32_t>(status)), result(kSocketService, status))
            << status;
    }
    EXPECT_EQ(static_cast<std::uint32_t>(KV_E_UNKNOWN_ERROR), 0x89998FFF);
}

} // namespace
