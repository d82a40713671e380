#include "LogOutput.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>

namespace ModuleLogger {

void writeToStandardError(std::string_view line) noexcept {
    ssize_t written = 0;
    do {
        written = write(STDERR_FILENO, line.data(), line.size());
    } while (written < 0 && errno == EINTR);
}

const char* logLevelVariable() noexcept { return secure_getenv("KV_LOG_LEVEL"); }

} // namespace ModuleLogger
