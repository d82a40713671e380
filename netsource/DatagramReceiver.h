#pragma once

#include "ContinuityCheck.h"
#include "DatagramAddress.h"
#include "ReceivePool.h"
#include "RtpReorderBuffer.h"
#include "Source.h"

namespace KorvelVideo::NetworkSource {

// One round of delivery from a datagram socket: takes the datagrams from the socket straight into buffers of
// the sink. Usually all datagrams of a stream have one size; that size is learned, so that they come to lie
// one after another without a copy. Datagrams of another size, and RTP packets out of order, are copied
// together.
class DatagramReceiver final : public ReceivePool::Receiver {
public:
    // `counters` belongs to `owner`.
    DatagramReceiver(DatagramAddress::Framing framing, DatagramSocket socket,
                     std::shared_ptr<SourceSink> sink, std::shared_ptr<Source> owner,
                     SourceCounters& counters);

    std::size_t receive(DatagramBatch& batch, Source::TimePoint now) override;
    [[nodiscard]] DatagramSocket& socket() noexcept override { return m_socket; }

    // Ends the round, after the pool has let go of it or from inside one of its calls to the sink: gives the
    // lent buffer back and closes the socket.
    void finish() noexcept;

private:
    [[nodiscard]] bool receiveBatch(DatagramBatch& batch, std::size_t& bytes);
    [[nodiscard]] bool borrow();
    [[nodiscard]] std::size_t countInPlace(const DatagramBatch& batch, std::size_t slotSize,
                                           std::size_t count);
    void putTogether(DatagramBatch& batch, std::size_t slotSize, std::size_t first, std::size_t count);
    void takeDatagram(std::span<const std::uint8_t> datagram);
    void append(std::span<const std::uint8_t> payload);
    void deliverAppended();
    void learnSize(std::size_t longest, std::size_t count) noexcept;
    void countDrops() noexcept;

    // What each round needs comes first and lies close together: with many streams it has to be fetched from
    // memory each time.
    const DatagramAddress::Framing m_framing;
    const std::size_t m_headerSize;
    DatagramSocket m_socket;
    const std::shared_ptr<SourceSink> m_sink;
    SourceCounters& m_counters;
    bool m_finished = false;
    std::uint64_t m_countedDrops;
    Source::TimePoint m_dropsCounted{};
    Source::TimePoint m_now{}; // of the call in progress

    std::span<std::uint8_t> m_buffer;                      // lent by the sink
    std::size_t m_appended = 0;                            // bytes of it that are filled by append
    std::size_t m_slotSize;                                // the size of a datagram's payload
    std::size_t m_expected = DatagramBatch::kMaxDatagrams; // how many to make ready for
    std::size_t m_longest = 0;                             // of the last m_learned datagrams
    std::size_t m_learned = 0;
    Source::TimePoint m_borrowAgain{};

    const std::shared_ptr<Source> m_owner;
    const RtpReorderBuffer::Emit m_emit;
    RtpReorderBuffer m_reorder;
    ContinuityCheck m_continuity;
};

} // namespace KorvelVideo::NetworkSource
