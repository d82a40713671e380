#pragma once

// Turns what a demultiplexer gives for one elementary stream into what a client announces and delivers.
// Knows nothing of any demultiplexer; one object a stream, used by one thread at a time.

#include <cstdint>
#include <memory>
#include <optional>

#include "AvcFraming.h"
#include "Source.h"
#include "StampSequence.h"

namespace KorvelVideo::NetworkSource {

// One packet of a demultiplexer: a whole access unit, audio frames back to back, or, where `isFragment`, a
// part of an access unit.
struct MediaPacket {
    Bytes data;
    std::optional<std::int64_t> time; // 100 ns units
    std::int64_t duration = 0;        // 100 ns units, 0 when unknown
    bool isFragment = false;
};

class StreamTranslator {
public:
    StreamTranslator() = default;
    StreamTranslator(const StreamTranslator&) = delete;
    StreamTranslator& operator=(const StreamTranslator&) = delete;
    virtual ~StreamTranslator() = default;

    // Takes the sender's configuration of the stream; again when it changes.
    virtual void configure(Bytes configuration) = 0;
    // Takes the configuration that was announced for the stream, for a sender that does not repeat it.
    virtual void adopt(const ElementaryStream& announced) = 0;
    // Takes what a packet says of the stream's configuration.
    virtual void learn(Bytes packet) = 0;
    // Everything that the announcement needs is known.
    [[nodiscard]] virtual bool complete() const = 0;
    [[nodiscard]] virtual ElementaryStream announcement() const = 0;
    // Delivers a packet's access units to stream number `stream` of the sink. Returns how many bytes had to
    // be left out: damaged, or not taken for want of buffers.
    virtual std::size_t deliver(const MediaPacket& packet, std::size_t stream, SourceSink& sink) = 0;
    // Delivers what waits for more of its access unit. To be called when nothing comes for a while; more may
    // follow.
    virtual void flush(std::size_t /*stream*/, SourceSink& /*sink*/) {}
};

// H.264, in Annex B or length-prefixed as its configuration says.
[[nodiscard]] std::unique_ptr<StreamTranslator> makeAvcTranslator();
// AAC, raw with a configuration or in ADTS. `samplingRate` and `channels` stand where the configuration says
// nothing.
[[nodiscard]] std::unique_ptr<StreamTranslator> makeAacTranslator(std::uint32_t samplingRate,
                                                                  std::uint32_t channels);
// AAC in LOAS.
[[nodiscard]] std::unique_ptr<StreamTranslator> makeLoasTranslator();

} // namespace KorvelVideo::NetworkSource
