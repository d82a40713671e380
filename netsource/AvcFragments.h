#pragma once

// H.264 as RTP brings it: pieces of an access unit, each a run of NAL units in Annex B, or the continuation
// of the last one. They go into lent buffers as they come, so that no access unit waits for its end.

#include <cstdint>
#include <optional>

#include "AvcFraming.h"
#include "Source.h"
#include "StampSequence.h"

namespace KorvelVideo::NetworkSource {

class AvcFragmentWriter {
public:
    // Copies the fragment into lent buffers of stream number `stream`. The first of an access unit is handed
    // on at once, which completes the access unit before it; the rest when a buffer is full or the next
    // access unit begins. Returns the bytes that were left out for want of buffers.
    std::size_t write(Bytes fragment, std::optional<std::int64_t> time, ParameterSets& sets,
                      std::size_t stream, SourceSink& sink);
    // Hands on what waits. To be called when nothing comes for a while; more of the access unit may follow.
    void flush(std::size_t stream, SourceSink& sink);

private:
    [[nodiscard]] bool beginsAccessUnit(Bytes fragment, std::optional<std::int64_t> time) const;
    void writeNal(Bytes nal, ParameterSets& sets);
    void writeMissing(const ParameterSets::ById& known, const std::bitset<256>& inBand);
    void copy(Bytes bytes);
    void handOn();

    StampSequence m_stamps;
    std::optional<std::int64_t> m_time; // of the current access unit
    std::uint64_t m_timeStamp = 0;
    bool m_hasSlice = false;
    bool m_hasSets = false; // those that an IDR picture needs are in
    std::bitset<256> m_sequenceSets;
    std::bitset<256> m_pictureSets;
    std::vector<Bytes> m_nals;

    // The lent buffer being filled; empty when there is none.
    std::span<std::uint8_t> m_buffer;
    std::size_t m_filled = 0;
    std::size_t m_leftOut = 0;
    SourceSink* m_sink = nullptr; // during a call
    std::size_t m_stream = 0;
};

} // namespace KorvelVideo::NetworkSource
