#include "ConsumerSink.h"

#include <algorithm>
#include <exception>
#include <string>
#include <utility>

#include "NetworkLog.h"

namespace KorvelVideo::NetworkSource {

using namespace MainConcept::NetworkStreaming;

namespace {

// How often streams are looked at for silence.
constexpr std::chrono::milliseconds kSilenceLook{100};

// Calls the consumer. What it throws ends here: a consumer's failure must not end reception.
template <class Call>
bool guard(const char* operation, const Call& call) noexcept {
    try {
        call();
        return true;
    } catch (const std::exception& failure) {
        KV_NET_LOG(error, std::string(operation) + " of a consumer failed: " + failure.what());
    } catch (...) {
        KV_NET_LOG(error, std::string(operation) + " of a consumer failed.");
    }
    return false;
}

} // namespace

ConsumerSink::ConsumerSink(std::shared_ptr<ConsumerTable> consumers, Clock clock)
    : m_consumers(std::move(consumers)), m_clock(clock) {
    for (ConsumerEntry& entry : *m_consumers) {
        m_streams.push_back({&entry, {}});
    }
}

void ConsumerSink::close() noexcept {
    m_gate.close([] { KV_NET_LOG(error, kHostIsBusy); });
}

ConsumerEntry* ConsumerSink::takerOf(std::size_t stream) const noexcept {
    if (stream >= m_streams.size()) {
        return nullptr;
    }
    ConsumerEntry* const entry = m_streams[stream].entry;
    return entry->consumer != nullptr && entry->enabled.load(std::memory_order_acquire) ? entry : nullptr;
}

namespace {

std::span<std::uint8_t> lendBuffer(IMediaConsumer& consumer) noexcept {
    _tagConsumerInfo info{};
    const bool returned = guard("GetBuffer", [&] { consumer.GetBuffer(&info); });
    if (!returned || info.buffer == nullptr) {
        return {};
    }
    return {info.buffer + info.dataOffset,
            info.capacity > info.dataOffset ? info.capacity - info.dataOffset : 0};
}

} // namespace

std::span<std::uint8_t> ConsumerSink::borrow(std::size_t stream) {
    const CallGate::Pass pass(m_gate);
    ConsumerEntry* const entry = takerOf(stream);
    return pass && entry != nullptr ? lendBuffer(*entry->consumer) : std::span<std::uint8_t>{};
}

void ConsumerSink::deliver(std::size_t stream, std::uint8_t* buffer, std::uint32_t length,
                           std::uint64_t timeStamp) {
    const CallGate::Pass pass(m_gate);
    if (!pass || stream >= m_streams.size()) {
        return;
    }
    // A consumer that was disabled meanwhile still gets its buffer back.
    tellActivity(m_streams[stream]);
    hand(*m_streams[stream].entry, buffer, length, timeStamp, false);
}

void ConsumerSink::giveBack(std::size_t stream, std::uint8_t* buffer) {
    const CallGate::Pass pass(m_gate);
    if (pass && stream < m_streams.size()) {
        hand(*m_streams[stream].entry, buffer, 0, 0, true);
    }
}

bool ConsumerSink::deliverCopy(std::size_t stream, std::span<const std::span<const std::uint8_t>> pieces,
                               std::uint64_t timeStamp) {
    const CallGate::Pass pass(m_gate);
    ConsumerEntry* const entry = takerOf(stream);
    if (!pass || entry == nullptr) {
        return true;
    }
    m_unit.clear();
    bool complete = true;
    for (std::span<const std::uint8_t> piece : pieces) {
        while (!piece.empty() && complete) {
            if (m_unit.empty() || m_unit.back().length == m_unit.back().memory.size()) {
                const std::span<std::uint8_t> memory = lendBuffer(*entry->consumer);
                complete = !memory.empty();
                if (complete) {
                    m_unit.push_back({memory, 0});
                }
                continue;
            }
            LentBuffer& to = m_unit.back();
            const std::size_t length = std::min(piece.size(), to.memory.size() - to.length);
            std::copy_n(piece.begin(), length, to.memory.begin() + to.length);
            to.length += static_cast<std::uint32_t>(length);
            piece = piece.subspan(length);
        }
    }
    if (complete && !m_unit.empty()) {
        tellActivity(m_streams[stream]);
    }
    // After a stop from inside one of these calls the rest is left to the consumer's allocator to end.
    for (const LentBuffer& lent : m_unit) {
        hand(*entry, lent.memory.data(), lent.length, timeStamp, !complete);
    }
    return complete;
}

void ConsumerSink::hand(ConsumerEntry& entry, std::uint8_t* buffer, std::uint32_t length,
                        std::uint64_t timeStamp, bool discard) noexcept {
    if (m_gate.isClosed()) {
        return;
    }
    _tagConsumerInfo info{};
    info.sampleValid = 1;
    info.buffer = buffer;
    info.dataLength = length;
    info.timeStamp = timeStamp;
    info.streamType = entry.streamType;
    info.discard = discard ? 1 : 0;
    if (!discard) {
        entry.bytes.add(length);
        entry.buffers.add(1);
    }
    guard("OnData", [&] { entry.consumer->OnData(&info); });
}

void ConsumerSink::notify(ConsumerEntry& entry, _tagNetSourceNotifyType type) noexcept {
    if (!m_gate.isClosed()) {
        guard("OnNotify", [&] { entry.consumer->OnNotify(type, nullptr); });
    }
}

void ConsumerSink::tellActivity(Stream& stream) {
    const Source::TimePoint now = m_clock();
    stream.entry->lastData.store(now.time_since_epoch().count(), std::memory_order_relaxed);
    if (stream.rule.dataCame(now)) {
        notify(*stream.entry, keNotifyActivity);
        stream.rule.activityTold(m_clock());
    }
    lookForSilence(now);
}

void ConsumerSink::lookForSilence(Source::TimePoint now) {
    if (now - m_silenceLooked < kSilenceLook) {
        return;
    }
    m_silenceLooked = now;
    for (Stream& stream : m_streams) {
        if (stream.rule.silenceBegan(now)) {
            notify(*stream.entry, keNotifySilence);
        }
    }
}

void ConsumerSink::idle() {
    if (const CallGate::Pass pass(m_gate); pass) {
        lookForSilence(m_clock());
    }
}

void ConsumerSink::end(SourceEnd reason) {
    const CallGate::Pass pass(m_gate);
    if (!pass) {
        return;
    }
    for (std::size_t stream = 0; stream < m_streams.size(); ++stream) {
        if (ConsumerEntry* const entry = takerOf(stream)) {
            notify(*entry, reason == SourceEnd::endOfStream ? keNotifyEndOfStream : keNotifyDisconnected);
        }
    }
}

} // namespace KorvelVideo::NetworkSource
