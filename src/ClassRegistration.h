#pragma once

#include <cstdint>

#include "PlatformCom.h"
#include "PlatformRegistry.h"

// Registration of in-process servers under the class root: key "CLSID\{...}" with the display name, and its
// subkey with the module's path and threading model. A platform error code comes back as 0x8007xxxx.

// 0x8007xxxx for a positive platform error code, else the code itself.
[[nodiscard]] HRESULT resultOfPlatformError(std::int64_t code) noexcept;

// Writes or overwrites the keys of one class; the first failing registry call ends it.
[[nodiscard]] HRESULT registerServerClass(REFCLSID clsid, const wchar_t* name, const wchar_t* path,
                                          const wchar_t* threadingModel, const wchar_t* serverType);

// Removes the key of one class with all its subkeys; 0 also when there is none.
HRESULT unregisterServerClass(REFCLSID clsid);

// Removes parent\name with all its subkeys. A key that cannot be removed is passed over, and so stays with
// those above it. Returns 0, or E_FAIL for an empty name.
HRESULT deleteRegistryTree(HKEY parent, const wchar_t* name);
