#pragma once

#include "PlatformKernel.h"

namespace Platform {

// Sets the calling thread's last error without passing through the exported operation, which a program may
// replace.
void setLastError(DWORD error) noexcept;

} // namespace Platform
