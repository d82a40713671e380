#pragma once

#include <cstdint>
#include <optional>

namespace KorvelVideo::NetworkSource {

// The time stamps of one stream's access units, in units of 100 ns: never backwards, and never twice the
// same, because consumers take what bears one time stamp for one access unit. A sender whose time goes back a
// little (pictures sent in decoding order, a corrected clock) is followed by steps of one unit until its time
// has caught up; one whose time goes back far has started anew, and its time is taken as it is.
class StampSequence {
public:
    // The time stamp of the next access unit, whose time is `time`, or `duration` after the last one when the
    // sender gave none.
    [[nodiscard]] std::uint64_t next(std::optional<std::int64_t> time, std::int64_t duration) noexcept {
        constexpr std::int64_t kRestart = std::int64_t{5} * 10'000'000; // 5 s
        std::int64_t value = time.value_or(m_last + (duration > 0 ? duration : 1));
        if (value < 0) {
            value = 0;
        }
        if (m_started && value <= m_last && m_last - value < kRestart) {
            value = m_last + 1;
        }
        m_started = true;
        m_last = value;
        return static_cast<std::uint64_t>(value);
    }

private:
    std::int64_t m_last = 0;
    bool m_started = false;
};

// Makes one running time of a counter of `bits` bits that starts over when it is full. Takes it, too, when
// someone before has unwrapped the counter, in part or in whole.
class CounterUnwrapper {
public:
    explicit CounterUnwrapper(unsigned bits) noexcept : m_unusedBits(bits < 64 ? 64 - bits : 0) {}

    [[nodiscard]] std::int64_t unwrap(std::int64_t counter) noexcept {
        if (!m_started) {
            m_started = true;
            m_time = static_cast<std::uint64_t>(counter);
        } else {
            const std::uint64_t step = static_cast<std::uint64_t>(counter) - m_last;
            // The shifts keep the counter's own bits and extend their sign.
            m_time +=
                static_cast<std::uint64_t>(static_cast<std::int64_t>(step << m_unusedBits) >> m_unusedBits);
        }
        m_last = static_cast<std::uint64_t>(counter);
        return static_cast<std::int64_t>(m_time);
    }

private:
    const unsigned m_unusedBits;
    std::uint64_t m_time = 0;
    std::uint64_t m_last = 0;
    bool m_started = false;
};

} // namespace KorvelVideo::NetworkSource
