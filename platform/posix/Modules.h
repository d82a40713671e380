#pragma once

#include <string>

#include "PlatformModule.h"

// Loaded modules. A module is known by its load address, which is also what its DllMain receives.
namespace Platform {

// Null when the module cannot be loaded; each successful load is one reference.
HMODULE loadModule(const std::string& name);
bool freeModule(HMODULE module) noexcept;

// A symbol that the module itself defines; what its dependencies define is not found.
void* findSymbol(HMODULE module, const char* name) noexcept;

} // namespace Platform
