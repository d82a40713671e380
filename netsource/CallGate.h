#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace KorvelVideo::NetworkSource {

// Keeps one thread's calls out from `close` on. Entering costs two atomic stores and no lock. Calls may nest.
class CallGate {
public:
    class Pass {
    public:
        explicit Pass(CallGate& gate) noexcept;
        Pass(const Pass&) = delete;
        Pass& operator=(const Pass&) = delete;
        ~Pass();
        // False when the gate is closed: the call must do nothing.
        explicit operator bool() const noexcept { return m_open; }

    private:
        CallGate& m_gate;
        const bool m_nested;
        bool m_open = false;
    };

    [[nodiscard]] bool isClosed() const noexcept { return m_closed.load(); }

    // Returns when no call of another thread is inside. `onWait` is called about once a second meanwhile.
    template <class OnWait>
    void close(const OnWait& onWait) {
        m_closed.store(true);
        std::unique_lock lock(m_mutex);
        if (m_owner.load(std::memory_order_relaxed) == std::this_thread::get_id()) {
            return;
        }
        while (!m_left.wait_for(lock, std::chrono::seconds(1), [this] { return !m_inside.load(); })) {
            onWait();
        }
    }

private:
    std::atomic<bool> m_closed{false};
    std::atomic<bool> m_inside{false};
    std::atomic<std::thread::id> m_owner{}; // of the call inside
    std::mutex m_mutex;
    std::condition_variable m_left;
};

inline CallGate::Pass::Pass(CallGate& gate) noexcept
    : m_gate(gate), m_nested(gate.m_inside.load(std::memory_order_relaxed)) {
    if (!m_nested) {
        // Only this very thread can take it for its own, so it needs no order.
        m_gate.m_owner.store(std::this_thread::get_id(), std::memory_order_relaxed);
        m_gate.m_inside.store(true);
    }
    m_open = !m_gate.m_closed.load();
}

inline CallGate::Pass::~Pass() {
    if (m_nested) {
        return;
    }
    m_gate.m_owner.store({}, std::memory_order_relaxed);
    m_gate.m_inside.store(false);
    if (m_gate.m_closed.load()) {
        const std::lock_guard lock(m_gate.m_mutex);
        m_gate.m_left.notify_all();
    }
}

} // namespace KorvelVideo::NetworkSource
