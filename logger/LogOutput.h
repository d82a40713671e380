#pragma once

// Where log lines go and what chooses among them: the part of the logger that differs between systems.

#include <string_view>

namespace ModuleLogger {

// Hands the line to standard error in one piece. A line that it does not take is lost: there is nowhere to
// report it.
void writeToStandardError(std::string_view line) noexcept;

// KV_LOG_LEVEL of the environment; null when it is not set, or must not be trusted.
const char* logLevelVariable() noexcept;

} // namespace ModuleLogger
