#pragma once

#include <cstdint>

#include "PlatformCom.h"

namespace KorvelVideo::Host {

class Terminal;

// Makes the logging component, class CLSID_ModuleLogger, known to the modules that are loaded from now on:
// lines of `level` (0 to 4) and above go to standard error, above the live lines of `terminal`, which must
// live until the process ends or `retireLogger` is called. Main thread, once.
HRESULT registerLogger(std::uint32_t level, Terminal& terminal);

// From now on nothing touches the terminal.
void retireLogger() noexcept;

} // namespace KorvelVideo::Host
