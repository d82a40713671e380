#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

// The recorded streams in tests/data.

using Bytes = std::vector<std::uint8_t>;

// File names without their extension, sorted.
std::vector<std::string> listCases(const std::string& folder, const std::string& extension);

Bytes readBytes(const std::string& path);

// Lines "name value"; a name may come more than once.
std::multimap<std::string, std::string> readExpected(const std::string& path);

// One LOAS frame after the other, cut by their announced lengths.
std::vector<Bytes> splitLoasFrames(const Bytes& stream);

// Names of parameterised tests: of a row by its field name, of a recorded stream by its file.
inline constexpr auto nameOfRow = [](const auto& test) { return std::string(test.param.name); };
std::string asTestName(std::string text);
inline constexpr auto nameOfFile = [](const auto& test) { return asTestName(test.param); };
