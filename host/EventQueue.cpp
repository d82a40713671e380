#include "EventQueue.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <new>
#include <system_error>
#include <utility>

namespace KorvelVideo::Host {

EventQueue::EventQueue() : m_descriptor(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {
    if (m_descriptor < 0) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
}

EventQueue::~EventQueue() { close(m_descriptor); }

void EventQueue::push(Event event) noexcept {
    try {
        const std::lock_guard lock(m_lock);
        m_events.push_back(std::move(event));
    } catch (const std::bad_alloc&) {
        return;
    }
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = write(m_descriptor, &one, sizeof one); // full: already readable
}

std::vector<Event> EventQueue::take() {
    std::uint64_t count = 0;
    [[maybe_unused]] const ssize_t bytes =
        read(m_descriptor, &count, sizeof count); // empty: nothing to clear
    const std::lock_guard lock(m_lock);
    return std::exchange(m_events, {});
}

} // namespace KorvelVideo::Host
