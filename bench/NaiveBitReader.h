#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

// The bit reader in its plainest form, byte by byte over indices: the model that BitReader is compared with,
// and the baseline of the benchmarks.
class NaiveBitReader {
public:
    NaiveBitReader(const std::uint8_t* bytes, std::int32_t size) : m_bytes(bytes), m_end(std::max(size, 0)) {}

    [[nodiscard]] std::uint64_t peekBits(std::int32_t n) const { return peek(n, false); }
    [[nodiscard]] std::uint64_t peekRbspBits(std::int32_t n) const { return peek(n, true); }
    void skipBits(std::int32_t n) { skip(n, false); }
    void skipRbspBits(std::int32_t n) { skip(n, true); }

    std::uint32_t readUnsigned(std::int32_t n) {
        const auto value = static_cast<std::uint32_t>(peekBits(n));
        skipBits(n);
        return value;
    }

    void byteAlign() {
        if (m_offset != 0) {
            ++m_position;
            m_offset = 0;
        }
    }

    [[nodiscard]] std::int32_t bitsConsumed() const {
        return static_cast<std::int32_t>(static_cast<std::uint32_t>(m_position * 8 + m_offset));
    }

private:
    const std::uint8_t* m_bytes;
    std::int64_t m_position = 0;
    std::int64_t m_end;
    std::int32_t m_offset = 0;

    [[nodiscard]] bool isEmulationPrevention(std::int64_t p) const {
        if (p < 2 || p >= m_end || m_bytes[p - 2] != 0 || m_bytes[p - 1] != 0 || m_bytes[p] != 3) {
            return false;
        }
        return p + 1 == m_end || m_bytes[p + 1] <= 3;
    }

    [[nodiscard]] std::uint64_t peek(std::int32_t n, bool rbsp) const {
        if (m_position >= m_end) {
            return 0;
        }
        std::int64_t p = m_position;
        const std::int32_t available = 8 - m_offset;
        if (n <= available) {
            p += rbsp && isEmulationPrevention(p) ? 1 : 0;
            return p >= m_end ? 0
                              : static_cast<std::uint64_t>(m_bytes[p] & 0xFF >> m_offset) >> (available - n);
        }
        auto value = static_cast<std::uint64_t>(m_bytes[p++] & 0xFF >> m_offset);
        for (std::int32_t remaining = n - available; remaining > 0; ++p) {
            p += rbsp && isEmulationPrevention(p) ? 1 : 0;
            const std::int32_t taken = std::min(remaining, 8);
            if (p < m_end) {
                value = value << taken | static_cast<std::uint64_t>(m_bytes[p] >> (8 - taken));
            }
            remaining -= taken;
        }
        return value;
    }

    void skip(std::int32_t n, bool rbsp) {
        const std::int64_t total = std::int64_t{m_offset} + n;
        m_offset = static_cast<std::int32_t>(total % 8);
        if (!rbsp) {
            m_position += total / 8;
            return;
        }
        for (std::int64_t bytes = total / 8; bytes > 0; --bytes) {
            ++m_position;
            m_position += isEmulationPrevention(m_position) ? 1 : 0;
        }
    }
};
