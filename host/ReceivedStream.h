#pragma once

// One announced stream: its sink towards the module, what has come, and where it goes.

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>

#include "EventQueue.h"
#include "MediaPool.h"
#include "OutputWriter.h"
#include "StreamDescription.h"

namespace KorvelVideo::Host {

// What has come so far.
struct StreamCounts {
    std::uint64_t units = 0;
    std::uint64_t bytes = 0;
    std::uint64_t timeStamp = 0; // of the last unit, 100 ns units
    std::optional<Clock::time_point> lastArrival;
};

// The sinks are called on the module's threads, one call at a time for each stream; everything else may be
// called from any thread. Sinks must outlive the receiver, and the pools the last of their buffers, so the
// order of ends is: receiver, stream and OutputWriter::close, pools.
class ReceivedStream {
public:
    ReceivedStream(std::uint32_t number, std::uint32_t source, const StreamDescription& description,
                   EventQueue& events, MediaPools& pools, OutputWriter* writer)
        : m_pools(pools), m_number(number), m_source(source), m_description(description), m_events(events),
          m_writer(writer) {}
    ReceivedStream(const ReceivedStream&) = delete;
    ReceivedStream& operator=(const ReceivedStream&) = delete;
    virtual ~ReceivedStream() = default;

    [[nodiscard]] std::uint32_t number() const noexcept { return m_number; } // from 1, of the whole run
    [[nodiscard]] std::uint32_t source() const noexcept { return m_source; } // from 1, as on the command line
    [[nodiscard]] const StreamDescription& description() const noexcept { return m_description; }
    [[nodiscard]] StreamCounts counts() const noexcept;
    [[nodiscard]] bool hasEnded() const noexcept { return m_hasEnded; }
    [[nodiscard]] bool isLost() const noexcept { return m_isLost; }
    // A redirect has put other streams in this one's place.
    [[nodiscard]] bool isRetired() const noexcept { return m_isRetired; }
    void retire() noexcept { m_isRetired = true; }

    // Null when nothing is written. Set before the first access unit, never changed.
    [[nodiscard]] OutputFile* file() const noexcept { return m_file; }
    void setFile(OutputFile* file) noexcept { m_file = file; }

protected:
    HRESULT accept(MediaBuffer& unit) noexcept;
    HRESULT acceptStatus(HRESULT status) noexcept;

    MediaPools& m_pools;

private:
    const std::uint32_t m_number;
    const std::uint32_t m_source;
    const StreamDescription m_description;
    EventQueue& m_events;
    OutputWriter* const m_writer;
    OutputFile* m_file = nullptr;
    std::atomic<std::uint64_t> m_units{0};
    std::atomic<std::uint64_t> m_bytes{0};
    std::atomic<std::uint64_t> m_timeStamp{0};
    std::atomic<Clock::rep> m_lastArrival{0};
    std::atomic<bool> m_hasEnded{false};
    std::atomic<bool> m_isLost{false};
    std::atomic<bool> m_isRetired{false};
};

// The sink of an H.264 or transport stream.
class VideoStream final : public ReceivedStream, public UncountedObject<IKvVideoCallback> {
public:
    using ReceivedStream::ReceivedStream;

    HRESULT ProvideVideoSurface(std::uint32_t bufferSizeToAskFor, IKvSurface** surface) override;
    HRESULT DeliverVideoSurface(IKvSurface* surface) override;
    HRESULT NotifyStatus(HRESULT status) override { return acceptStatus(status); }
};

// The sink of an AAC stream.
class AudioStream final : public ReceivedStream, public UncountedObject<IKvAudioCallback> {
public:
    using ReceivedStream::ReceivedStream;

    HRESULT ProvideAudioSamples(std::uint32_t bufferSizeToAskFor, IKvAudioSamples** samples) override;
    HRESULT DeliverAudioSamples(IKvAudioSamples* samples) override;
    HRESULT NotifyStatus(HRESULT status) override { return acceptStatus(status); }
};

} // namespace KorvelVideo::Host
