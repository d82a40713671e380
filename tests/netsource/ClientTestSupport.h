#pragma once

// What the network client's tests share: a consumer and a creator that record, a sender, and bounded waiting.

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "NetworkClientCounters.h"
#include "StreamingSdk.h"

namespace ClientTest {

using Bytes = std::vector<std::uint8_t>;

// Waits until the condition holds, at most ten seconds. False when it never did.
[[nodiscard]] bool waitFor(const std::function<bool()>& condition);

// Takes what a client delivers, as the module's consumer does: buffers from the allocator of the entry
// points, each given back when the next one comes.
class RecordingConsumer : public MainConcept::NetworkStreaming::IMediaConsumer {
public:
    RecordingConsumer();
    ~RecordingConsumer() override;

    void GetBuffer(MainConcept::NetworkStreaming::_tagConsumerInfo* info) override;
    void OnData(MainConcept::NetworkStreaming::_tagConsumerInfo* info) override;
    void OnNotify(MainConcept::NetworkStreaming::_tagNetSourceNotifyType type, void* data) override;
    std::int32_t ResetAllocator() override { return m_allocator->Reset(0); }

    // Called in OnData and OnNotify, with no lock held. Set before Play.
    std::function<void()> onData = [] {};
    std::function<void(int type)> onNotify = [](int) {};
    // Whether GetBuffer gives none.
    std::atomic<bool> refusing{false};
    // Whether data is kept, or only counted.
    bool keeping = true;

    [[nodiscard]] Bytes data() const;
    [[nodiscard]] std::size_t size() const;
    [[nodiscard]] std::size_t buffers() const;
    [[nodiscard]] std::vector<int> notifications() const;
    [[nodiscard]] std::vector<std::uint64_t> timeStamps() const;
    // Buffers lent to the client and not handed back.
    [[nodiscard]] int lent() const { return m_lent; }

private:
    std::unique_ptr<MainConcept::NetworkStreaming::SdkBufferAllocator> m_allocator;
    std::uint8_t* m_pending = nullptr;
    std::atomic<int> m_lent{0};
    mutable std::mutex m_mutex;
    Bytes m_data;
    std::size_t m_size = 0;
    std::vector<int> m_notifications;
    std::vector<std::uint64_t> m_timeStamps;
};

// Gives every stream a RecordingConsumer and keeps what was announced.
class RecordingCreator : public MainConcept::NetworkStreaming::INetStreamCreator {
public:
    struct Announcement {
        std::uint32_t streamType;
        std::uint32_t mediaKind;
        Bytes codecConfig;
        bool operator==(const Announcement&) const = default;
    };

    MainConcept::NetworkStreaming::IMediaConsumer* OnCreateConsumerForNetStream(
        MainConcept::NetworkStreaming::_tagMCNetStreamMediaInfo* mediaInfo,
        MainConcept::NetworkStreaming::IMCPlaylistItemQualitySelector* qualitySelector,
        std::uint32_t value) override;
    void ReservedSlot2() override {}
    void ReservedSlot3() override {}

    std::function<bool()> onAnnounce = [] { return true; }; // false refuses the stream
    std::vector<Announcement> announcements;
    std::vector<std::unique_ptr<RecordingConsumer>> consumers;
};

// A client with its creator, driven as the module does it.
class Receiver {
public:
    Receiver();
    Receiver(const Receiver&) = delete;
    Receiver& operator=(const Receiver&) = delete;
    ~Receiver() { close(); }

    std::uint32_t init(const std::string& url, const char* networkInterface = nullptr);
    // Enables every consumer and plays.
    std::uint32_t play();
    std::uint32_t stop();
    // Stop, Shutdown and Release.
    void close();

    [[nodiscard]] RecordingConsumer& consumer(std::size_t index = 0) { return *creator.consumers.at(index); }
    [[nodiscard]] KorvelVideo::NetworkSource::ClientCounters counters() const;
    [[nodiscard]] std::uint16_t port() const { return static_cast<std::uint16_t>(counters().localPort); }

    RecordingCreator creator;
    MainConcept::NetworkStreaming::SdkNetworkClient* client = nullptr;
};

// Sends datagrams to a local address, or to a group over one interface.
class Sender {
public:
    Sender(const std::string& address, std::uint16_t port, const char* multicastInterface = "lo");
    Sender(const Sender&) = delete;
    Sender& operator=(const Sender&) = delete;
    ~Sender();
    // False when the system refused it.
    bool send(const Bytes& datagram) const;
    // The address it sends from.
    void bindTo(const std::string& address) const;

private:
    int m_socket = -1;
    std::uint16_t m_port;
    std::string m_address;
};

// `count` transport packets of one elementary stream with right continuity counters, from `first` on; what
// follows the header depends on the packet's number.
[[nodiscard]] Bytes makeTransportPackets(std::size_t first, std::size_t count);

// The same in one RTP packet of payload type 33.
[[nodiscard]] Bytes makeRtp(std::uint16_t sequenceNumber, const Bytes& payload,
                            std::uint32_t source = 0x1234);

} // namespace ClientTest
