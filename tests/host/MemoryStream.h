#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>

// A stream whose text a test can read.
class MemoryStream {
public:
    MemoryStream() = default;
    MemoryStream(const MemoryStream&) = delete;
    MemoryStream& operator=(const MemoryStream&) = delete;
    ~MemoryStream() {
        std::fclose(m_file);
        std::free(m_text);
    }

    [[nodiscard]] std::FILE* file() const { return m_file; }
    [[nodiscard]] std::string text() const {
        std::fflush(m_file);
        return {m_text, m_size};
    }

private:
    char* m_text = nullptr;
    std::size_t m_size = 0;
    std::FILE* m_file = open_memstream(&m_text, &m_size);
};
