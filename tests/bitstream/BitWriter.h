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
    BitWriter() = default;

    // Words between blanks: binary digits, x and hexadecimal digits, ue or se and the number in Exp-Golomb
    // code, "align" for zeros to the next byte. "3*" before a word, or before "(" and words up to ")",
    // repeats it.
    explicit BitWriter(const std::string& text) {
        std::istringstream words(text);
        write(words);
    }

    BitWriter& u(std::uint64_t value, int count) {
        for (int i = count - 1; i >= 0; --i, ++m_count) {
            if (m_count % 8 == 0) {
                m_data.push_back(0);
            }
            m_data.back() = static_cast<std::uint8_t>(m_data.back() | (value >> i & 1) << (7 - m_count % 8));
        }
        return *this;
    }

    BitWriter& ue(std::uint64_t value) {
        const int length = static_cast<int>(std::bit_width(value + 1));
        return u(0, length - 1).u(value + 1, length);
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
            const auto group = words.tellg();
            for (; times > 0; --times) {
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
            u(0, (8 - m_count % 8) % 8);
        } else if (word.starts_with("ue")) {
            ue(std::stoull(word.substr(2)));
        } else if (word.starts_with("se")) {
            const std::int64_t value = std::stoll(word.substr(2));
            ue(static_cast<std::uint64_t>(value > 0 ? 2 * value - 1 : -2 * value));
        } else {
            const bool isHexadecimal = word.starts_with('x');
            for (const char digit : word.substr(isHexadecimal ? 1 : 0)) {
                u(static_cast<std::uint64_t>(digit <= '9' ? digit - '0' : digit - 'A' + 10),
                  isHexadecimal ? 4 : 1);
            }
        }
    }
};
