#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace ModuleLogger {

// Builds one log line in place, without allocating. What does not fit is cut, and nothing in a text can end
// the line or steer a terminal: control characters are written as \xHH.
class LogLine {
public:
    // Small enough that a pipe takes it whole.
    static constexpr std::size_t capacity = 4096;

    // Starts the line: time of day (UTC), level, module and site.
    LogLine(std::uint32_t level, std::uint32_t moduleId, const char* sourceFile, std::uint32_t line) noexcept;

    // A null text is written as "(none)".
    LogLine& add(const char* text) noexcept;
    LogLine& addNumber(std::uint32_t value) noexcept;
    LogLine& addResult(std::int32_t result) noexcept;

    // Ends the line and returns it with its line feed.
    std::string_view finish() noexcept;

private:
    void addRaw(std::string_view text) noexcept;
    void addTime() noexcept;

    std::size_t m_length = 0;
    char m_buffer[capacity];
};

} // namespace ModuleLogger
