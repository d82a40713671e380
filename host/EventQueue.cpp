#include "EventQueue.h"

#include <new>
#include <utility>

namespace KorvelVideo::Host {

void EventQueue::push(Event event) noexcept {
    try {
        const std::lock_guard lock(m_lock);
        m_events.push_back(std::move(event));
    } catch (const std::bad_alloc&) {
        return;
    }
    m_changed.notify_one();
}

void EventQueue::requestEnd() noexcept {
    {
        const std::lock_guard lock(m_lock);
        m_isEndRequested = true;
        m_isEndNews = true;
    }
    m_changed.notify_one();
}

void EventQueue::wait(Clock::time_point deadline) {
    std::unique_lock lock(m_lock);
    m_changed.wait_until(lock, deadline, [this] { return !m_events.empty() || m_isEndNews; });
    m_isEndNews = false;
}

std::vector<Event> EventQueue::take() {
    const std::lock_guard lock(m_lock);
    return std::exchange(m_events, {});
}

bool EventQueue::isEndRequested() const {
    const std::lock_guard lock(m_lock);
    return m_isEndRequested;
}

} // namespace KorvelVideo::Host
