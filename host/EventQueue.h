#pragma once

// What happens on the module's threads and concerns the main thread: it is queued here, and the main thread
// prints and acts, so that a slow terminal or pipe never holds up reception.

#include <chrono>
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
    EventQueue();
    EventQueue(const EventQueue&) = delete;
    EventQueue& operator=(const EventQueue&) = delete;
    ~EventQueue();

    // Any thread. An event that memory does not suffice for is dropped.
    void push(Event event) noexcept;
    // The main thread.
    [[nodiscard]] std::vector<Event> take();

    // Readable while there may be events.
    [[nodiscard]] int descriptor() const noexcept { return m_descriptor; }

private:
    int m_descriptor;
    std::mutex m_lock;
    std::vector<Event> m_events;
};

} // namespace KorvelVideo::Host
