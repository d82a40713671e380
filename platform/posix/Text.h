#pragma once

#include <string>
#include <string_view>

namespace Platform {

// UTF-8 to wide text and back. What cannot be converted becomes U+FFFD.
std::wstring widen(std::string_view text);
std::string narrow(std::wstring_view text);

} // namespace Platform
