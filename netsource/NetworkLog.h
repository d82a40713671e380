#pragma once

// Log lines of the network client, written through the host platform's logging component; nothing is written
// when there is none. Any thread.

#include <cstdint>
#include <string>

#include "PlatformCompiler.h"

namespace KorvelVideo::NetworkSource {

inline constexpr std::uint32_t kLogModuleId = 8;

enum class LogLevel : std::uint32_t { life = 0, event = 1, notice = 2, questionable = 3, error = 4 };

// Written once a second while Stop waits.
inline constexpr const char* kHostIsBusy = "Stop waits for the host to return from a callback.";

// `file` is "netsource/<File>" and `function` the signature of the caller; KV_NET_LOG gives both.
void writeLog(LogLevel level, const char* file, const char* function, std::uint32_t line,
              const std::string& text) noexcept;

} // namespace KorvelVideo::NetworkSource

// KV_SOURCE_FILE is defined for each source file by the build.
#define KV_NET_LOG(level, text)                                                                              \
    ::KorvelVideo::NetworkSource::writeLog(::KorvelVideo::NetworkSource::LogLevel::level, KV_SOURCE_FILE,    \
                                           KV_FUNCTION_SIGNATURE, static_cast<std::uint32_t>(__LINE__),      \
                                           (text))
