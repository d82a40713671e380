#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// The tree of keys and values in memory, and the text it is kept as. Names and texts are UTF-8; a key is
// named by its whole path, and the root by the empty path.
namespace Platform {

// Compares without regard to the case of the letters A to Z.
struct NameOrder {
    using is_transparent = void;
    bool operator()(std::string_view left, std::string_view right) const noexcept;
};

class RegistryTree {
public:
    static constexpr std::size_t longestFile = 1'048'576;
    static constexpr std::size_t longestPath = 1024;
    static constexpr std::size_t deepestKey = 32;

    // Lines that are no key, no value or no comment are passed over, and so are values before any key.
    static RegistryTree parse(std::string_view file);
    std::string format() const;

    // Whether a text may be a key path, a value name or a value: short enough, one line, and read back as
    // written.
    static bool isKeyPath(std::string_view path) noexcept;
    static bool isValueName(std::string_view name) noexcept;
    static bool isValueText(std::string_view text) noexcept;

    bool contains(std::string_view path) const;
    // Adds the key and its parents where they are missing; true when something was added.
    bool add(std::string_view path);
    // The key must exist.
    void remove(std::string_view path);
    // The empty name is the default value. The key must exist.
    void setValue(std::string_view path, std::string_view name, std::string_view text);
    std::optional<std::string> value(std::string_view path, std::string_view name) const;
    // The name, without path, of a key's subkey number `index`.
    std::optional<std::string> subkey(std::string_view path, std::size_t index) const;

private:
    using Values = std::map<std::string, std::string, NameOrder>;

    std::map<std::string, Values, NameOrder> m_keys;
};

} // namespace Platform
