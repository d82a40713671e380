#pragma once

// The threads that all datagram sources share.
//
// A wake-up costs as much as a hundred datagrams, so the pool works in rounds: one thread sleeps a few
// milliseconds, then reads whatever all sockets have queued meanwhile. Sockets that have been quiet for a
// while leave the rounds and are waited for. The time between rounds shrinks when a socket buffer fills
// faster than that, so that no burst of two rounds' length overflows it.
//
// The number of threads is fixed. One does the rounds; when it is held up, because a host takes its time in a
// callback, another takes over the receivers that wait. So up to kThreads - 1 slow hosts at a time do not
// stop the others.

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "Sockets.h"

namespace KorvelVideo::NetworkSource {

class ReceivePool {
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    static constexpr std::size_t kThreads = 4;
    static constexpr std::chrono::microseconds kLongestInterval{5000};
    static constexpr std::chrono::microseconds kShortestInterval{500};
    // How often a receiver is called when nothing arrives.
    static constexpr std::chrono::milliseconds kIdleInterval{400};

    // What the pool serves. Kept alive by the pool while one of its threads is inside.
    class Receiver {
    public:
        virtual ~Receiver() = default;
        // Reads what the socket has queued at `now`. On a thread of the pool's, never on two at a time.
        // Returns how many bytes came.
        virtual std::size_t receive(DatagramBatch& batch, TimePoint now) = 0;
        [[nodiscard]] virtual DatagramSocket& socket() noexcept = 0;

    private:
        friend class ReceivePool;
        // Guarded by the pool's lock. It lies in the receiver because both are needed in each round.
        struct Membership {
            std::uint64_t token = 0;
            std::uint64_t servedRound = 0;
            TimePoint servedAt{};
            TimePoint lastData{};
            std::chrono::microseconds interval = kLongestInterval;
            std::thread::id servedBy;
            bool quiet = true; // not in the rounds; its socket is waited for
            bool busy = false;
            bool removed = false;
        };
        Membership m_membership;
    };

    // The pool of the process; it ends with its last holder. Null when the system gives no resources for it.
    [[nodiscard]] static std::shared_ptr<ReceivePool> shared();

    ReceivePool();
    ReceivePool(const ReceivePool&) = delete;
    ReceivePool& operator=(const ReceivePool&) = delete;
    // May be called on a thread of the pool, which then ends as soon as it returns from the receiver.
    ~ReceivePool();

    // The receiver's socket is open and stays so until it is removed. False when the system gives no
    // resources.
    [[nodiscard]] bool add(std::shared_ptr<Receiver> receiver);
    // When it returns the receiver is not called any more, unless this is called from inside the receiver
    // itself, which then is left as soon as it returns. Does nothing for an unknown receiver.
    void remove(const Receiver& receiver);

    // The time between two rounds for receivers of which one gets `bytes` in `elapsed` into a socket buffer
    // of `bufferSize` bytes: short enough to leave three quarters of the buffer for bursts.
    [[nodiscard]] static std::chrono::microseconds
    intervalFor(std::size_t bytes, std::chrono::microseconds elapsed, std::size_t bufferSize) noexcept;

private:
    struct State;
    std::shared_ptr<State> m_state;
    std::array<std::thread, kThreads> m_threads;
};

} // namespace KorvelVideo::NetworkSource
