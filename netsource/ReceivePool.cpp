#include "ReceivePool.h"

#include <algorithm>
#include <exception>
#include <system_error>
#include <utility>

#include "ComApartment.h"
#include "NetworkLog.h"

namespace KorvelVideo::NetworkSource {

namespace {

using std::chrono::duration_cast;
using std::chrono::microseconds;
using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

// A receiver leaves the rounds after this long without data.
constexpr milliseconds kQuietAfter{20};
// What a stream may bring before its rate is known, in bytes per microsecond.
constexpr std::size_t kFirstRate = 500;
// A round that takes longer is late: another thread takes over what still waits.
constexpr int kLateIntervals = 2;
constexpr int kWatchIntervals = 4;

} // namespace

// Shared with the threads, which may outlive the pool by the rest of one call.
struct ReceivePool::State {
    using ReceiverPointer = std::shared_ptr<Receiver>;

    void run();
    [[nodiscard]] ReceiverPointer takeDue();
    void serve(const ReceiverPointer& receiver, DatagramBatch& batch, std::unique_lock<std::mutex>& lock);
    void sleepAndBeginRound(std::unique_lock<std::mutex>& lock);
    void watch(std::unique_lock<std::mutex>& lock);
    void schedule(Receiver& receiver, Clock::time_point now, std::size_t bytes);
    static void activate(Receiver& receiver, Clock::time_point now);
    [[nodiscard]] bool isLate() const noexcept;
    void activateReady(const std::vector<std::uint64_t>& tokens);

    SocketWaiter waiter;
    std::mutex mutex;
    std::condition_variable left;    // a receiver was left
    std::condition_variable wanted;  // another thread may be of use
    std::condition_variable flowing; // data flows again
    std::vector<ReceiverPointer> receivers;
    std::vector<std::uint64_t> ready; // of the sleeping thread
    std::uint64_t nextToken = 0;
    std::uint64_t round = 1;
    Clock::time_point roundBegin{};
    Clock::time_point nextFullRound{};
    microseconds interval = kLongestInterval;
    std::size_t cursor = 0; // receivers before it have been served in this round
    bool fullRound = false; // quiet receivers take part
    bool sleeping = false;  // one thread sleeps until the next round
    bool idle = false;      // it does so until data comes
    bool watching = false;  // one thread watches over the ones at work
    bool ending = false;
};

std::shared_ptr<ReceivePool> ReceivePool::shared() {
    static std::mutex mutex;
    static std::weak_ptr<ReceivePool> current;
    const std::lock_guard lock(mutex);
    std::shared_ptr<ReceivePool> pool = current.lock();
    if (!pool) {
        try {
            pool = std::make_shared<ReceivePool>();
        } catch (const std::system_error& failure) {
            KV_NET_LOG(error, std::string("The receiving threads cannot be started: ") + failure.what());
            return nullptr;
        }
        current = pool;
    }
    return pool;
}

ReceivePool::ReceivePool() : m_state(std::make_shared<State>()) {
    if (!m_state->waiter.isOpen()) {
        throw std::system_error(std::make_error_code(std::errc::too_many_files_open));
    }
    for (std::thread& thread : m_threads) {
        thread = std::thread([state = m_state] { state->run(); });
    }
}

ReceivePool::~ReceivePool() {
    {
        const std::lock_guard lock(m_state->mutex);
        m_state->ending = true;
        m_state->wanted.notify_all();
        m_state->flowing.notify_all();
    }
    m_state->waiter.wake();
    for (std::thread& thread : m_threads) {
        if (thread.get_id() == std::this_thread::get_id()) {
            thread.detach();
        } else {
            thread.join();
        }
    }
}

bool ReceivePool::add(std::shared_ptr<Receiver> receiver) {
    const std::lock_guard lock(m_state->mutex);
    Receiver& added = *receiver;
    added.m_membership.token = m_state->nextToken++;
    added.m_membership.servedAt = Clock::now();
    m_state->receivers.push_back(std::move(receiver));
    if (!m_state->waiter.add(added.socket(), added.m_membership.token)) {
        m_state->receivers.pop_back();
        return false;
    }
    m_state->wanted.notify_all();
    return true;
}

void ReceivePool::remove(const Receiver& receiver) {
    std::unique_lock lock(m_state->mutex);
    auto& receivers = m_state->receivers;
    const auto place = std::find_if(receivers.begin(), receivers.end(), [&receiver](const auto& candidate) {
        return candidate.get() == &receiver;
    });
    if (place == receivers.end()) {
        return;
    }
    const State::ReceiverPointer removed = *place;
    const auto index = static_cast<std::size_t>(place - receivers.begin());
    receivers.erase(place);
    if (index < m_state->cursor) {
        --m_state->cursor;
    }
    Receiver::Membership& membership = removed->m_membership;
    membership.removed = true;
    m_state->waiter.remove(removed->socket());
    const auto isLeft = [&membership] {
        return !membership.busy || membership.servedBy == std::this_thread::get_id();
    };
    while (!m_state->left.wait_for(lock, std::chrono::seconds(1), isLeft)) {
        lock.unlock();
        KV_NET_LOG(error, kHostIsBusy);
        lock.lock();
    }
}

microseconds ReceivePool::intervalFor(std::size_t bytes, microseconds elapsed,
                                      std::size_t bufferSize) noexcept {
    if (bytes == 0) {
        return kLongestInterval;
    }
    const auto wanted =
        static_cast<std::int64_t>(static_cast<double>(elapsed.count()) * static_cast<double>(bufferSize) / 4 /
                                  static_cast<double>(bytes));
    return std::clamp(microseconds(wanted), kShortestInterval, kLongestInterval);
}

// The body of each thread: serves what is due; with nothing due, one thread sleeps until the next round and
// the others stand by.
void ReceivePool::State::run() {
    const ComApartment apartment;
    DatagramBatch batch;
    std::unique_lock lock(mutex);
    while (!ending) {
        if (const ReceiverPointer receiver = takeDue()) {
            serve(receiver, batch, lock);
        } else if (!sleeping) {
            sleepAndBeginRound(lock);
        } else {
            watch(lock);
        }
    }
}

ReceivePool::State::ReceiverPointer ReceivePool::State::takeDue() {
    for (; cursor < receivers.size(); ++cursor) {
        const Receiver::Membership& membership = receivers[cursor]->m_membership;
        if (!membership.busy && membership.servedRound != round && (fullRound || !membership.quiet)) {
            return receivers[cursor++];
        }
    }
    return nullptr;
}

void ReceivePool::State::serve(const ReceiverPointer& receiver, DatagramBatch& batch,
                               std::unique_lock<std::mutex>& lock) {
    Receiver::Membership& membership = receiver->m_membership;
    membership.busy = true;
    membership.servedRound = round;
    membership.servedBy = std::this_thread::get_id();
    if (!watching && receivers.size() > 1) { // this call may take long, so somebody must look in
        wanted.notify_one();
    }
    lock.unlock();

    const Clock::time_point now = Clock::now();
    std::size_t bytes = 0;
    try {
        bytes = receiver->receive(batch, now);
    } catch (const std::exception& failure) { // no memory
        KV_NET_LOG(error, std::string("Data was lost: ") + failure.what());
    }

    lock.lock();
    membership.busy = false;
    if (membership.removed) {
        left.notify_all();
        return;
    }
    schedule(*receiver, now, bytes);
    if (idle && !membership.quiet) {
        waiter.wake();
    }
}

void ReceivePool::State::activate(Receiver& receiver, Clock::time_point now) {
    Receiver::Membership& membership = receiver.m_membership;
    membership.lastData = now;
    if (membership.quiet) {
        membership.quiet = false;
        membership.interval = intervalFor(kFirstRate * kLongestInterval.count(), kLongestInterval,
                                          receiver.socket().receiveBufferSize());
    }
}

void ReceivePool::State::schedule(Receiver& receiver, Clock::time_point now, std::size_t bytes) {
    Receiver::Membership& membership = receiver.m_membership;
    const auto elapsed = std::max(duration_cast<microseconds>(now - membership.servedAt), kShortestInterval);
    membership.servedAt = now;
    if (bytes != 0) {
        activate(receiver, now);
        // Shorter at once, longer only by and by.
        membership.interval = std::min(intervalFor(bytes, elapsed, receiver.socket().receiveBufferSize()),
                                       membership.interval + membership.interval / 8);
    } else if (!membership.quiet && now - membership.lastData >= kQuietAfter) {
        membership.quiet = true;
        waiter.rearm(receiver.socket(), membership.token);
    }
}

// Sleeps for one interval when data flows, else until data comes or the quiet ones are due.
void ReceivePool::State::sleepAndBeginRound(std::unique_lock<std::mutex>& lock) {
    bool anyQuiet = false;
    idle = true;
    interval = kLongestInterval;
    for (const ReceiverPointer& receiver : receivers) {
        const Receiver::Membership& membership = receiver->m_membership;
        anyQuiet = anyQuiet || membership.quiet;
        if (!membership.quiet && !membership.busy) {
            idle = false;
            interval = std::min(interval, membership.interval);
        }
    }
    sleeping = true;
    const bool inRounds = !idle;
    lock.unlock();

    ready.clear();
    if (inRounds) {
        std::this_thread::sleep_until(roundBegin + interval);
    }
    if (!inRounds || anyQuiet) {
        const auto patience =
            std::clamp(duration_cast<milliseconds>(nextFullRound - Clock::now()) + milliseconds(1),
                       milliseconds(1), kIdleInterval);
        waiter.wait(inRounds ? milliseconds(0) : patience, ready);
    }

    lock.lock();
    sleeping = false;
    ++round;
    cursor = 0;
    roundBegin = Clock::now();
    fullRound = roundBegin >= nextFullRound;
    if (fullRound) {
        nextFullRound = roundBegin + kIdleInterval;
    }
    activateReady(ready);
    if (idle && !ready.empty()) {
        idle = false;
        flowing.notify_one();
    }
}

void ReceivePool::State::activateReady(const std::vector<std::uint64_t>& tokens) {
    if (tokens.empty()) {
        return;
    }
    for (const ReceiverPointer& receiver : receivers) {
        if (std::find(tokens.begin(), tokens.end(), receiver->m_membership.token) != tokens.end()) {
            activate(*receiver, roundBegin);
        }
    }
}

bool ReceivePool::State::isLate() const noexcept {
    return !sleeping && Clock::now() - roundBegin > kLateIntervals * interval;
}

// Stands by until the calling thread is of use. While there is more than one receiver and data flows, one of
// the threads that stand by looks in from time to time.
void ReceivePool::State::watch(std::unique_lock<std::mutex>& lock) {
    if (watching || receivers.size() < 2) {
        wanted.wait(lock);
        return;
    }
    watching = true;
    while (!ending && !isLate() && receivers.size() > 1) {
        flowing.wait_for(lock,
                         idle ? duration_cast<microseconds>(kIdleInterval) : kWatchIntervals * interval);
    }
    watching = false;
}

} // namespace KorvelVideo::NetworkSource
