#include "DatagramReceiver.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

#include "NetworkLog.h"

namespace KorvelVideo::NetworkSource {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kUsualPayloadSize = 7 * kTransportPacketSize;
constexpr std::size_t kDatagramsToLearnFrom = 256;
// Making ready for many costs more than asking again when more came than expected.
constexpr std::size_t kFewestExpected = 8;
// Of one receiver in one round, so that none keeps the others waiting.
constexpr std::size_t kBatchesPerRound = 64;
// A sink without buffers is asked again after this time.
constexpr std::chrono::milliseconds kBorrowPause{50};

std::uint64_t timeStampOf(Clock::time_point time) noexcept {
    using Unit = std::chrono::duration<std::uint64_t, std::ratio<1, 10'000'000>>;
    return std::chrono::duration_cast<Unit>(time.time_since_epoch()).count();
}

} // namespace

DatagramReceiver::DatagramReceiver(DatagramAddress::Framing framing, DatagramSocket socket,
                                   std::shared_ptr<SourceSink> sink, std::shared_ptr<Source> owner,
                                   SourceCounters& counters)
    : m_framing(framing), m_headerSize(framing == DatagramAddress::Framing::rtp ? kRtpFixedHeaderSize : 0),
      m_socket(std::move(socket)), m_sink(std::move(sink)), m_counters(counters),
      m_countedDrops(m_socket.drops()), m_slotSize(kUsualPayloadSize), m_owner(std::move(owner)),
      m_emit([this](std::span<const std::uint8_t> payload) { append(payload); }), m_reorder(counters) {}

std::size_t DatagramReceiver::receive(DatagramBatch& batch, Source::TimePoint now) {
    m_now = now;
    std::size_t bytes = 0;
    for (std::size_t batches = 0; batches < kBatchesPerRound; ++batches) {
        const bool drained = !receiveBatch(batch, bytes);
        if (m_finished) {
            return bytes;
        }
        if (drained) {
            break;
        }
    }
    if (m_framing == DatagramAddress::Framing::rtp) {
        m_reorder.expire(m_now, m_emit);
        deliverAppended();
    }
    if (bytes == 0 && !m_finished) {
        m_sink->idle();
    }
    if (!m_finished && m_now - m_dropsCounted >= ReceivePool::kIdleInterval) {
        countDrops();
    }
    return bytes;
}

// Reads one batch; false when the socket has no more.
bool DatagramReceiver::receiveBatch(DatagramBatch& batch, std::size_t& bytes) {
    const bool lent = borrow();
    const std::size_t slotSize = lent ? std::min(m_slotSize, m_buffer.size()) : m_slotSize;
    const std::size_t wanted = lent ? std::min(m_buffer.size() / slotSize, m_expected) : m_expected;
    std::uint8_t* const target = lent ? m_buffer.data() : batch.scratch();
    const std::size_t count = batch.receive(m_socket, target, m_headerSize, slotSize, wanted);
    m_expected = count == wanted ? DatagramBatch::kMaxDatagrams
                                 : std::clamp(2 * count, kFewestExpected, DatagramBatch::kMaxDatagrams);
    if (count == 0) {
        return false;
    }
    std::size_t batchBytes = 0;
    std::size_t longest = 0;
    for (std::size_t index = 0; index < count; ++index) {
        const std::size_t length = batch.length(index);
        batchBytes += length;
        longest = std::max(longest, length);
    }
    bytes += batchBytes;
    m_counters.packets.add(count);
    if (!lent) {
        m_counters.unbuffered.add(batchBytes);
        m_reorder.reset();
        return count == wanted;
    }
    const std::size_t inPlace = countInPlace(batch, slotSize, count);
    m_appended = inPlace * slotSize;
    if (inPlace != count) {
        putTogether(batch, slotSize, inPlace, count);
    }
    deliverAppended();
    learnSize(longest, count);
    return count == wanted;
}

bool DatagramReceiver::borrow() {
    if (m_buffer.empty() && m_now >= m_borrowAgain) {
        m_buffer = m_sink->borrow(0);
        m_appended = 0;
        if (m_buffer.empty()) {
            m_borrowAgain = m_now + kBorrowPause;
        }
    }
    return !m_buffer.empty();
}

// How many datagrams from the first on lie where they belong already.
std::size_t DatagramReceiver::countInPlace(const DatagramBatch& batch, std::size_t slotSize,
                                           std::size_t count) {
    for (std::size_t index = 0; index < count; ++index) {
        if (batch.length(index) != m_headerSize + slotSize) {
            return index;
        }
        if (m_framing == DatagramAddress::Framing::rtp) {
            const auto header = batch.header(index).first<kRtpFixedHeaderSize>();
            const auto packet = parseRtpPacket(header, {});
            const bool isPlain = (header[0] & 0x3F) == 0; // no padding, extension or contributing source
            if (!isPlain || !packet || packet->payloadType != kRtpPayloadTypeTransportStream ||
                !m_reorder.acceptNext(packet->sequenceNumber, packet->synchronisationSource)) {
                return index;
            }
        }
    }
    return count;
}

// Takes the datagrams from `first` on out of the way and appends them one by one.
void DatagramReceiver::putTogether(DatagramBatch& batch, std::size_t slotSize, std::size_t first,
                                   std::size_t count) {
    std::array<std::span<const std::uint8_t>, DatagramBatch::kMaxDatagrams> datagrams;
    std::uint8_t* to = batch.scratch();
    for (std::size_t index = first; index < count; ++index) {
        const std::size_t length = batch.length(index);
        const std::size_t headerLength = std::min(length, m_headerSize);
        const std::size_t slotLength = std::min(length - headerLength, slotSize);
        const std::span<const std::uint8_t> overflow = batch.overflow(index);
        datagrams[index] = {to, length};
        to = std::copy_n(batch.header(index).begin(), headerLength, to);
        to = std::copy_n(m_buffer.data() + index * slotSize, slotLength, to);
        to = std::copy(overflow.begin(), overflow.end(), to);
    }
    for (std::size_t index = first; index < count && !m_finished; ++index) {
        takeDatagram(datagrams[index]);
    }
}

void DatagramReceiver::takeDatagram(std::span<const std::uint8_t> datagram) {
    if (m_framing == DatagramAddress::Framing::transportStream) {
        append(datagram);
        return;
    }
    std::optional<RtpPacket> packet;
    if (datagram.size() >= kRtpFixedHeaderSize) {
        packet = parseRtpPacket(datagram.first<kRtpFixedHeaderSize>(), datagram.subspan(kRtpFixedHeaderSize));
    }
    if (!packet || packet->payloadType != kRtpPayloadTypeTransportStream) {
        m_counters.damaged.add(1);
        return;
    }
    m_reorder.push(*packet, m_now, m_emit);
}

void DatagramReceiver::append(std::span<const std::uint8_t> payload) {
    while (!payload.empty() && !m_finished) {
        if (!borrow()) {
            m_counters.unbuffered.add(payload.size());
            return;
        }
        const std::size_t room = m_buffer.size() - m_appended;
        if (payload.size() > room && m_appended != 0) { // a payload is split only when no buffer can hold it
            deliverAppended();
            continue;
        }
        const std::size_t length = std::min(payload.size(), room);
        std::copy_n(payload.begin(), length, m_buffer.begin() + static_cast<std::ptrdiff_t>(m_appended));
        m_appended += length;
        payload = payload.subspan(length);
    }
}

void DatagramReceiver::deliverAppended() {
    const std::size_t length = std::exchange(m_appended, 0);
    if (length == 0 || m_finished) {
        return;
    }
    const std::span<std::uint8_t> buffer = std::exchange(m_buffer, {});
    const std::uint64_t errors = m_continuity.check(buffer.first(length));
    if (errors != 0) {
        m_counters.continuityErrors.add(errors);
    }
    m_sink->deliver(0, buffer.data(), static_cast<std::uint32_t>(length), timeStampOf(m_now));
}

// A longer datagram is believed at once; a size that no datagram of many has is given up.
void DatagramReceiver::learnSize(std::size_t longest, std::size_t count) noexcept {
    m_longest = std::max(m_longest, longest);
    m_learned += count;
    const std::size_t size = std::max(m_longest, m_headerSize + kTransportPacketSize) - m_headerSize;
    if (size > m_slotSize || m_learned >= kDatagramsToLearnFrom) {
        m_slotSize = size;
        m_longest = 0;
        m_learned = 0;
    }
}

void DatagramReceiver::countDrops() noexcept {
    const std::uint64_t drops = m_socket.drops();
    if (drops != m_countedDrops && m_counters.kernelDrops == 0) {
        KV_NET_LOG(questionable, "The system dropped " + std::to_string(drops - m_countedDrops) +
                                     " datagrams: the socket buffer of " +
                                     std::to_string(m_socket.receiveBufferSize()) + " bytes was full.");
    }
    m_counters.kernelDrops.add(drops - m_countedDrops);
    m_countedDrops = drops;
    m_dropsCounted = m_now;
}

void DatagramReceiver::finish() noexcept {
    m_finished = true;
    countDrops();
    m_socket.close();
    if (const std::span<std::uint8_t> buffer = std::exchange(m_buffer, {}); !buffer.empty()) {
        m_sink->giveBack(0, buffer.data());
    }
}

} // namespace KorvelVideo::NetworkSource
