#pragma once

// The module's log. Each source file that includes this header has a logger of its own, created when the
// module is loaded; without a logger component every operation returns at once. The operations never throw
// and may be called from any thread.

#include <cstdint>

#include "KvVaneException.h"
#include "ModuleLogger.h"
#include "Raise.h"
#include "TKvSmartPtr.h"

// This module's number in every log line.
inline constexpr std::uint32_t kModuleId = 7;

// Categories and levels in use.
inline constexpr std::uint32_t kCategoryFailure = 0;
inline constexpr std::uint32_t kCategoryStream = 3;
inline constexpr std::uint32_t kLevelLifetime = 0;
inline constexpr std::uint32_t kLevelEvent = 1;
inline constexpr std::uint32_t kLevelUnsupported = 2;
inline constexpr std::uint32_t kLevelQuestionable = 3;
inline constexpr std::uint32_t kLevelError = 4;

// Initialises COM and creates the logger component; ends both when the module is unloaded. Unloaded on
// another thread than it was loaded on, it leaves that thread's apartment alone.
struct ModuleLoggerHolder {
    ModuleLoggerHolder();
    ~ModuleLoggerHolder();
    ModuleLoggerHolder(const ModuleLoggerHolder&) = delete;
    ModuleLoggerHolder& operator=(const ModuleLoggerHolder&) = delete;

    HRESULT m_coInitializeResult;
    TKvSmartPtr<ModuleLogger::IModuleLogger> m_logger;

private:
    DWORD m_threadId; // the loading thread, whose apartment it is
};

// One for each source file, on purpose: a file's log works as soon as the file's own statics do.
static ModuleLoggerHolder g_moduleLogger;

namespace logging {

void writeException(const ModuleLoggerHolder& holder, const CKvVaneException& exception);
void writeText(const ModuleLoggerHolder& holder, std::uint32_t category, std::uint32_t level,
               const char* sourceFile, const char* function, std::uint32_t line, const char* text);
// Cuts the formatted text at 1,023 characters: no format in use comes near it, and a cut line beats a lost
// one.
void writeFormatted(const ModuleLoggerHolder& holder, std::uint32_t category, std::uint32_t level,
                    const char* sourceFile, const char* function, std::uint32_t line, const char* format,
                    ...);

} // namespace logging

// Writes the record of a caught failure.
static inline void logCaughtException(const CKvVaneException& exception) {
    logging::writeException(g_moduleLogger, exception);
}

// Writes a line: logText(kCategoryStream, kLevelEvent, KV_SITE, "text").
static inline void logText(std::uint32_t category, std::uint32_t level, const char* sourceFile,
                           const char* function, std::uint32_t line, const char* text) {
    logging::writeText(g_moduleLogger, category, level, sourceFile, function, line, text);
}

// Writes a line with a printf format.
template <class... Arguments>
static inline void logPrintf(std::uint32_t category, std::uint32_t level, const char* sourceFile,
                             const char* function, std::uint32_t line, const char* format,
                             Arguments... arguments) {
    logging::writeFormatted(g_moduleLogger, category, level, sourceFile, function, line, format,
                            arguments...);
}
