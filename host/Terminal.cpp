#include "Terminal.h"

namespace KorvelVideo::Host {

Terminal::Terminal(std::FILE* output, std::FILE* messages, bool isLive, std::size_t columns)
    : m_output(output), m_messages(messages), m_isLive(isLive), m_columns(columns) {}

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
    for (const std::string& line : lines) {
        std::fprintf(m_output, "%s\n", m_isLive ? line.substr(0, m_columns).c_str() : line.c_str());
    }
    m_liveLines = m_isLive ? lines.size() : 0;
    flush();
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
