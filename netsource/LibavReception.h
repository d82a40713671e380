#pragma once

// One opened input with the translators of its streams. One thread at a time; may be handed from thread to
// thread.

#include <deque>
#include <memory>
#include <optional>
#include <vector>

#include "LibavInput.h"
#include "StreamTranslator.h"

namespace KorvelVideo::NetworkSource {

class LibavReception {
public:
    [[nodiscard]] LibavInput& input() noexcept { return m_input; }

    // Reads until the configuration of every stream is known, or to `deadline` (which may have passed: then
    // nothing is read); what was read is kept for `receive`. keClientOk when there is something to
    // announce, else what is wrong, with the words in `failure()`.
    [[nodiscard]] ClientStatus describe(LibavInput::TimePoint deadline, const LibavInput::StopTest& stop);
    [[nodiscard]] const std::string& failure() const noexcept { return m_failure; }
    // No more needs to be read before the streams can be announced.
    [[nodiscard]] bool complete() const;
    // There is no H.264 and no AAC, and none can come.
    [[nodiscard]] bool nothingToReceive() const;
    // The streams that are received, in the demuxer's order. Logs those that are left out.
    [[nodiscard]] std::vector<ElementaryStream> announcements();
    // Of the sender, received or not.
    [[nodiscard]] std::size_t streamCount() const noexcept { return m_streams.size(); }
    [[nodiscard]] bool gotPackets() const noexcept { return m_gotPackets; }

    // Ties the demuxer's streams to the announced ones, each to the first free one of its type.
    void attach(const std::vector<ElementaryStream>& announced);
    // Delivers one packet; what it returns ended the reading when it is not `packet`.
    [[nodiscard]] LibavInput::ReadResult receive(SourceSink& sink, SourceCounters& counters,
                                                 const LibavInput::StopTest& stop);

    // Delivers what waits for more of its access unit. To be called when nothing is received for a
    // while; more may follow.
    void flush(SourceSink& sink);

private:
    struct Stream {
        std::unique_ptr<StreamTranslator> translator; // null: left out, or not known yet
        int codec;                                    // libavformat's number
        std::optional<std::size_t> announced;
        bool inContainer; // knows access units and decoding times; RTP does not
        CounterUnwrapper time;
    };

    void takeNewStreams();
    [[nodiscard]] bool mayFindMore() const;
    [[nodiscard]] ClientStatus described(LibavInput::ReadResult result, bool stopped);
    void attachNewStreams();
    [[nodiscard]] MediaPacket mediaPacket(const AVPacket& packet);
    [[nodiscard]] AvPacketPtr newPacket() const;
    void deliver(const AVPacket& packet, SourceSink& sink, SourceCounters& counters);

    LibavInput m_input;
    std::vector<Stream> m_streams;
    std::vector<ElementaryStream> m_announced;
    std::vector<bool> m_taken;
    std::deque<AvPacketPtr> m_kept;
    AvPacketPtr m_packet;
    std::string m_failure;
    bool m_gotPackets = false;
    std::uint64_t m_missedCounted = 0;
};

} // namespace KorvelVideo::NetworkSource
