#pragma once

#include <string>
#include <string_view>

#include "PlatformCom.h"

namespace KorvelVideo::Host {

// The name of a result or status code as KvResultCodes.h and COM have it; its value in hexadecimal when it
// has none.
[[nodiscard]] std::string statusName(HRESULT code);

// What the code means, for people; empty when nothing is known of it.
[[nodiscard]] std::string_view statusWords(HRESULT code) noexcept;

// For example 0x89998290.
[[nodiscard]] std::string hexadecimal(HRESULT code);

} // namespace KorvelVideo::Host
