#pragma once

#include <bit>
#include <cstdint>
#include <string_view>
#include <vector>

// Writes bits, most significant first, for hand-made streams.
class BitWriter {
public:
    BitWriter() = default;
    // As many bits as there are digits; blanks are for the reader.
    explicit BitWriter(std::string_view digits) { bits(digits); }

    BitWriter& bits(std::string_view digits) {
        for (const char digit : digits) {
            if (digit != ' ') {
                bit(digit == '1');
            }
        }
        return *this;
    }

    BitWriter& u(std::uint64_t value, int count) {
        for (int i = count - 1; i >= 0; --i) {
            bit((value >> i & 1) != 0);
        }
        return *this;
    }

    BitWriter& ue(std::uint64_t value) {
        const int length = static_cast<int>(std::bit_width(value + 1));
        return u(0, length - 1).u(value + 1, length);
    }

    BitWriter& se(std::int64_t value) {
        return ue(static_cast<std::uint64_t>(value > 0 ? 2 * value - 1 : -2 * value));
    }

    BitWriter& bytes(const std::vector<std::uint8_t>& values) {
        for (const std::uint8_t value : values) {
            u(value, 8);
        }
        return *this;
    }

    // The last byte filled up with zeros.
    [[nodiscard]] const std::vector<std::uint8_t>& data() const { return m_data; }

private:
    std::vector<std::uint8_t> m_data;
    int m_used = 0;

    void bit(bool value) {
        if (m_used % 8 == 0) {
            m_data.push_back(0);
        }
        m_data.back() = static_cast<std::uint8_t>(m_data.back() | (value ? 0x80 >> m_used % 8 : 0));
        ++m_used;
    }
};
