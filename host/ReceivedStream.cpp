#include "ReceivedStream.h"

#include "KvResultCodes.h"

namespace KorvelVideo::Host {

namespace {

template <class Buffer, class Interface>
HRESULT lend(MediaPool<Buffer>& pool, std::uint32_t size, Interface** buffer) noexcept {
    if (buffer == nullptr) {
        return KV_E_INVALID_POINTER;
    }
    *buffer = pool.lend(size);
    return *buffer != nullptr ? S_OK : KV_E_OUT_OF_MEMORY;
}

} // namespace

StreamCounts ReceivedStream::counts() const noexcept {
    StreamCounts counts;
    counts.units = m_units;
    counts.bytes = m_bytes;
    counts.timeStamp = m_timeStamp;
    if (const Clock::rep lastArrival = m_lastArrival; lastArrival != 0) {
        counts.lastArrival = Clock::time_point(Clock::duration(lastArrival));
    }
    return counts;
}

HRESULT ReceivedStream::accept(MediaBuffer& unit) noexcept {
    // Written by one thread at a time, so a load and a store make an increment.
    m_units.store(m_units.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
    m_bytes.store(m_bytes.load(std::memory_order_relaxed) + unit.bytes().size(), std::memory_order_relaxed);
    m_timeStamp.store(unit.timeStamp(), std::memory_order_relaxed);
    m_lastArrival.store(Clock::now().time_since_epoch().count(), std::memory_order_relaxed);
    if (m_file != nullptr) {
        m_writer->push(*m_file, unit);
    }
    return S_OK;
}

HRESULT ReceivedStream::acceptStatus(HRESULT status) noexcept {
    if (status == KV_S_STREAM_ACTIVE) {
        m_hasEnded = false; // RTMP: a new stream after the end of one
    } else if (status == KV_S_STREAM_ENDED) {
        m_hasEnded = true;
    } else if (status == KV_E_DISCONNECTED) {
        m_isLost = true;
    }
    m_events.push({Event::Kind::status, Clock::now(), this, status, {}});
    return S_OK;
}

HRESULT VideoStream::ProvideVideoSurface(std::uint32_t bufferSizeToAskFor, IKvSurface** surface) {
    return lend(m_pools.surfaces, bufferSizeToAskFor, surface);
}

HRESULT VideoStream::DeliverVideoSurface(IKvSurface* surface) {
    return surface != nullptr ? accept(*static_cast<Surface*>(surface)) : KV_E_INVALID_POINTER;
}

HRESULT AudioStream::ProvideAudioSamples(std::uint32_t bufferSizeToAskFor, IKvAudioSamples** samples) {
    return lend(m_pools.samples, bufferSizeToAskFor, samples);
}

HRESULT AudioStream::DeliverAudioSamples(IKvAudioSamples* samples) {
    return samples != nullptr ? accept(*static_cast<AudioSamples*>(samples)) : KV_E_INVALID_POINTER;
}

} // namespace KorvelVideo::Host
