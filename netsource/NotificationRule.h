#pragma once

#include <chrono>

namespace KorvelVideo::NetworkSource {

// When a consumer is told of activity and of silence. Time is passed in; not thread-safe.
class NotificationRule {
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    static constexpr std::chrono::seconds kActivityInterval{1};
    static constexpr std::chrono::seconds kSilence{3};

    // Data came. True when activity is to be told: with the first data, the first after silence, and then
    // once a second.
    [[nodiscard]] bool dataCame(TimePoint now) noexcept {
        m_lastData = now;
        return !m_flowing || now - m_lastTold >= kActivityInterval;
    }

    // Activity has been told. Silence counts from here at the earliest, because the consumer counts from it.
    void activityTold(TimePoint now) noexcept {
        m_flowing = true;
        m_lastTold = now;
        m_lastData = now;
    }

    // True when silence is to be told: once, when none has come for three seconds after data has flowed.
    [[nodiscard]] bool silenceBegan(TimePoint now) noexcept {
        if (!m_flowing || now - m_lastData < kSilence) {
            return false;
        }
        m_flowing = false;
        return true;
    }

private:
    bool m_flowing = false;
    TimePoint m_lastTold{};
    TimePoint m_lastData{};
};

} // namespace KorvelVideo::NetworkSource
