#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

// The recorded streams and the tables in tests/data.

using Bytes = std::vector<std::uint8_t>;

// File names without their extension, sorted.
std::vector<std::string> listCases(const std::string& folder, const std::string& extension);

Bytes readBytes(const std::string& path);

// Lines "name value"; a name may come more than once.
std::multimap<std::string, std::string> readExpected(const std::string& path);

// A row of a table file: "[name]", the words that go in, and behind "=>" those that are expected, each on a
// line of its own here. Lines that begin with # are comments.
struct TableRow {
    std::string name;
    std::string input;
    std::string expected;
};
std::vector<TableRow> readTable(const std::string& path);

// The lines below each line "[section]", up to the next one, without empty ones and comments.
std::map<std::string, std::string> readSections(const std::string& path);

// One LOAS frame after the other, cut by their announced lengths.
std::vector<Bytes> splitLoasFrames(const Bytes& stream);

// Names of parameterised tests: of a row by its field name, of a recorded stream by its file.
inline constexpr auto nameOfRow = [](const auto& test) { return std::string(test.param.name); };
std::string asTestName(std::string text);
inline constexpr auto nameOfFile = [](const auto& test) { return asTestName(test.param); };
