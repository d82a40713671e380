#include "RtpReorderBuffer.h"

namespace KorvelVideo::NetworkSource {

namespace {

constexpr std::uint32_t kNoRestart = 0x10000;

// How far `to` lies after `from`, -32768 to 32767.
int distanceOf(std::uint16_t from, std::uint16_t to) noexcept {
    return static_cast<std::int16_t>(static_cast<std::uint16_t>(to - from));
}

} // namespace

void RtpReorderBuffer::reset() noexcept {
    for (Slot& slot : m_slots) {
        slot.used = false;
    }
    m_held = 0;
    m_heldBytes = 0;
    m_started = false;
    m_restartAfter = kNoRestart;
}

// True when the packet begins the stream anew: the first one, another sender, or the second of two that
// follow each other far away.
bool RtpReorderBuffer::isRestart(const RtpPacket& packet, int distance) noexcept {
    if (!m_started || packet.synchronisationSource != m_source) {
        return true;
    }
    const bool isFar = distance >= kMaxDropout || distance < -static_cast<int>(kMaxPackets);
    if (!isFar) {
        m_restartAfter = kNoRestart;
        return false;
    }
    if (packet.sequenceNumber == m_restartAfter) {
        return true;
    }
    m_restartAfter = static_cast<std::uint16_t>(packet.sequenceNumber + 1);
    return false;
}

void RtpReorderBuffer::restart(const RtpPacket& packet, const Emit& emit) {
    flush(emit);
    m_started = true;
    m_source = packet.synchronisationSource;
    m_next = static_cast<std::uint16_t>(packet.sequenceNumber + 1);
    m_restartAfter = kNoRestart;
    emit(packet.payload);
}

void RtpReorderBuffer::push(const RtpPacket& packet, TimePoint now, const Emit& emit) {
    int distance = distanceOf(m_next, packet.sequenceNumber);
    if (isRestart(packet, distance)) {
        restart(packet, emit);
        return;
    }
    if (distance < 0 || distance >= kMaxDropout) {
        m_counters.rtpDuplicates.add(1);
        return;
    }
    while (m_held != 0 && (distance >= static_cast<int>(kMaxPackets) ||
                           (distance > 0 && m_heldBytes + packet.payload.size() > kMaxBytes))) {
        skipGap();
        emitReady(emit);
        distance = distanceOf(m_next, packet.sequenceNumber);
        if (distance < 0) { // emitted meanwhile: it had come before
            m_counters.rtpDuplicates.add(1);
            return;
        }
    }
    if (distance >= static_cast<int>(kMaxPackets)) { // nothing waits: the gap is too long to wait for
        m_counters.rtpLost.add(static_cast<std::uint64_t>(distance));
        m_next = packet.sequenceNumber;
        distance = 0;
    }
    if (distance > 0) {
        hold(packet, now);
        return;
    }
    if (m_held != 0) {
        m_counters.rtpReordered.add(1);
    }
    ++m_next;
    emit(packet.payload);
    emitReady(emit);
}

void RtpReorderBuffer::hold(const RtpPacket& packet, TimePoint now) {
    Slot& slot = slotOf(packet.sequenceNumber);
    if (slot.used) {
        m_counters.rtpDuplicates.add(1);
        return;
    }
    if (m_held != 0 && distanceOf(m_highest, packet.sequenceNumber) < 0) {
        m_counters.rtpReordered.add(1);
    } else {
        m_highest = packet.sequenceNumber;
    }
    slot.used = true;
    slot.arrival = now;
    slot.payload.assign(packet.payload.begin(), packet.payload.end());
    ++m_held;
    m_heldBytes += packet.payload.size();
}

void RtpReorderBuffer::emitReady(const Emit& emit) {
    while (m_held != 0 && slotOf(m_next).used) {
        Slot& slot = slotOf(m_next);
        slot.used = false;
        --m_held;
        m_heldBytes -= slot.payload.size();
        ++m_next;
        emit(slot.payload);
    }
}

// Gives the packets before the first waiting one up for lost.
void RtpReorderBuffer::skipGap() noexcept {
    std::uint64_t lost = 0;
    while (!slotOf(m_next).used) {
        ++m_next;
        ++lost;
    }
    m_counters.rtpLost.add(lost);
}

void RtpReorderBuffer::flush(const Emit& emit) {
    while (m_held != 0) {
        skipGap();
        emitReady(emit);
    }
}

void RtpReorderBuffer::expire(TimePoint now, const Emit& emit) {
    while (m_held != 0) {
        TimePoint oldest = TimePoint::max();
        for (const Slot& slot : m_slots) {
            if (slot.used && slot.arrival < oldest) {
                oldest = slot.arrival;
            }
        }
        if (now - oldest < kMaxDelay) {
            return;
        }
        skipGap();
        emitReady(emit);
    }
}

} // namespace KorvelVideo::NetworkSource
