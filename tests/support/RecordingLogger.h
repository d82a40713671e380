#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "KvVaneException.h"

// The logger component of the tests. Its class object is registered before any static of the module is
// constructed, so the module's logger holders find it with their ordinary CoCreateInstance at load.

struct LogLine {
    std::uint32_t category;
    std::uint32_t level;
    std::string text;

    bool operator==(const LogLine&) const = default;
    friend std::ostream& operator<<(std::ostream& stream, const LogLine& line) {
        return stream << '{' << line.category << ", " << line.level << ", \"" << line.text << "\"}";
    }
};

namespace RecordingLogger {

// What came since the last take. Lines without those of level 0 (construction and destruction) unless asked
// for, which begin with its number when another module than ours logged them ("module 8: "); sites of lines
// as "src/File|function signature".
std::vector<LogLine> takeLines(bool withLifetimeLines = false);
std::vector<CKvVaneException> takeExceptions();
std::string takeExceptionText(); // a line each: "0x80070005 src/File: expression"
std::vector<std::string> takeSites();
void clear();

// While off, calls are dropped (and nothing is allocated).
void setEnabled(bool enabled);

// Registers the class object in the calling thread's apartment; another one's may be out of its reach.
void registerClass();

[[nodiscard]] int alive(); // logger objects

} // namespace RecordingLogger

// While it lives, neither calls nor log lines are kept: for long runs, and where allocations count.
struct Unrecorded {
    Unrecorded();
    ~Unrecorded();
    Unrecorded(const Unrecorded&) = delete;
    Unrecorded& operator=(const Unrecorded&) = delete;
};
