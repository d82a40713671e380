#include "LogLine.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>

namespace ModuleLogger {

namespace {

constexpr std::string_view levelNames[] = {"trace  ", "info   ", "notice ", "warning", "error  "};

bool isControl(unsigned char byte) noexcept { return byte < 0x20 || byte == 0x7F; }

// A control character of the second block (U+0080 to U+009F) in UTF-8.
bool isSecondBlockControl(unsigned char first, unsigned char second) noexcept {
    return first == 0xC2 && second >= 0x80 && second <= 0x9F;
}

} // namespace

LogLine::LogLine(std::uint32_t level, std::uint32_t moduleId, const char* sourceFile,
                 std::uint32_t line) noexcept {
    addTime();
    addRaw(" ");
    addRaw(levelNames[std::min<std::size_t>(level, std::size(levelNames) - 1)]);
    addRaw(" module ");
    addNumber(moduleId);
    addRaw(" ");
    add(sourceFile);
    addRaw(":");
    addNumber(line);
    addRaw(" ");
}

void LogLine::addTime() noexcept {
    const auto now = std::chrono::floor<std::chrono::milliseconds>(std::chrono::system_clock::now());
    const auto day = std::chrono::floor<std::chrono::days>(now);
    const std::chrono::year_month_day date(day);
    const std::chrono::hh_mm_ss time(now - day);
    char text[96];
    std::snprintf(text, sizeof text, "%04d-%02u-%02uT%02d:%02d:%02d.%03dZ", static_cast<int>(date.year()),
                  static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                  static_cast<int>(time.hours().count()), static_cast<int>(time.minutes().count()),
                  static_cast<int>(time.seconds().count()), static_cast<int>(time.subseconds().count()));
    addRaw(text);
}

LogLine& LogLine::add(const char* text) noexcept {
    if (text == nullptr) {
        text = "(none)";
    }
    for (; *text != '\0' && m_length < capacity - 1; ++text) {
        const auto byte = static_cast<unsigned char>(*text);
        if (isControl(byte) || isSecondBlockControl(byte, static_cast<unsigned char>(text[1]))) {
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\x%02X", byte);
            addRaw(escaped);
        } else {
            addRaw({text, 1});
        }
    }
    return *this;
}

LogLine& LogLine::addNumber(std::uint32_t value) noexcept {
    char digits[16];
    std::snprintf(digits, sizeof digits, "%u", value);
    addRaw(digits);
    return *this;
}

LogLine& LogLine::addResult(std::int32_t result) noexcept {
    char digits[16];
    std::snprintf(digits, sizeof digits, "0x%08X", static_cast<unsigned>(result));
    addRaw(digits);
    return *this;
}

std::string_view LogLine::finish() noexcept {
    m_buffer[m_length] = '\n';
    return {m_buffer, m_length + 1};
}

void LogLine::addRaw(std::string_view text) noexcept {
    const std::size_t length = std::min(text.size(), capacity - 1 - m_length); // room for the line feed
    std::memcpy(m_buffer + m_length, text.data(), length);
    m_length += length;
}

} // namespace ModuleLogger
