#include "StatusNames.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

#include "KvResultCodes.h"

namespace KorvelVideo::Host {

namespace {

struct StatusText {
    HRESULT code;
    const char* name; // null where the code has none
    const char* words;
};

// The codes without a name are those that a receiver gives for a status of its network client.
constexpr StatusText statusTexts[] = {
    {KV_S_STREAM_ACTIVE, "KV_S_STREAM_ACTIVE", "data arrives"},
    {KV_S_STREAM_ENDED, "KV_S_STREAM_ENDED", "the stream has ended"},
    {KV_S_STREAM_SILENT, "KV_S_STREAM_SILENT", "no data for 3 s"},
    {KV_S_STREAM_NOTICE, "KV_S_STREAM_NOTICE", "notice of the network client"},
    {KV_E_DISCONNECTED, "KV_E_DISCONNECTED", "the connection was lost"},
    {KV_E_CONNECTION_FAILED, "KV_E_CONNECTION_FAILED", "the source could not be opened"},
    {kvResult(0x89998292), nullptr, "the connection was refused"},
    {kvResult(0x89998294), nullptr, "no answer in time"},
    {kvResult(0x89998295), nullptr, "the host is unknown"},
    {kvResult(0x89998297), nullptr, "access denied"},
    {kvResult(0x89998298), nullptr, "there is no such source"},
    {kvResult(0x89998048), nullptr, "not supported"},
    {KV_E_INVALID_PARAMETER, "KV_E_INVALID_PARAMETER", "the address or description is not usable"},
    {KV_E_INVALID_POINTER, "KV_E_INVALID_POINTER", "a required pointer is null"},
    {KV_E_INVALID_PROTOCOL, "KV_E_INVALID_PROTOCOL", "the address is of another protocol"},
    {KV_E_OUT_OF_MEMORY, "KV_E_OUT_OF_MEMORY", "out of memory"},
    {KV_E_BUFFER_SIZE_TOO_SMALL, "KV_E_BUFFER_SIZE_TOO_SMALL", "a buffer is too small"},
    {KV_E_UNKNOWN_ERROR, "KV_E_UNKNOWN_ERROR", "unknown error"},
    {S_OK, "S_OK", "success"},
    {E_OUTOFMEMORY, "E_OUTOFMEMORY", "out of memory"},
    {E_NOINTERFACE, "E_NOINTERFACE", "the class does not have the interface"},
    {REGDB_E_CLASSNOTREG, "REGDB_E_CLASSNOTREG", "the class is not registered"},
    {CO_E_DLLNOTFOUND, "CO_E_DLLNOTFOUND", "the registered module cannot be loaded"},
    {CO_E_ERRORINDLL, "CO_E_ERRORINDLL", "the registered module is no component"},
    {CLASS_E_CLASSNOTAVAILABLE, "CLASS_E_CLASSNOTAVAILABLE", "the module does not have the class"},
};

const StatusText* find(HRESULT code) noexcept {
    const auto* found = std::find_if(std::begin(statusTexts), std::end(statusTexts),
                                     [code](const StatusText& text) { return text.code == code; });
    return found != std::end(statusTexts) ? found : nullptr;
}

} // namespace

std::string statusName(HRESULT code) {
    const StatusText* text = find(code);
    return text != nullptr && text->name != nullptr ? text->name : hexadecimal(code);
}

std::string_view statusWords(HRESULT code) noexcept {
    const StatusText* text = find(code);
    return text != nullptr ? text->words : std::string_view{};
}

std::string hexadecimal(HRESULT code) {
    char digits[16];
    std::snprintf(digits, sizeof digits, "0x%08X", static_cast<unsigned>(code));
    return digits;
}

} // namespace KorvelVideo::Host
