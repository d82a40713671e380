#pragma once

#include <cstdint>

#include "KvResultCodes.h"

// The result code for the status of a network client's operation; KV_E_UNKNOWN_ERROR for a status without an
// entry.
[[nodiscard]] HRESULT mapNetworkStatus(std::uint32_t status) noexcept;

// The result code for the status of StartSocketService, in which 11 is success; KV_E_UNKNOWN_ERROR for a
// status without an entry. The same number means something else here than for a client's operation.
[[nodiscard]] HRESULT mapSocketServiceStatus(std::int32_t status) noexcept;
