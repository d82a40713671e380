#pragma once

#include <bit>
#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

#include "BitReader.h"

// Over exact heap buffers, so that the address sanitizer sees every byte beyond them.
inline KorvelVideo::Network::BitReader readerOver(const std::vector<std::uint8_t>& bytes) {
    return {bytes.data(), static_cast<std::int32_t>(bytes.size())};
}

// Writes bits, most significant first, for hand-made streams.
class BitWriter {
public:
    // Words between blanks: binary digits, x and hexadecimal digits, ue or se and the number in Exp-Golomb
    // code, "align" for zeros to the next byte. "3*" before a word, or before "(" and words up to ")",
    // repeats it.
    explicit BitWriter(const std::string& text) {
        std::istringstream words(text);
        write(words);
    }

    // The last byte filled up with zeros.
    [[nodiscard]] const std::vector<std::uint8_t>& data() const { return m_data; }

private:
    std::vector<std::uint8_t> m_data;
    std::int32_t m_count = 0; // bits

    // Up to the end or the closing parenthesis.
    void write(std::istream& words) {
        for (std::string word; words >> word && word != ")";) {
            const std::size_t star = word.find('*');
            int times = star == std::string::npos ? 1 : std::stoi(word);
            word.erase(0, star + 1);
            for (const auto group = words.tellg(); times > 0; --times) {
                if (word == "(") {
                    words.seekg(group);
                    write(words);
                } else {
                    writeWord(word);
                }
            }
        }
    }

    void writeWord(const std::string& word) {
        if (word == "align") {
            writeBits(0, (8 - m_count % 8) % 8);
        } else if (word.starts_with("ue")) {
            writeCodeNumber(std::stoull(word.substr(2)));
        } else if (word.starts_with("se")) {
            const std::int64_t value = std::stoll(word.substr(2));
            writeCodeNumber(static_cast<std::uint64_t>(value > 0 ? 2 * value - 1 : -2 * value));
        } else {
            const bool isBinary = word.front() != 'x';
            for (const char digit : word.substr(isBinary ? 0 : 1)) {
                writeBits(static_cast<std::uint64_t>(digit <= '9' ? digit - '0' : digit - 'A' + 10),
                          isBinary ? 1 : 4);
            }
        }
    }

    void writeCodeNumber(std::uint64_t number) {
        writeBits(number + 1, 2 * static_cast<int>(std::bit_width(number + 1)) - 1);
    }

    void writeBits(std::uint64_t value, int count) {
        for (int i = count - 1; i >= 0; --i, ++m_count) {
            if (m_count % 8 == 0) {
                m_data.push_back(0);
            }
            const std::uint64_t bit = i < 64 ? value >> i & 1 : 0;
            m_data.back() = static_cast<std::uint8_t>(m_data.back() | bit << (7 - m_count % 8));
        }
    }
};
