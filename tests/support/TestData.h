#pragma once

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

// The recorded streams and the tables in tests/data.

using Bytes = std::vector<std::uint8_t>;

inline std::ifstream openData(const std::string& path) {
    std::ifstream file(std::string(KV_TEST_DATA) + "/" + path, std::ios::binary);
    if (!file) {
        throw std::runtime_error("cannot read " + path);
    }
    return file;
}

// File names without their extension, sorted.
inline std::vector<std::string> listCases(const std::string& folder, const std::string& extension) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(std::string(KV_TEST_DATA) + "/" + folder)) {
        if (entry.path().extension() == extension) {
            names.push_back(entry.path().stem().string());
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

inline Bytes readBytes(const std::string& path) {
    std::ifstream file = openData(path);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

// Lines "name value"; a name may come more than once.
inline std::multimap<std::string, std::string> readExpected(const std::string& path) {
    std::ifstream file = openData(path);
    std::multimap<std::string, std::string> values;
    std::string name;
    std::string value;
    while (file >> name >> value) {
        values.emplace(name, value);
    }
    return values;
}

// A row of a table file: "[name]", the words that go in, and behind "=>" those that are expected, each on a
// line of its own here. Lines that begin with # are comments.
struct TableRow {
    std::string name;
    std::string input;
    std::string expected;
};
inline std::vector<TableRow> readTable(const std::string& path) {
    std::ifstream file = openData(path);
    std::vector<TableRow> rows;
    bool isExpected = false;
    for (std::string word; file >> word;) {
        if (word.front() == '#') {
            std::getline(file, word);
        } else if (word.front() == '[') {
            rows.push_back({word.substr(1, word.size() - 2), "", ""});
            isExpected = false;
        } else if (word == "=>") {
            isExpected = true;
        } else {
            (isExpected ? rows.back().expected : rows.back().input) += word + "\n";
        }
    }
    return rows;
}

// The lines below each line "[section]", up to the next one, without empty ones and comments.
inline std::map<std::string, std::string> readSections(const std::string& path) {
    std::ifstream file = openData(path);
    std::map<std::string, std::string> sections;
    std::string section;
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with('[')) {
            section = line.substr(1, line.size() - 2);
        } else if (!line.empty() && line.front() != '#') {
            sections[section] += line + "\n";
        }
    }
    return sections;
}

// One LOAS frame after the other, cut by their announced lengths.
inline std::vector<Bytes> splitLoasFrames(const Bytes& stream) {
    std::vector<Bytes> frames;
    for (std::size_t at = 0; at + 3 <= stream.size();) {
        const std::size_t size = 3 + ((stream[at + 1] & 0x1FU) << 8 | stream[at + 2]);
        const auto begin = stream.begin() + static_cast<std::ptrdiff_t>(at);
        frames.emplace_back(begin, begin + static_cast<std::ptrdiff_t>(std::min(size, stream.size() - at)));
        at += size;
    }
    return frames;
}
