#pragma once

// What a network client reads from: one opened address that gives one or more elementary streams.
//
// Life: open once, then any number of start/stop rounds, then the end of the object. Sources are held by
// std::shared_ptr, because a thread that serves one may outlive the client for a moment (a host may stop and
// release a receiver from inside its own callback, and name resolution cannot be interrupted).

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "Counter.h"
#include "StreamingSdk.h"

namespace KorvelVideo::NetworkSource {

using MainConcept::NetworkStreaming::ClientStatus;

// One elementary stream as the client announces it.
struct ElementaryStream {
    std::uint32_t streamType = 0;        // StreamTypeCode
    std::uint32_t mediaKind = 0;         // MediaKind
    std::uint32_t audioSamplingRate = 0; // Hz; 0 for video
    std::uint32_t audioChannels = 0;     // 0 for video
    // H.264: start code and sequence parameter set first, then further NAL units. AAC: AudioSpecificConfig.
    std::vector<std::uint8_t> codecConfig;
};

// What the host asked for besides the address.
struct SourceParameters {
    std::string networkInterface;     // name or local address; empty leaves the choice to the system
    std::uint16_t localPort = 0;      // local receive port, 0 leaves the choice to the source
    std::uint32_t option = 0;         // option of the protocol, kept
    bool interleavedFallback = false; // RTSP: fall back from UDP to interleaved TCP
};

// What a source loses or mends, counted where it happens. Written by the source, read from any thread.
struct SourceCounters {
    Counter packets;          // datagrams, or packets of a demuxer
    Counter kernelDrops;      // datagrams the system dropped: socket buffer full
    Counter damaged;          // datagrams or packets left out because they are malformed
    Counter rtpLost;          // sequence numbers that never came
    Counter rtpReordered;     // packets put back into order
    Counter rtpDuplicates;    // packets dropped because they had come before, or too late
    Counter continuityErrors; // transport stream continuity counter jumps
    Counter unbuffered;       // bytes left out because the consumer lent no buffer
};

enum class SourceEnd {
    disconnected, // the connection was lost
    endOfStream,  // the sender ended the stream
};

// Where a started source puts its data. The client implements it over the consumers. All operations are
// called on the source's delivering thread, one at a time for one source, and with no lock held: each may
// call the host, which may block, or stop and release the receiver. Once the client has stopped, every
// operation does nothing, so a thread that was left behind is harmless. Streams are numbered as in
// Source::streams().
class SourceSink {
public:
    virtual ~SourceSink() = default;

    // Lends an empty buffer of the stream's consumer; empty when the stream is not taken or no buffer is
    // left. Each lent buffer goes back by exactly one `deliver` or `giveBack`, at the latest in Source::stop.
    [[nodiscard]] virtual std::span<std::uint8_t> borrow(std::size_t stream) = 0;
    // Hands a lent buffer on with its first `length` bytes filled. `timeStamp` is in units of 100 ns.
    virtual void deliver(std::size_t stream, std::uint8_t* buffer, std::uint32_t length,
                         std::uint64_t timeStamp) = 0;
    virtual void giveBack(std::size_t stream, std::uint8_t* buffer) = 0;

    // Copies one access unit, given in pieces, into as many buffers as it needs and delivers them with one
    // time stamp. Without enough buffers nothing is delivered and the result is false. A stream that is not
    // taken gives true.
    virtual bool deliverCopy(std::size_t stream, std::span<const std::span<const std::uint8_t>> pieces,
                             std::uint64_t timeStamp) = 0;

    // To be called at least twice a second while nothing is delivered: it is what notices silence.
    virtual void idle() = 0;
    // The last call of a round: no more data will come.
    virtual void end(SourceEnd reason) = 0;
};

class Source {
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    Source() = default;
    Source(const Source&) = delete;
    Source& operator=(const Source&) = delete;
    virtual ~Source() = default;

    // Checks and opens the address and finds out the elementary streams. Runs on the client's own thread,
    // once. Blocks no longer than to `deadline`, or to shortly after `interrupt`. On failure it writes one
    // log line that names what is wrong. Asks the sender for no media (see start).
    [[nodiscard]] virtual ClientStatus open(const SourceParameters& parameters, TimePoint deadline) = 0;

    // Valid and unchanging once `open` has returned keClientOk.
    [[nodiscard]] virtual const std::vector<ElementaryStream>& streams() const noexcept = 0;

    // Asks the sender for media and begins delivery to `sink` on a thread of the source's. Returns without
    // waiting for data. `parameters` may differ from those of `open`. What fails later is told by
    // SourceSink::end.
    [[nodiscard]] virtual ClientStatus start(const SourceParameters& parameters,
                                             std::shared_ptr<SourceSink> sink) = 0;

    // Ends delivery; does nothing when not started. Any thread, also the delivering one from inside a sink
    // call. When it returns, no lent buffer is held any more. It takes at most 200 ms, and waits besides for
    // a sink call in progress on another thread.
    virtual void stop() noexcept = 0;

    // Makes an `open` in progress on another thread return soon. Any thread.
    virtual void interrupt() noexcept = 0;

    [[nodiscard]] const SourceCounters& counters() const noexcept { return m_counters; }
    // The local port of a source that has one; 0 else, and before `open`. Any thread.
    [[nodiscard]] virtual std::uint16_t localPort() const noexcept { return 0; }

protected:
    SourceCounters m_counters;
};

} // namespace KorvelVideo::NetworkSource
