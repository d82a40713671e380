#include "BlockingSource.h"

#include <exception>
#include <system_error>

#include "ComApartment.h"
#include "NetworkLog.h"

namespace KorvelVideo::NetworkSource {

namespace {

// A round that has not ended by then is left behind; the sink is deaf from then on.
constexpr std::chrono::milliseconds kStopPatience{150};

} // namespace

ClientStatus BlockingSource::start(const SourceParameters& parameters, std::shared_ptr<SourceSink> sink) {
    using namespace MainConcept::NetworkStreaming;
    auto round = std::make_shared<Round>(parameters, std::move(sink));
    const std::lock_guard lock(m_mutex);
    if (m_round) {
        return keClientOk;
    }
    try {
        std::thread([self = shared_from_this(), round] { self->runRound(round); }).detach();
    } catch (const std::system_error& failure) {
        KV_NET_LOG(error, std::string("The receiving thread cannot be started: ") + failure.what());
        return keClientOutOfMemory;
    }
    m_round = std::move(round);
    return keClientOk;
}

void BlockingSource::runRound(const std::shared_ptr<Round>& round) noexcept {
    const ComApartment apartment;
    {
        const std::lock_guard lock(round->m_mutex);
        round->m_thread = std::this_thread::get_id();
    }
    SourceEnd reason = SourceEnd::disconnected;
    try {
        reason = run(*round);
    } catch (const std::exception& failure) {
        KV_NET_LOG(error, std::string("Reception failed: ") + failure.what());
    }
    if (!round->stopped()) {
        round->sink().end(reason);
    }
    const std::lock_guard lock(round->m_mutex);
    round->m_isEnded = true;
    round->m_ended.notify_all();
}

void BlockingSource::stop() noexcept {
    std::shared_ptr<Round> round;
    {
        const std::lock_guard lock(m_mutex);
        round = std::move(m_round);
    }
    if (!round) {
        return;
    }
    round->m_stopped.store(true, std::memory_order_release);
    std::unique_lock lock(round->m_mutex);
    if (round->m_thread != std::this_thread::get_id()) {
        round->m_ended.wait_for(lock, kStopPatience, [&round] { return round->m_isEnded; });
    }
}

void BlockingSource::interrupt() noexcept { m_interrupted.store(true, std::memory_order_release); }

} // namespace KorvelVideo::NetworkSource
