#pragma once

#include <cstdint>
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
    friend std::ostream& operator<<(std::ostream& stream, const LogLine& line);
};

namespace RecordingLogger {

// The lines since the last take, without those of level 0 (construction and destruction) unless asked for.
std::vector<LogLine> takeLines(bool withLifetimeLines = false);

// The exceptions handed over since the last take.
std::vector<CKvVaneException> takeExceptions();

// The sites of the lines since the last take: "src/File|function signature".
std::vector<std::string> takeSites();

// Registers the class object in the calling thread's apartment; another one's may be out of its reach.
void registerClass();

void clear();

// While off, calls are dropped (and nothing is allocated).
void setEnabled(bool enabled);

// How many logger objects are alive.
[[nodiscard]] int alive();

// The module identifiers seen other than 7.
[[nodiscard]] int foreignModuleIds();

} // namespace RecordingLogger

// While it lives, neither calls nor log lines are kept: for long runs, and where allocations count.
class Unrecorded {
public:
    Unrecorded();
    ~Unrecorded();
    Unrecorded(const Unrecorded&) = delete;
    Unrecorded& operator=(const Unrecorded&) = delete;
};
