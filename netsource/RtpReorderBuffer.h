#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <vector>

#include "RtpPacket.h"
#include "Source.h"

namespace KorvelVideo::NetworkSource {

// Puts the packets of one RTP stream back into order within bounds of time, packets and bytes. It owns copies
// of the packets it holds back, and nothing of the others. Time is passed in; not thread-safe. Counts in
// `rtpLost`, `rtpReordered` and `rtpDuplicates` of the counters.
//
// A packet that comes before its turn waits for the missing ones. They are given up for lost when the oldest
// waiting packet has waited for kMaxDelay, or when a packet comes that does not fit the bounds any more. A
// new synchronisation source, or two packets that follow each other far from where the stream was, begin
// anew.
class RtpReorderBuffer {
public:
    using TimePoint = std::chrono::steady_clock::time_point;
    using Emit = std::function<void(std::span<const std::uint8_t>)>;

    static constexpr std::chrono::milliseconds kMaxDelay{50};
    static constexpr std::size_t kMaxPackets = 128;
    static constexpr std::size_t kMaxBytes = 1U << 20;
    // A jump forward below this is loss, RFC 3550 A.1 (MAX_DROPOUT); a larger one needs a second packet.
    static constexpr int kMaxDropout = 3000;

    explicit RtpReorderBuffer(SourceCounters& counters) noexcept : m_counters(counters) {}

    // The usual case without a copy: true when the packet is the next one and none waits. The caller then
    // uses its payload at once.
    [[nodiscard]] bool acceptNext(std::uint16_t sequenceNumber, std::uint32_t source) noexcept {
        if (!m_started || m_held != 0 || sequenceNumber != m_next || source != m_source) {
            return false;
        }
        ++m_next;
        return true;
    }

    // Takes a packet and emits every payload whose turn has come, in order.
    void push(const RtpPacket& packet, TimePoint now, const Emit& emit);

    // Emits what has waited too long. To be called every few milliseconds.
    void expire(TimePoint now, const Emit& emit);

    // Forgets the stream; held packets are dropped.
    void reset() noexcept;

private:
    struct Slot {
        bool used = false;
        TimePoint arrival{};
        std::vector<std::uint8_t> payload;
    };

    [[nodiscard]] Slot& slotOf(std::uint16_t sequenceNumber) noexcept {
        return m_slots[sequenceNumber % kMaxPackets];
    }
    [[nodiscard]] bool isRestart(const RtpPacket& packet, int distance) noexcept;
    void restart(const RtpPacket& packet, const Emit& emit);
    void hold(const RtpPacket& packet, TimePoint now);
    void emitReady(const Emit& emit);
    void skipGap() noexcept;
    void flush(const Emit& emit);

    SourceCounters& m_counters;
    bool m_started = false;
    std::uint32_t m_source = 0;
    std::uint16_t m_next = 0;               // the sequence number whose turn it is
    std::uint16_t m_highest = 0;            // of the packets that wait
    std::uint32_t m_restartAfter = 0x10000; // a far packet's successor would begin anew; above 16 bits: none
    std::size_t m_held = 0;
    std::size_t m_heldBytes = 0;
    std::array<Slot, kMaxPackets> m_slots;
};

} // namespace KorvelVideo::NetworkSource
