#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace KorvelVideo::Host {

// Builds one JSON object (RFC 8259) on one line, members in the order in which they are added. Bytes of a
// text that are no UTF-8 appear as U+FFFD.
class JsonObject {
public:
    JsonObject& add(std::string_view name, std::string_view text);
    JsonObject& add(std::string_view name, const char* text) { return add(name, std::string_view(text)); }
    JsonObject& add(std::string_view name, std::uint64_t number);
    JsonObject& add(std::string_view name, std::uint32_t number) { return add(name, std::uint64_t{number}); }
    JsonObject& add(std::string_view name, bool value);
    // Three decimals.
    JsonObject& add(std::string_view name, double number);
    JsonObject& addNull(std::string_view name);

    [[nodiscard]] std::string text() const { return m_text + "}"; }

private:
    JsonObject& addRaw(std::string_view name, std::string_view value);

    std::string m_text = "{";
};

} // namespace KorvelVideo::Host
