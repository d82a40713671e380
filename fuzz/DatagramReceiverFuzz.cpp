// Putting datagrams together in lent buffers: of any sizes in any batches, plain or in RTP, with a sink that
// sometimes has no buffer. The system's side of a socket is played here: this file's operations of
// DatagramSocket and DatagramBatch come before those of the library.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "DatagramReceiver.h"
#include "Require.h"

namespace KorvelVideo::NetworkSource {

namespace {

using Bytes = std::vector<std::uint8_t>;

std::vector<std::span<const std::uint8_t>> g_queued; // what the socket has

class Sink final : public SourceSink {
public:
    std::span<std::uint8_t> borrow(std::size_t /*stream*/) override {
        KV_REQUIRE(!m_lent);
        if (refuses) {
            return {};
        }
        m_lent = std::make_unique<Bytes>(bufferSize);
        return *m_lent;
    }
    void deliver(std::size_t /*stream*/, std::uint8_t* buffer, std::uint32_t length,
                 std::uint64_t /*timeStamp*/) override {
        KV_REQUIRE(m_lent && buffer == m_lent->data() && length != 0 && length <= bufferSize);
        delivered.insert(delivered.end(), buffer, buffer + length);
        m_lent.reset();
    }
    void giveBack(std::size_t /*stream*/, std::uint8_t* buffer) override {
        KV_REQUIRE(m_lent && buffer == m_lent->data());
        m_lent.reset();
    }
    bool deliverCopy(std::size_t /*stream*/, std::span<const std::span<const std::uint8_t>> /*pieces*/,
                     std::uint64_t /*timeStamp*/) override {
        return false;
    }
    void idle() override {}
    void end(SourceEnd /*reason*/) override {}

    [[nodiscard]] bool holdsNothing() const { return !m_lent; }

    Bytes delivered;
    std::size_t bufferSize = 0;
    bool refuses = false;

private:
    std::unique_ptr<Bytes> m_lent;
};

// Queues the datagrams of one batch: a byte of control, then two bytes of length and as many bytes of data
// for each. Returns what is left.
std::span<const std::uint8_t> queueBatch(std::span<const std::uint8_t> data, Sink& sink) {
    const unsigned control = data[0];
    data = data.subspan(1);
    sink.refuses = (control & 0x80U) != 0;
    for (unsigned count = control & 0x7FU; count != 0 && data.size() >= 2; --count) {
        const std::size_t length = std::min<std::size_t>(data[0] * 256U + data[1], data.size() - 2);
        g_queued.push_back(data.subspan(2, length));
        data = data.subspan(2 + length);
    }
    return data;
}

} // namespace

struct DatagramBatch::Messages {
    struct Message {
        std::size_t length = 0;
        std::array<std::uint8_t, kMaxHeaderSize> header{};
        Bytes overflow;
    };
    std::array<Message, kMaxDatagrams> messages;
    Bytes scratch = Bytes(kMaxDatagrams * kMaxDatagramSize);
};

DatagramBatch::DatagramBatch() : m_messages(std::make_unique<Messages>()) {}
DatagramBatch::~DatagramBatch() = default;

std::size_t DatagramBatch::receive(DatagramSocket& /*socket*/, std::uint8_t* target, std::size_t headerSize,
                                   std::size_t slotSize, std::size_t count) noexcept {
    const std::size_t received = std::min(count, g_queued.size());
    KV_REQUIRE(headerSize <= kMaxHeaderSize && count <= kMaxDatagrams);
    for (std::size_t index = 0; index < received; ++index) {
        std::span<const std::uint8_t> rest = g_queued[index];
        Messages::Message& message = m_messages->messages[index];
        message.length = rest.size();
        const auto header = rest.first(std::min(headerSize, rest.size()));
        std::copy(header.begin(), header.end(), message.header.begin());
        rest = rest.subspan(header.size());
        const auto slot = rest.first(std::min(slotSize, rest.size()));
        std::copy(slot.begin(), slot.end(), target + index * slotSize);
        rest = rest.subspan(slot.size());
        message.overflow.assign(rest.begin(), rest.end());
    }
    g_queued.erase(g_queued.begin(), g_queued.begin() + static_cast<std::ptrdiff_t>(received));
    return received;
}

std::size_t DatagramBatch::length(std::size_t index) const noexcept {
    return m_messages->messages[index].length;
}
std::span<const std::uint8_t, DatagramBatch::kMaxHeaderSize>
DatagramBatch::header(std::size_t index) const noexcept {
    return m_messages->messages[index].header;
}
std::span<const std::uint8_t> DatagramBatch::overflow(std::size_t index) const noexcept {
    return m_messages->messages[index].overflow;
}
std::uint8_t* DatagramBatch::scratch() noexcept { return m_messages->scratch.data(); }

void DatagramSocket::close() noexcept {}
std::uint64_t DatagramSocket::drops() noexcept { return 0; }

} // namespace KorvelVideo::NetworkSource

using namespace KorvelVideo::NetworkSource;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const bool isRtp = (bytes[0] & 1U) != 0;
    const auto sink = std::make_shared<Sink>();
    sink->bufferSize = (bytes[0] & 2U) != 0 ? 65536 : 2000;
    SourceCounters counters;
    static DatagramBatch batch; // as one receiving thread has it
    DatagramReceiver receiver(isRtp ? DatagramAddress::Framing::rtp
                                    : DatagramAddress::Framing::transportStream,
                              DatagramSocket(), sink, nullptr, counters);
    Bytes sent;
    for (std::span<const std::uint8_t> data(bytes + 1, size - 1); !data.empty();) {
        data = queueBatch(data, *sink);
        for (const auto& datagram : g_queued) {
            sent.insert(sent.end(), datagram.begin(), datagram.end());
        }
        do { // a round takes no more than some batches
            const std::size_t queued = g_queued.size();
            KV_REQUIRE(receiver.receive(batch, std::chrono::steady_clock::now()) <= sent.size());
            KV_REQUIRE(g_queued.empty() || g_queued.size() < queued);
        } while (!g_queued.empty());
    }
    receiver.finish();
    KV_REQUIRE(sink->holdsNothing());
    if (isRtp) {
        KV_REQUIRE(sink->delivered.size() <= sent.size());
    } else {
        KV_REQUIRE(sink->delivered.size() + counters.unbuffered == sent.size());
        KV_REQUIRE(counters.unbuffered != 0 || sink->delivered == sent);
    }
    return 0;
}
