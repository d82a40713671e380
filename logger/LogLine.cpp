#include "LogLine.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ctime>

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
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm calendar{};
    gmtime_r(&now.tv_sec, &calendar);
    char date[32];
    char time[48];
    std::strftime(date, sizeof date, "%Y-%m-%dT%H:%M:%S", &calendar);
    std::snprintf(time, sizeof time, "%s.%03dZ", date, static_cast<int>(now.tv_nsec / 1'000'000));
    addRaw(time);
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
