#include "Json.h"

#include <cstdio>

namespace KorvelVideo::Host {

namespace {

bool isContinuation(char c) { return (static_cast<unsigned char>(c) & 0xC0U) == 0x80U; }

// The length of the UTF-8 sequence at the start of `text` (RFC 3629); 0 when there is none.
std::size_t sequenceLength(std::string_view text) {
    const auto first = static_cast<unsigned char>(text[0]);
    const auto second = static_cast<unsigned char>(text.size() > 1 ? text[1] : '\0');
    std::size_t length = 0;
    if (first < 0x80) {
        return 1;
    }
    if (first >= 0xC2 && first <= 0xDF) {
        length = 2;
    } else if (first >= 0xE0 && first <= 0xEF) {
        const bool isOverlong = first == 0xE0 && second < 0xA0;
        const bool isSurrogate = first == 0xED && second >= 0xA0;
        length = isOverlong || isSurrogate ? 0 : 3;
    } else if (first >= 0xF0 && first <= 0xF4) {
        const bool isOverlong = first == 0xF0 && second < 0x90;
        const bool isTooLarge = first == 0xF4 && second >= 0x90;
        length = isOverlong || isTooLarge ? 0 : 4;
    }
    if (length == 0 || text.size() < length) {
        return 0;
    }
    for (std::size_t i = 1; i < length; ++i) {
        if (!isContinuation(text[i])) {
            return 0;
        }
    }
    return length;
}

std::string quoted(std::string_view text) {
    std::string result = "\"";
    while (!text.empty()) {
        const std::size_t length = sequenceLength(text);
        const char c = text.front();
        if (length == 0) {
            result += "\\ufffd";
        } else if (c == '"' || c == '\\') {
            result += {'\\', c};
        } else if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) {
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned>(c));
            result += escape;
        } else {
            result += text.substr(0, length);
        }
        text.remove_prefix(length == 0 ? 1 : length);
    }
    return result + '"';
}

} // namespace

JsonObject& JsonObject::add(std::string_view name, std::string_view text) {
    return addRaw(name, quoted(text));
}

JsonObject& JsonObject::add(std::string_view name, std::uint64_t number) {
    return addRaw(name, std::to_string(number));
}

JsonObject& JsonObject::add(std::string_view name, bool value) {
    return addRaw(name, value ? "true" : "false");
}

JsonObject& JsonObject::add(std::string_view name, double number) {
    char digits[64];
    std::snprintf(digits, sizeof digits, "%.3f", number);
    return addRaw(name, digits);
}

JsonObject& JsonObject::addNull(std::string_view name) { return addRaw(name, "null"); }

JsonObject& JsonObject::addRaw(std::string_view name, std::string_view value) {
    if (m_text.size() > 1) {
        m_text += ',';
    }
    m_text += '"';
    m_text += name;
    m_text += "\":";
    m_text += value;
    return *this;
}

} // namespace KorvelVideo::Host
