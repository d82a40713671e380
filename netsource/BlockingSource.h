#pragma once

// Base of a source whose protocol library blocks: it gives the source a delivering thread of its own.
//
// Derive and implement open, streams and run. The thread holds a reference to the source, so the object
// outlives it.

#include <condition_variable>
#include <mutex>
#include <thread>

#include "Source.h"

namespace KorvelVideo::NetworkSource {

class BlockingSource : public Source, public std::enable_shared_from_this<BlockingSource> {
public:
    [[nodiscard]] ClientStatus start(const SourceParameters& parameters,
                                     std::shared_ptr<SourceSink> sink) final;
    void stop() noexcept final;
    void interrupt() noexcept final;

protected:
    // One round of delivery.
    class Round {
    public:
        Round(SourceParameters parameters, std::shared_ptr<SourceSink> sink)
            : m_parameters(std::move(parameters)), m_sink(std::move(sink)) {}
        [[nodiscard]] const SourceParameters& parameters() const noexcept { return m_parameters; }
        [[nodiscard]] SourceSink& sink() const noexcept { return *m_sink; }
        // True from `stop` on. Polled by what blocks, at least every 50 ms.
        [[nodiscard]] bool stopped() const noexcept { return m_stopped.load(std::memory_order_acquire); }

    private:
        friend class BlockingSource;
        const SourceParameters m_parameters;
        const std::shared_ptr<SourceSink> m_sink;
        std::atomic<bool> m_stopped{false};
        std::mutex m_mutex;
        std::condition_variable m_ended;
        bool m_isEnded = false;
        std::thread::id m_thread;
    };

    // The body of the delivering thread, which has COM initialised: asks for media and delivers until the
    // source ends or `round.stopped()`. The result is told to the sink unless the round was stopped. Must
    // give back what it borrowed. Only one round runs at a time, except that a round left behind by a stop
    // that could wait no longer may still be returning: rounds share no state without a lock.
    [[nodiscard]] virtual SourceEnd run(Round& round) = 0;

    // True from `interrupt` on; polled by `open`.
    [[nodiscard]] bool interrupted() const noexcept { return m_interrupted.load(std::memory_order_acquire); }

private:
    void runRound(const std::shared_ptr<Round>& round) noexcept;

    std::atomic<bool> m_interrupted{false};
    std::mutex m_mutex;
    std::shared_ptr<Round> m_round;
};

} // namespace KorvelVideo::NetworkSource
