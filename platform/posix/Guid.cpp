#include <array>
#include <cwchar>

#include "PlatformCom.h"

namespace {

constexpr int guidCharacters = 38;
constexpr wchar_t pattern[] = L"{xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx}";

int hexDigit(wchar_t character) noexcept {
    if (character >= L'0' && character <= L'9') {
        return character - L'0';
    }
    if (character >= L'A' && character <= L'F') {
        return character - L'A' + 10;
    }
    if (character >= L'a' && character <= L'f') {
        return character - L'a' + 10;
    }
    return -1;
}

// The 16 bytes in the order in which the text shows them.
std::array<std::uint8_t, 16> textOrder(REFGUID guid) noexcept {
    std::array<std::uint8_t, 16> bytes{};
    for (unsigned i = 0; i < 4; ++i) {
        bytes[i] = static_cast<std::uint8_t>(guid.Data1 >> (24 - 8 * i));
    }
    for (unsigned i = 0; i < 2; ++i) {
        bytes[4 + i] = static_cast<std::uint8_t>(guid.Data2 >> (8 - 8 * i));
        bytes[6 + i] = static_cast<std::uint8_t>(guid.Data3 >> (8 - 8 * i));
    }
    std::memcpy(&bytes[8], guid.Data4, sizeof guid.Data4);
    return bytes;
}

GUID fromTextOrder(const std::array<std::uint8_t, 16>& bytes) noexcept {
    GUID guid{};
    for (unsigned i = 0; i < 4; ++i) {
        guid.Data1 = guid.Data1 << 8 | bytes[i];
    }
    guid.Data2 = static_cast<std::uint16_t>(bytes[4] << 8 | bytes[5]);
    guid.Data3 = static_cast<std::uint16_t>(bytes[6] << 8 | bytes[7]);
    std::memcpy(guid.Data4, &bytes[8], sizeof guid.Data4);
    return guid;
}

} // namespace

extern "C" {

int StringFromGUID2(REFGUID guid, wchar_t* text, int capacity) {
    if (text == nullptr || capacity < guidCharacters + 1) {
        return 0;
    }
    const auto bytes = textOrder(guid);
    std::size_t nibble = 0;
    for (int i = 0; i <= guidCharacters; ++i) {
        text[i] = pattern[i];
        if (pattern[i] == L'x') {
            const unsigned byte = bytes[nibble / 2];
            text[i] = L"0123456789ABCDEF"[nibble % 2 == 0 ? byte >> 4 : byte & 0x0F];
            ++nibble;
        }
    }
    return guidCharacters + 1;
}

HRESULT CLSIDFromString(const wchar_t* text, CLSID* clsid) {
    if (clsid == nullptr) {
        return E_INVALIDARG;
    }
    *clsid = CLSID{};
    if (text == nullptr) {
        return CO_E_CLASSSTRING;
    }
    std::array<std::uint8_t, 16> bytes{};
    std::size_t nibble = 0;
    for (int i = 0; i <= guidCharacters; ++i) { // the terminator must match too
        if (pattern[i] != L'x') {
            if (text[i] != pattern[i]) {
                return CO_E_CLASSSTRING;
            }
            continue;
        }
        const int digit = hexDigit(text[i]);
        if (digit < 0) {
            return CO_E_CLASSSTRING;
        }
        bytes[nibble / 2] = static_cast<std::uint8_t>(bytes[nibble / 2] << 4 | digit);
        ++nibble;
    }
    *clsid = fromTextOrder(bytes);
    return S_OK;
}
}
