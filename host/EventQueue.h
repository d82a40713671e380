#pragma once

// What happens on the module's threads and concerns the main thread: it is queued here, and the main thread
// prints and acts, so that a slow terminal or pipe never holds up reception.

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

#include "PlatformCom.h"

namespace KorvelVideo::Host {

using Clock = std::chrono::steady_clock;

class ReceivedStream;

struct Event {
    enum class Kind {
        announced, // a stream was announced and its sink given
        status,    // `code` reached a sink
        message,   // `text` is for the user
        progress,  // a reception finished opening, redirecting or stopping
    };
    Kind kind;
    Clock::time_point time;
    ReceivedStream* stream = nullptr;
    HRESULT code = S_OK;
    std::string text;
};

class EventQueue {
public:
    EventQueue() = default;
    EventQueue(const EventQueue&) = delete;
    EventQueue& operator=(const EventQueue&) = delete;

    // Any thread. An event that memory does not suffice for is dropped.
    void push(Event event) noexcept;
    // Any thread: the user wants the run to end.
    void requestEnd() noexcept;

    // The main thread.

    // Until there are events, the end is requested, or the deadline.
    void wait(Clock::time_point deadline);
    [[nodiscard]] std::vector<Event> take();
    [[nodiscard]] bool isEndRequested() const;

private:
    mutable std::mutex m_lock;
    std::condition_variable m_changed;
    std::vector<Event> m_events;
    bool m_isEndRequested = false;
    bool m_isEndNews = false; // requested since the last wait
};

} // namespace KorvelVideo::Host
