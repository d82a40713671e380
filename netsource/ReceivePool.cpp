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
    struct Entry {
        std::shared_ptr<Receiver> receiver;
        std::uint64_t token = 0;
        std::uint64_t servedRound = 0;
        Clock::time_point servedAt{};
        Clock::time_point lastData{};
        microseconds interval = kLongestInterval;
        bool quiet = true; // not in the rounds; its socket is waited for
        bool busy = false;
        bool removed = false;
        std::thread::id servedBy;

        void activate(Clock::time_point now);
    };
    using EntryPointer = std::shared_ptr<Entry>;

    void run();
    [[nodiscard]] EntryPointer takeDue();
    void serve(const EntryPointer& entry, DatagramBatch& batch, std::unique_lock<std::mutex>& lock);
    void sleepAndBeginRound(std::unique_lock<std::mutex>& lock);
    void watch(std::unique_lock<std::mutex>& lock);
    void schedule(Entry& entry, Clock::time_point now, std::size_t bytes);
    [[nodiscard]] bool isLate() const noexcept;
    void activateReady(const std::vector<std::uint64_t>& tokens);

    SocketWaiter waiter;
    std::mutex mutex;
    std::condition_variable left;    // a receiver was left
    std::condition_variable wanted;  // another thread may be of use
    std::condition_variable flowing; // data flows again
    std::vector<EntryPointer> entries;
    std::vector<std::uint64_t> ready; // of the sleeping thread
    std::uint64_t nextToken = 0;
    std::uint64_t round = 1;
    Clock::time_point roundBegin{};
    Clock::time_point nextFullRound{};
    microseconds interval = kLongestInterval;
    std::size_t cursor = 0; // entries before it have been served in this round
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
    auto entry = std::make_shared<State::Entry>();
    entry->token = m_state->nextToken++;
    entry->servedAt = Clock::now();
    entry->receiver = std::move(receiver);
    m_state->entries.push_back(entry);
    if (!m_state->waiter.add(entry->receiver->socket(), entry->token)) {
        m_state->entries.pop_back();
        return false;
    }
    m_state->wanted.notify_all();
    return true;
}

void ReceivePool::remove(const Receiver& receiver) {
    std::unique_lock lock(m_state->mutex);
    auto& entries = m_state->entries;
    const auto place =
        std::find_if(entries.begin(), entries.end(), [&receiver](const State::EntryPointer& entry) {
            return entry->receiver.get() == &receiver;
        });
    if (place == entries.end()) {
        return;
    }
    const State::EntryPointer entry = *place;
    const auto index = static_cast<std::size_t>(place - entries.begin());
    entries.erase(place);
    if (index < m_state->cursor) {
        --m_state->cursor;
    }
    entry->removed = true;
    m_state->waiter.remove(entry->receiver->socket());
    const auto isLeft = [&entry] { return !entry->busy || entry->servedBy == std::this_thread::get_id(); };
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
        if (const EntryPointer entry = takeDue()) {
            serve(entry, batch, lock);
        } else if (!sleeping) {
            sleepAndBeginRound(lock);
        } else {
            watch(lock);
        }
    }
}

ReceivePool::State::EntryPointer ReceivePool::State::takeDue() {
    for (; cursor < entries.size(); ++cursor) {
        const EntryPointer& entry = entries[cursor];
        if (!entry->busy && entry->servedRound != round && (fullRound || !entry->quiet)) {
            return entries[cursor++];
        }
    }
    return nullptr;
}

void ReceivePool::State::serve(const EntryPointer& entry, DatagramBatch& batch,
                               std::unique_lock<std::mutex>& lock) {
    entry->busy = true;
    entry->servedRound = round;
    entry->servedBy = std::this_thread::get_id();
    if (!watching && entries.size() > 1) { // this call may take long, so somebody must look in
        wanted.notify_one();
    }
    lock.unlock();

    const Clock::time_point now = Clock::now();
    std::size_t bytes = 0;
    try {
        bytes = entry->receiver->receive(batch);
    } catch (const std::exception& failure) { // no memory
        KV_NET_LOG(error, std::string("Data was lost: ") + failure.what());
    }

    lock.lock();
    entry->busy = false;
    if (entry->removed) {
        left.notify_all();
        return;
    }
    schedule(*entry, now, bytes);
    if (idle && !entry->quiet) {
        waiter.wake();
    }
}

void ReceivePool::State::Entry::activate(Clock::time_point now) {
    lastData = now;
    if (quiet) {
        quiet = false;
        interval = intervalFor(kFirstRate * kLongestInterval.count(), kLongestInterval,
                               receiver->socket().receiveBufferSize());
    }
}

void ReceivePool::State::schedule(Entry& entry, Clock::time_point now, std::size_t bytes) {
    const auto elapsed = std::max(duration_cast<microseconds>(now - entry.servedAt), kShortestInterval);
    entry.servedAt = now;
    if (bytes != 0) {
        entry.activate(now);
        // Shorter at once, longer only by and by.
        entry.interval = std::min(intervalFor(bytes, elapsed, entry.receiver->socket().receiveBufferSize()),
                                  entry.interval + entry.interval / 8);
    } else if (!entry.quiet && now - entry.lastData >= kQuietAfter) {
        entry.quiet = true;
        waiter.rearm(entry.receiver->socket(), entry.token);
    }
}

// Sleeps for one interval when data flows, else until data comes or the quiet ones are due.
void ReceivePool::State::sleepAndBeginRound(std::unique_lock<std::mutex>& lock) {
    bool anyQuiet = false;
    idle = true;
    interval = kLongestInterval;
    for (const EntryPointer& entry : entries) {
        anyQuiet = anyQuiet || entry->quiet;
        if (!entry->quiet && !entry->busy) {
            idle = false;
            interval = std::min(interval, entry->interval);
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
    for (const EntryPointer& entry : entries) {
        if (std::find(tokens.begin(), tokens.end(), entry->token) != tokens.end()) {
            entry->activate(roundBegin);
        }
    }
}

bool ReceivePool::State::isLate() const noexcept {
    return !sleeping && Clock::now() - roundBegin > kLateIntervals * interval;
}

// Stands by until the calling thread is of use. While there is more than one receiver and data flows, one of
// the threads that stand by looks in from time to time.
void ReceivePool::State::watch(std::unique_lock<std::mutex>& lock) {
    if (watching || entries.size() < 2) {
        wanted.wait(lock);
        return;
    }
    watching = true;
    while (!ending && !isLate() && entries.size() > 1) {
        flowing.wait_for(lock,
                         idle ? duration_cast<microseconds>(kIdleInterval) : kWatchIntervals * interval);
    }
    watching = false;
}

} // namespace KorvelVideo::NetworkSource
