#include "Terminal.h"

namespace KorvelVideo::Host {

Terminal::Terminal(std::FILE* output, std::FILE* messages, bool isLive, TerminalSize size)
    : m_output(output), m_messages(messages), m_isLive(isLive), m_size(size) {}

void Terminal::write(const std::string& line) {
    const std::lock_guard lock(m_lock);
    erase();
    std::fprintf(m_output, "%s\n", line.c_str());
    flush();
}

void Terminal::complain(const std::string& line) {
    const std::lock_guard lock(m_lock);
    erase();
    flush();
    std::fprintf(m_messages, "kvreceive: %s\n", line.c_str());
    std::fflush(m_messages);
}

void Terminal::show(const std::vector<std::string>& lines) {
    const std::lock_guard lock(m_lock);
    erase();
    m_isLive ? showLive(lines) : showAll(lines);
    flush();
}

void Terminal::showAll(const std::vector<std::string>& lines) {
    for (const std::string& line : lines) {
        std::fprintf(m_output, "%s\n", line.c_str());
    }
}

// The cursor stands on a row of its own below them. Lines that have left the screen could not be replaced.
void Terminal::showLive(const std::vector<std::string>& lines) {
    const std::size_t room = m_size.rows - 1;
    const std::size_t shown = lines.size() <= room ? lines.size() : room - 1;
    for (std::size_t index = 0; index < shown; ++index) {
        std::fprintf(m_output, "%s\n", lines[index].substr(0, m_size.columns).c_str());
    }
    m_liveLines = shown;
    if (shown < lines.size()) {
        std::fprintf(m_output, "... and %zu more\n", lines.size() - shown);
        ++m_liveLines;
    }
}

void Terminal::makeRoom() {
    const std::lock_guard lock(m_lock);
    if (m_liveLines != 0) {
        erase();
        flush();
    }
}

bool Terminal::isWritable() {
    const std::lock_guard lock(m_lock);
    return m_isWritable;
}

// Up over the live lines, and away with all below.
void Terminal::erase() {
    if (m_liveLines != 0) {
        std::fprintf(m_output, "\x1b[%zuA\x1b[J", m_liveLines);
        m_liveLines = 0;
    }
}

void Terminal::flush() {
    if (std::fflush(m_output) != 0 || std::ferror(m_output) != 0) {
        m_isWritable = false;
    }
}

} // namespace KorvelVideo::Host
