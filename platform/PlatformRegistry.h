#pragma once

// The class registry: a persistent tree of keys with text values, in which in-process servers are registered.
//
// On Windows this is the system's own header. Elsewhere the tree is one text file per user that a person can
// read: $XDG_DATA_HOME/kvnetworkreceiver/classes (~/.local/share where XDG_DATA_HOME is not set), each key a
// line in brackets, each value a line `name = text` below it. Every change is written at once, by atomic
// rename under a file lock, so that processes may share it. The environment is read at each call, so a test
// can move the file; a program that runs with rights not its user's has no registry. Malformed lines are
// passed over (and gone after the next change); a file above 1 MiB is refused and left as it is.
//
// Operations return ERROR_SUCCESS or a positive platform error code; ERROR_INVALID_PARAMETER for names and
// texts that the file cannot hold (control characters, outer spaces, '=' in a value name, paths above 1,024
// bytes or 32 keys). Key and value names are compared without regard to the case of A to Z. Paths use one
// backslash between keys. A key handle ends with RegCloseKey. The root itself has no values.

#include "PlatformKernel.h"

#ifndef _WIN32

using HKEY = void*;
using REGSAM = DWORD;
using LSTATUS = std::int32_t;
using BYTE = std::uint8_t;

inline const auto HKEY_CLASSES_ROOT = reinterpret_cast<HKEY>(std::uintptr_t{0x80000000});
inline constexpr DWORD REG_SZ = 1;
inline constexpr REGSAM MAXIMUM_ALLOWED = 0x02000000;
inline constexpr REGSAM KEY_READ = 0x20019;

struct FILETIME {
    DWORD dwLowDateTime;
    DWORD dwHighDateTime;
};

extern "C" {

// Opens the key, creating it and its parents where they are missing.
LSTATUS RegCreateKeyW(HKEY parent, const wchar_t* name, HKEY* key);

// ERROR_FILE_NOT_FOUND when there is no such key.
LSTATUS RegOpenKeyExW(HKEY parent, const wchar_t* name, DWORD options, REGSAM access, HKEY* key);

// Sets the default value of the subkey `name` of `key` (of `key` itself when it is null or empty), creating
// it where missing. `type` must be REG_SZ; `bytes` is not looked at.
LSTATUS RegSetValueW(HKEY key, const wchar_t* name, DWORD type, const wchar_t* text, DWORD bytes);

// Sets a value. `type` must be REG_SZ and `data` wide text of `bytes` bytes, terminator included.
LSTATUS RegSetValueExW(HKEY key, const wchar_t* name, DWORD reserved, DWORD type, const BYTE* data,
                       DWORD bytes);

// Reads a text value (the default one when `name` is null): *bytes is the capacity before and the size with
// terminator after the call. ERROR_MORE_DATA when it does not fit, ERROR_FILE_NOT_FOUND when there is none.
LSTATUS RegQueryValueExW(HKEY key, const wchar_t* name, DWORD* reserved, DWORD* type, BYTE* data,
                         DWORD* bytes);

// The name of subkey number `index`; *characters is the capacity before and the length without terminator
// after the call. ERROR_NO_MORE_ITEMS past the last one.
LSTATUS RegEnumKeyExW(HKEY key, DWORD index, wchar_t* name, DWORD* characters, DWORD* reserved,
                      wchar_t* className, DWORD* classCharacters, FILETIME* lastWrite);

// Removes a key without subkeys and its values. ERROR_ACCESS_DENIED when it has subkeys,
// ERROR_FILE_NOT_FOUND when there is none.
LSTATUS RegDeleteKeyW(HKEY parent, const wchar_t* name);

LSTATUS RegCloseKey(HKEY key);
}

#endif
