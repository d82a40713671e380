#include "NetworkClient.h"

#include <algorithm>
#include <condition_variable>
#include <cstring>
#include <exception>
#include <system_error>
#include <thread>
#include <utility>

#include "ClientRegistry.h"
#include "ComApartment.h"
#include "NetworkLog.h"
#include "SourceFactory.h"

namespace KorvelVideo::NetworkSource {

using namespace MainConcept::NetworkStreaming;

namespace {

constexpr std::chrono::seconds kOpenLimit{10};
// What a source may take to notice that its time is up.
constexpr std::chrono::milliseconds kOpenGrace{200};

// A URL without the password that may stand in it.
std::string withoutPassword(const std::string& url) {
    const std::size_t scheme = url.find("://");
    const std::size_t begin = scheme == std::string::npos ? 0 : scheme + 3;
    const std::size_t at = url.find('@', begin);
    const std::size_t colon = url.find(':', begin);
    if (at == std::string::npos || colon > at || url.find('/', begin) < at) {
        return url;
    }
    return url.substr(0, colon) + url.substr(at);
}

template <class Value>
bool readParameter(const void* from, std::int32_t size, Value& value) noexcept {
    if (from == nullptr || size != static_cast<std::int32_t>(sizeof(value))) {
        return false;
    }
    std::memcpy(&value, from, sizeof(value));
    return true;
}

} // namespace

// What Init and the client's thread share. The thread is left behind when opening takes too long, so it owns
// all that it touches before `announcing`.
struct NetworkClient::Opening {
    enum class State { opening, announcing, done, givenUp };

    std::shared_ptr<Source> source;
    SourceParameters parameters;
    Source::TimePoint deadline;
    Creator* creator = nullptr; // valid unless given up

    std::mutex mutex;
    std::condition_variable changed;
    State state = State::opening;
    ClientStatus status = keClientOk;
    std::shared_ptr<ConsumerTable> consumers;
};

NetworkClient::Surroundings NetworkClient::systemSurroundings() {
    return {&NetworkSource::makeSource, &std::chrono::steady_clock::now, kOpenLimit};
}

NetworkClient::NetworkClient(Creator& creator, void* receiver, Surroundings surroundings)
    : m_creator(creator), m_receiver(receiver), m_surroundings(std::move(surroundings)) {
    ClientRegistry::instance().add(*this);
}

NetworkClient::~NetworkClient() { ClientRegistry::instance().remove(*this); }

std::uint32_t NetworkClient::Release() {
    const std::uint32_t left = m_references.fetch_sub(1) - 1;
    if (left == 0) {
        Shutdown();
        delete this;
    }
    return left;
}

std::uint32_t NetworkClient::Init(const char* url, const char* networkInterfaceCard) {
    if (url == nullptr || m_source) {
        KV_NET_LOG(error, url == nullptr ? "There is no URL." : "The client is open already.");
        return keClientInvalidParameter;
    }
    m_parameters.networkInterface = networkInterfaceCard == nullptr ? "" : networkInterfaceCard;
    {
        const std::lock_guard lock(m_mutex);
        m_shownUrl = withoutPassword(url);
    }
    const auto opening = std::make_shared<Opening>();
    opening->source = m_surroundings.makeSource(url);
    if (!opening->source) {
        return keClientNotSupported;
    }
    opening->parameters = m_parameters;
    opening->deadline = std::chrono::steady_clock::now() + m_surroundings.openLimit;
    opening->creator = &m_creator;
    try {
        std::thread([opening] { openAndAnnounce(opening); }).detach();
    } catch (const std::system_error& failure) {
        KV_NET_LOG(error, std::string("The client's thread cannot be started: ") + failure.what());
        return keClientOutOfMemory;
    }

    std::unique_lock lock(opening->mutex);
    const auto isOpened = [&opening] { return opening->state != Opening::State::opening; };
    if (!opening->changed.wait_until(lock, opening->deadline, isOpened)) {
        opening->source->interrupt();
        if (!opening->changed.wait_for(lock, kOpenGrace, isOpened)) {
            opening->state = Opening::State::givenUp;
            lock.unlock();
            KV_NET_LOG(error, m_shownUrl + ": there was no answer in time.");
            return keClientTimedOut;
        }
    }
    // The host's part, the announcements, takes what time it takes.
    opening->changed.wait(lock, [&opening] { return opening->state == Opening::State::done; });
    if (opening->status == keClientOk) {
        const std::lock_guard guard(m_mutex);
        m_source = std::move(opening->source); // the client's thread may end later than the client
        m_consumers = opening->consumers;
    }
    return opening->status;
}

void NetworkClient::openAndAnnounce(const std::shared_ptr<Opening>& opening) {
    const ComApartment apartment;
    ClientStatus status = keClientConnectionFailed;
    try {
        status = opening->source->open(opening->parameters, opening->deadline);
    } catch (const std::exception& failure) {
        KV_NET_LOG(error, std::string("Opening failed: ") + failure.what());
    }
    {
        const std::lock_guard lock(opening->mutex);
        if (opening->state == Opening::State::givenUp) {
            return;
        }
        opening->state = Opening::State::announcing;
        opening->changed.notify_all();
    }
    std::shared_ptr<ConsumerTable> consumers;
    if (status == keClientOk) {
        consumers = announce(*opening->source, *opening->creator);
    }
    const std::lock_guard lock(opening->mutex);
    opening->status = status;
    opening->consumers = std::move(consumers);
    opening->state = Opening::State::done;
    opening->changed.notify_all();
}

std::shared_ptr<ConsumerTable> NetworkClient::announce(const Source& source, Creator& creator) {
    auto consumers = std::make_shared<ConsumerTable>();
    for (const ElementaryStream& stream : source.streams()) {
        std::vector<std::uint8_t> config = stream.codecConfig; // the record's pointer allows writing
        _tagMCNetStreamMediaInfo info{};
        info.streamType = stream.streamType;
        info.audioChannels = stream.audioChannels;
        info.audioSamplingRate = stream.audioSamplingRate;
        info.codecConfig = config.empty() ? nullptr : config.data();
        info.codecConfigLength = static_cast<std::uint32_t>(config.size());
        info.mediaKind = stream.mediaKind;
        Consumer* consumer = nullptr;
        try {
            consumer = creator.OnCreateConsumerForNetStream(&info, nullptr, 0);
        } catch (const std::exception& failure) {
            KV_NET_LOG(error, std::string("A stream was not taken: ") + failure.what());
        } catch (...) {
            KV_NET_LOG(error, "A stream was not taken.");
        }
        consumers->emplace_back(stream.streamType, consumer);
    }
    return consumers;
}

std::uint32_t NetworkClient::Play(double start, double end, double speed) {
    if (!m_source) {
        KV_NET_LOG(error, "Play needs an open source.");
        return keClientInvalidParameter;
    }
    if (start != 0.0 || end != -1.0 || speed != 1.0) {
        KV_NET_LOG(error, "A live source plays from now on at its own speed only.");
        return keClientNotSupported;
    }
    if (m_sink) {
        return keClientOk;
    }
    auto sink = std::make_shared<ConsumerSink>(m_consumers, m_surroundings.clock);
    m_sink = sink; // before the source starts: the host may stop from inside the first callback
    {
        const std::lock_guard lock(m_mutex);
        m_playing = true;
    }
    const ClientStatus status = m_source->start(m_parameters, sink);
    if (status != keClientOk) {
        Stop();
    }
    return status;
}

std::uint32_t NetworkClient::Stop() {
    const std::shared_ptr<ConsumerSink> sink = std::exchange(m_sink, nullptr);
    if (sink) {
        m_source->stop();
        sink->close();
        const std::lock_guard lock(m_mutex);
        m_playing = false;
    }
    return keClientOk;
}

std::uint32_t NetworkClient::SetParameter(ParameterType parameterType, const void* value,
                                          std::int32_t valueSize) {
    std::uint32_t number = 0;
    bool valid = false;
    switch (parameterType) {
    case keParameterOption:
        valid = readParameter(value, valueSize, m_parameters.option);
        break;
    case keParameterLocalPort:
        valid = readParameter(value, valueSize, m_parameters.localPort);
        break;
    case keParameterInterleavedFallback:
        valid = readParameter(value, valueSize, number);
        if (valid) {
            m_parameters.interleavedFallback = number != 0;
        }
        break;
    default:
        KV_NET_LOG(error, "There is no parameter " + std::to_string(parameterType) + ".");
        return keClientNotSupported;
    }
    if (!valid) {
        KV_NET_LOG(error, "Parameter " + std::to_string(parameterType) +
                              " has no value, or one of the wrong size (" + std::to_string(valueSize) +
                              " bytes).");
    }
    return valid ? keClientOk : keClientInvalidParameter;
}

std::uint32_t NetworkClient::EnableConsumer(Consumer* consumer, std::int32_t /*first*/,
                                            const std::uint8_t* enabled, std::int32_t /*last*/) {
    if (consumer == nullptr || enabled == nullptr) {
        return keClientInvalidParameter;
    }
    if (m_consumers) {
        const auto entry =
            std::find_if(m_consumers->begin(), m_consumers->end(),
                         [consumer](const ConsumerEntry& other) { return other.consumer == consumer; });
        if (entry != m_consumers->end()) {
            entry->enabled.store(*enabled != 0, std::memory_order_release);
            return keClientOk;
        }
    }
    return keClientNotFound;
}

std::uint32_t NetworkClient::Shutdown() {
    Stop();
    std::shared_ptr<Source> source; // ends outside the lock
    const std::lock_guard lock(m_mutex);
    source = std::exchange(m_source, nullptr);
    m_consumers.reset();
    return keClientOk;
}

void NetworkClient::fillCounters(ClientCounters& counters) const {
    const std::lock_guard lock(m_mutex);
    counters = {};
    counters.size = sizeof(counters);
    counters.receiver = m_receiver;
    m_shownUrl.copy(counters.url, sizeof(counters.url) - 1);
    counters.playing = m_playing ? 1 : 0;
    if (m_source) {
        const SourceCounters& of = m_source->counters();
        counters.localPort = m_source->localPort();
        counters.packets = of.packets;
        counters.kernelDrops = of.kernelDrops;
        counters.damaged = of.damaged;
        counters.rtpLost = of.rtpLost;
        counters.rtpReordered = of.rtpReordered;
        counters.rtpDuplicates = of.rtpDuplicates;
        counters.continuityErrors = of.continuityErrors;
        counters.unbufferedBytes = of.unbuffered;
    }
    if (!m_consumers) {
        return;
    }
    const std::int64_t now = m_surroundings.clock().time_since_epoch().count();
    for (const ConsumerEntry& entry : *m_consumers) {
        if (entry.consumer == nullptr) {
            continue;
        }
        if (counters.streamCount < ClientCounters::kMaxStreams) {
            const std::int64_t lastData = entry.lastData;
            StreamCounters& stream = counters.streams[counters.streamCount];
            stream.streamType = entry.streamType;
            stream.enabled = entry.enabled ? 1 : 0;
            stream.bytes = entry.bytes;
            stream.buffers = entry.buffers;
            stream.nanosecondsSinceData =
                lastData == 0 ? kNoDataYet
                              : static_cast<std::uint64_t>(std::max<std::int64_t>(now - lastData, 0));
        }
        ++counters.streamCount;
    }
}

} // namespace KorvelVideo::NetworkSource
