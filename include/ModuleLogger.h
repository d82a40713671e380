#pragma once

#include <cstdint>

#include "KvVaneException.h"
#include "PlatformCom.h"

namespace ModuleLogger {

// The sink of every log line. The host platform provides the component; the module creates it when it is
// loaded, through the class identifier below, and writes nothing when there is none. Operations are called
// from any thread, at any time between load and unload; serialising the lines is the component's concern.
// Texts are valid during the call only. Results are ignored.
struct IModuleLogger : IUnknown {
    // Writes the record of a caught failure.
    virtual HRESULT LogException(std::uint32_t moduleId, const CKvVaneException* exception) = 0;

    virtual HRESULT ReservedSlot4() { return E_NOTIMPL; }

    // Writes a line. `category` 3 is the course of a stream, 0 a failed operation; `level` rises from 0 (life
    // of objects) over 1 (events), 2 and 3 (questionable input) to 4 (errors).
    virtual HRESULT LogMessage(std::uint32_t moduleId, std::uint32_t category, std::uint32_t level,
                               const char* sourceFile, const char* function, std::uint32_t line,
                               const char* text) = 0;

protected:
    ~IModuleLogger() = default;
};

} // namespace ModuleLogger

// {5B0B6B0C-7D0E-4B44-9D27-0B1F64C0A001}
inline constexpr IID IID_IModuleLogger{
    0x5B0B6B0C, 0x7D0E, 0x4B44, {0x9D, 0x27, 0x0B, 0x1F, 0x64, 0xC0, 0xA0, 0x01}};
// {5B0B6B0C-7D0E-4B44-9D27-0B1F64C0A002}
inline constexpr CLSID CLSID_ModuleLogger{
    0x5B0B6B0C, 0x7D0E, 0x4B44, {0x9D, 0x27, 0x0B, 0x1F, 0x64, 0xC0, 0xA0, 0x02}};
