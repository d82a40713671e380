#pragma once

// Standard output and standard error of the program. When standard output is a terminal, a block of live
// lines stays at its end, and everything else appears above it: whoever writes by another way (a logger)
// calls `makeRoom` first. Every operation may be called from any thread.

#include <cstddef>
#include <cstdio>
#include <mutex>
#include <string>
#include <vector>

#include "System.h"

namespace KorvelVideo::Host {

class Terminal {
public:
    // `isLive`: keep a block of live lines that fits into `size`.
    Terminal(std::FILE* output, std::FILE* messages, bool isLive, TerminalSize size);
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    // A line on standard output.
    void write(const std::string& line);
    // A line on standard error.
    void complain(const std::string& line);
    // Replaces the live lines; without live lines it writes them as lines.
    void show(const std::vector<std::string>& lines);
    // Takes the live lines away.
    void makeRoom();

    // False once standard output takes no more, for example because its reader has gone.
    [[nodiscard]] bool isWritable();

private:
    void showAll(const std::vector<std::string>& lines);
    void showLive(const std::vector<std::string>& lines);
    void erase();
    void flush();

    std::FILE* const m_output;
    std::FILE* const m_messages;
    const bool m_isLive;
    const TerminalSize m_size;
    std::mutex m_lock;
    std::size_t m_liveLines = 0;
    bool m_isWritable = true;
};

} // namespace KorvelVideo::Host
