#include "RegistryTree.h"

#include <algorithm>

namespace Platform {

namespace {

constexpr std::string_view heading =
    "# Class registry: the in-process servers of this user. A key stands in brackets, its values below it.\n";
constexpr std::string_view defaultValueName = "(default)";
constexpr char separator = '\\';

unsigned char foldCase(char character) noexcept {
    const auto byte = static_cast<unsigned char>(character);
    return byte >= 'A' && byte <= 'Z' ? static_cast<unsigned char>(byte - 'A' + 'a') : byte;
}

bool isOneLine(std::string_view text) noexcept {
    return std::none_of(text.begin(), text.end(), [](char character) {
        const auto byte = static_cast<unsigned char>(character);
        return byte < 0x20 || byte == 0x7F;
    });
}

bool hasOuterSpace(std::string_view text) noexcept {
    return !text.empty() && (text.front() == ' ' || text.back() == ' ');
}

std::string_view trim(std::string_view text) noexcept {
    const std::size_t first = text.find_first_not_of(" \t\r");
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(" \t\r") - first + 1);
}

bool isBelow(std::string_view path, std::string_view parent) noexcept {
    const NameOrder less;
    if (parent.empty()) {
        return true;
    }
    return path.size() > parent.size() && path[parent.size()] == separator &&
           !less(path.substr(0, parent.size()), parent) && !less(parent, path.substr(0, parent.size()));
}

} // namespace

bool NameOrder::operator()(std::string_view left, std::string_view right) const noexcept {
    return std::lexicographical_compare(left.begin(), left.end(), right.begin(), right.end(),
                                        [](char a, char b) { return foldCase(a) < foldCase(b); });
}

RegistryTree RegistryTree::parse(std::string_view file) {
    RegistryTree tree;
    std::string_view key;
    while (!file.empty()) {
        const std::size_t end = std::min(file.find('\n'), file.size());
        const std::string_view line = trim(file.substr(0, end));
        file.remove_prefix(std::min(end + 1, file.size()));
        if (line.empty() || line.front() == '#') {
            continue;
        }
        if (line.front() == '[') {
            key = line.back() == ']' ? line.substr(1, line.size() - 2) : std::string_view();
            if (isKeyPath(key)) {
                tree.add(key);
            } else {
                key = {};
            }
            continue;
        }
        const std::size_t equals = line.find('=');
        if (key.empty() || equals == std::string_view::npos) {
            continue;
        }
        const std::string_view name = trim(line.substr(0, equals));
        const std::string_view text = trim(line.substr(equals + 1));
        if (isValueName(name) && !name.empty() && isValueText(text)) {
            tree.setValue(key, name, text);
        }
    }
    return tree;
}

std::string RegistryTree::format() const {
    std::string file(heading);
    for (const auto& [path, values] : m_keys) {
        file.append("\n[").append(path).append("]\n");
        for (const auto& [name, text] : values) {
            file.append(name).append(" = ").append(text).append("\n");
        }
    }
    return file;
}

bool RegistryTree::isKeyPath(std::string_view path) noexcept {
    if (path.empty() || path.size() > longestPath || !isOneLine(path)) {
        return false;
    }
    for (std::size_t depth = 1; depth <= deepestKey; ++depth) {
        const std::size_t end = path.find(separator);
        const std::string_view name = path.substr(0, end);
        if (name.empty() || hasOuterSpace(name)) {
            return false;
        }
        if (end == std::string_view::npos) {
            return true;
        }
        path.remove_prefix(end + 1);
    }
    return false;
}

bool RegistryTree::isValueName(std::string_view name) noexcept {
    const bool readsAsName = name.empty() || (name.front() != '[' && name.front() != '#');
    return name.size() <= longestPath && readsAsName && isOneLine(name) && !hasOuterSpace(name) &&
           name.find('=') == std::string_view::npos;
}

bool RegistryTree::isValueText(std::string_view text) noexcept {
    return text.size() <= longestFile && isOneLine(text) && !hasOuterSpace(text);
}

bool RegistryTree::contains(std::string_view path) const {
    return path.empty() || m_keys.find(path) != m_keys.end();
}

bool RegistryTree::add(std::string_view path) {
    bool added = false;
    while (!path.empty() && m_keys.find(path) == m_keys.end()) {
        m_keys.emplace(path, Values());
        added = true;
        const std::size_t end = path.rfind(separator);
        path = end == std::string_view::npos ? std::string_view() : path.substr(0, end);
    }
    return added;
}

void RegistryTree::remove(std::string_view path) {
    if (const auto key = m_keys.find(path); key != m_keys.end()) {
        m_keys.erase(key);
    }
}

void RegistryTree::setValue(std::string_view path, std::string_view name, std::string_view text) {
    if (const auto key = m_keys.find(path); key != m_keys.end()) {
        key->second[std::string(name.empty() ? defaultValueName : name)] = text;
    }
}

std::optional<std::string> RegistryTree::value(std::string_view path, std::string_view name) const {
    const auto key = m_keys.find(path);
    if (key == m_keys.end()) {
        return std::nullopt;
    }
    const auto value = key->second.find(name.empty() ? defaultValueName : name);
    return value != key->second.end() ? std::optional(value->second) : std::nullopt;
}

std::optional<std::string> RegistryTree::subkey(std::string_view path, std::size_t index) const {
    std::string first(path);
    if (!path.empty()) {
        first.push_back(separator);
    }
    for (auto key = m_keys.lower_bound(first); key != m_keys.end() && isBelow(key->first, path); ++key) {
        const std::string_view name = std::string_view(key->first).substr(first.size());
        if (name.find(separator) == std::string_view::npos && index-- == 0) {
            return std::string(name);
        }
    }
    return std::nullopt;
}

} // namespace Platform
