#include "LogOutput.h"

#include <io.h>

#include <cstdlib>

namespace ModuleLogger {

void writeToStandardError(std::string_view line) noexcept {
    constexpr int kStandardError = 2;
    static_cast<void>(_write(kStandardError, line.data(), static_cast<unsigned>(line.size())));
}

const char* logLevelVariable() noexcept { return std::getenv("KV_LOG_LEVEL"); }

} // namespace ModuleLogger
