#pragma once

// What the network client's tests share.

#include <atomic>
#include <functional>
#include <mutex>

#include "NetworkClient.h"
#include "NetworkClientCounters.h"
#include "StreamingSdk.h"

namespace ClientTest {

using namespace MainConcept::NetworkStreaming;
using namespace KorvelVideo::NetworkSource;
using Octets = std::vector<std::uint8_t>;

// The rows of a table in tests/data/netsource, one a line, their cells between bars; the parts of a text
// without the spaces around them; and bytes from hexadecimal digits, with spaces anywhere.
[[nodiscard]] std::vector<std::vector<std::string>> readTable(const std::string& name);
[[nodiscard]] std::vector<std::string> split(const std::string& text, char separator);
[[nodiscard]] Octets fromHex(std::string digits);
inline void append(Octets& to, const Octets& bytes) { to.insert(to.end(), bytes.begin(), bytes.end()); }

// Waits until the condition holds. False when it never did, however slow the machine.
[[nodiscard]] bool waitFor(const std::function<bool()>& condition);

// The clock of clients made with testSurroundings, which only the tests move.
[[nodiscard]] Source::TimePoint testClock();
void advanceClock(std::chrono::milliseconds time);
[[nodiscard]] NetworkClient::Surroundings testSurroundings();

// Takes what a client delivers, as the module's consumer does: buffers from the allocator of the entry
// points, each given back when the next one comes.
class RecordingConsumer : public IMediaConsumer {
public:
    explicit RecordingConsumer(std::uint32_t bufferSize = 0x10000)
        : m_allocator(CreateBufferAllocator(2, 8, 0x100000, bufferSize, 1, nullptr)) {}
    void GetBuffer(_tagConsumerInfo* info) override;
    void OnData(_tagConsumerInfo* info) override;
    void OnNotify(_tagNetSourceNotifyType type, void* data) override;
    std::int32_t ResetAllocator() override { return m_allocator->Reset(0); }

    // Called in OnData and OnNotify, with no lock held. Set before Play.
    std::function<void()> onData = [] {};
    std::function<void(int type)> onNotify = [](int) {};
    bool keeping = true; // what comes, not only how much

    // Of the buffers of one time stamp together, and all together.
    [[nodiscard]] std::vector<Octets> payloads() const { return copy(m_payloads); }
    [[nodiscard]] Octets data() const;
    [[nodiscard]] std::vector<std::uint64_t> timeStamps() const { return copy(m_timeStamps); }
    [[nodiscard]] std::vector<int> notifications() const { return copy(m_notifications); }
    std::atomic<std::size_t> size{0};
    std::atomic<std::size_t> buffers{0};
    std::atomic<int> lent{0}; // buffers that the client has

private:
    template <class Records>
    [[nodiscard]] Records copy(const Records& records) const {
        const std::lock_guard lock(m_mutex);
        return records;
    }

    const std::unique_ptr<SdkBufferAllocator> m_allocator;
    std::uint8_t* m_pending = nullptr;
    mutable std::mutex m_mutex;
    std::vector<Octets> m_payloads;
    std::vector<std::uint64_t> m_timeStamps;
    std::vector<int> m_notifications;
};

// A client whose streams get a RecordingConsumer each.
class Receiver final : public INetStreamCreator {
public:
    Receiver(); // by the entry points
    explicit Receiver(NetworkClient::Surroundings surroundings)
        : client(new NetworkClient(*this, this, std::move(surroundings))) {}
    ~Receiver() override { close(); }

    std::uint32_t init(const std::string& url, const char* networkInterface = nullptr) {
        return client->Init(url.c_str(), networkInterface);
    }
    std::uint32_t play(); // with every consumer enabled
    std::uint32_t stop() { return client->Stop(); }
    void close(); // Stop, Shutdown and Release

    [[nodiscard]] RecordingConsumer& consumer(std::size_t index = 0) const { return *consumers.at(index); }
    [[nodiscard]] ClientCounters counters() const;
    [[nodiscard]] std::uint16_t port() const { return static_cast<std::uint16_t>(counters().localPort); }
    [[nodiscard]] bool wasTold(int type) const; // the first stream, the last time

    IMediaConsumer* OnCreateConsumerForNetStream(_tagMCNetStreamMediaInfo* mediaInfo,
                                                 IMCPlaylistItemQualitySelector* qualitySelector,
                                                 std::uint32_t value) override;
    void ReservedSlot2() override {}
    void ReservedSlot3() override {}

    struct Announcement {
        std::uint32_t streamType, mediaKind, samplingRate, channels;
        Octets codecConfig;
        bool operator==(const Announcement&) const = default;
    };
    std::function<void()> onAnnounce = [] {};
    std::vector<Announcement> announcements;
    std::vector<std::unique_ptr<RecordingConsumer>> consumers;
    SdkNetworkClient* client = nullptr;
};

// Sends datagrams to a local address, or to a group `from` a local address.
class Sender {
public:
    Sender(const std::string& address, std::uint16_t port, const char* from = nullptr);
    Sender(const Sender&) = delete;
    Sender& operator=(const Sender&) = delete;
    ~Sender();
    bool send(const Octets& datagram) const; // false when the system refused it

private:
    int m_socket = -1;
};

// `count` transport packets of one elementary stream with right continuity counters, from `first` on, whose
// contents depend on the packet's number; and a packet of RTP with payload type 33.
[[nodiscard]] Octets makeTransportPackets(std::size_t first, std::size_t count);
[[nodiscard]] Octets makeRtp(std::size_t sequenceNumber, const Octets& payload);

} // namespace ClientTest
