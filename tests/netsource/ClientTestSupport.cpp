#include "ClientTestSupport.h"

#include <cstring>
#include <stdexcept>
#include <thread>

#include <arpa/inet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace ClientTest {

using namespace MainConcept::NetworkStreaming;

bool waitFor(const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

RecordingConsumer::RecordingConsumer()
    : m_allocator(CreateBufferAllocator(2, 8, 0x100000, 0x10000, 1, nullptr)) {}

RecordingConsumer::~RecordingConsumer() = default;

void RecordingConsumer::GetBuffer(_tagConsumerInfo* info) {
    if (refusing) {
        return;
    }
    std::uint32_t capacity = 0;
    info->buffer = m_allocator->AllocateBuffer(&capacity, nullptr);
    if (info->buffer != nullptr) {
        AttachBuffer(info, 0, capacity);
        ++m_lent;
    }
}

void RecordingConsumer::OnData(_tagConsumerInfo* info) {
    --m_lent;
    if (info->discard == 0) {
        const std::lock_guard lock(m_mutex);
        if (m_allocator->ConfirmBufferSize(info->buffer, info->dataLength) != 0) {
            throw std::logic_error("buffer size");
        }
        if (keeping) {
            m_data.insert(m_data.end(), info->buffer, info->buffer + info->dataLength);
            m_timeStamps.push_back(info->timeStamp);
        }
        m_size += info->dataLength;
        if (m_pending != nullptr) {
            m_allocator->ReleaseBuffer(m_pending);
        }
        m_pending = info->buffer;
    } else {
        m_allocator->ReleaseBuffer(info->buffer);
    }
    onData();
}

void RecordingConsumer::OnNotify(_tagNetSourceNotifyType type, void* /*data*/) {
    {
        const std::lock_guard lock(m_mutex);
        m_notifications.push_back(type);
    }
    onNotify(type);
}

Bytes RecordingConsumer::data() const {
    const std::lock_guard lock(m_mutex);
    return m_data;
}

std::size_t RecordingConsumer::size() const {
    const std::lock_guard lock(m_mutex);
    return m_size;
}

std::size_t RecordingConsumer::buffers() const {
    const std::lock_guard lock(m_mutex);
    return m_timeStamps.size();
}

std::vector<int> RecordingConsumer::notifications() const {
    const std::lock_guard lock(m_mutex);
    return m_notifications;
}

std::vector<std::uint64_t> RecordingConsumer::timeStamps() const {
    const std::lock_guard lock(m_mutex);
    return m_timeStamps;
}

IMediaConsumer*
RecordingCreator::OnCreateConsumerForNetStream(_tagMCNetStreamMediaInfo* mediaInfo,
                                               IMCPlaylistItemQualitySelector* /*qualitySelector*/,
                                               std::uint32_t /*value*/) {
    announcements.push_back(
        {mediaInfo->streamType, mediaInfo->mediaKind,
         Bytes(mediaInfo->codecConfig, mediaInfo->codecConfig + mediaInfo->codecConfigLength)});
    if (!onAnnounce()) {
        return nullptr;
    }
    consumers.push_back(std::make_unique<RecordingConsumer>());
    return consumers.back().get();
}

Receiver::Receiver() {
    StartSocketService();
    SdkClientSettings settings{};
    settings.receiver = this;
    client = CreateNetworkClient(&creator, &settings);
}

std::uint32_t Receiver::init(const std::string& url, const char* networkInterface) {
    return client->Init(url.c_str(), networkInterface);
}

std::uint32_t Receiver::play() {
    const std::uint8_t enabled = 1;
    for (const auto& consumer : creator.consumers) {
        if (const std::uint32_t status = client->EnableConsumer(consumer.get(), 0, &enabled, 1);
            status != 0) {
            return status;
        }
    }
    return client->Play(0.0, -1.0, 1.0);
}

std::uint32_t Receiver::stop() { return client->Stop(); }

void Receiver::close() {
    if (client != nullptr) {
        client->Stop();
        client->Shutdown();
        client->Release();
        client = nullptr;
        StopSocketService();
    }
}

KorvelVideo::NetworkSource::ClientCounters Receiver::counters() const {
    using KorvelVideo::NetworkSource::ClientCounters;
    std::vector<ClientCounters> all(256);
    all[0].size = sizeof(ClientCounters);
    const std::uint32_t count = GetNetworkClientCounters(all.data(), static_cast<std::uint32_t>(all.size()));
    for (std::uint32_t index = 0; index < count; ++index) {
        if (all[index].receiver == this) {
            return all[index];
        }
    }
    throw std::logic_error("the client is not among those counted");
}

namespace {

// Fills either kind of address; 0 when the text is none.
socklen_t makeAddress(const std::string& text, std::uint16_t port, sockaddr_storage& storage) {
    storage = {};
    auto& v4 = reinterpret_cast<sockaddr_in&>(storage);
    auto& v6 = reinterpret_cast<sockaddr_in6&>(storage);
    if (inet_pton(AF_INET, text.c_str(), &v4.sin_addr) == 1) {
        v4.sin_family = AF_INET;
        v4.sin_port = htons(port);
        return sizeof(v4);
    }
    if (inet_pton(AF_INET6, text.c_str(), &v6.sin6_addr) == 1) {
        v6.sin6_family = AF_INET6;
        v6.sin6_port = htons(port);
        return sizeof(v6);
    }
    return 0;
}

} // namespace

Sender::Sender(const std::string& address, std::uint16_t port, const char* multicastInterface)
    : m_port(port), m_address(address) {
    sockaddr_storage storage;
    makeAddress(address, port, storage);
    m_socket = socket(storage.ss_family, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const unsigned index = if_nametoindex(multicastInterface);
    ip_mreqn request{};
    request.imr_ifindex = static_cast<int>(index);
    const int result = storage.ss_family == AF_INET6
                           ? setsockopt(m_socket, IPPROTO_IPV6, IPV6_MULTICAST_IF, &index, sizeof(index))
                           : setsockopt(m_socket, IPPROTO_IP, IP_MULTICAST_IF, &request, sizeof(request));
    if (result != 0) {
        throw std::runtime_error("the interface cannot be chosen");
    }
}

Sender::~Sender() { ::close(m_socket); }

void Sender::bindTo(const std::string& address) const {
    sockaddr_storage storage;
    const socklen_t size = makeAddress(address, 0, storage);
    if (bind(m_socket, reinterpret_cast<const sockaddr*>(&storage), size) != 0) {
        throw std::runtime_error("bind");
    }
}

bool Sender::send(const Bytes& datagram) const {
    sockaddr_storage storage;
    const socklen_t size = makeAddress(m_address, m_port, storage);
    return sendto(m_socket, datagram.data(), datagram.size(), 0, reinterpret_cast<const sockaddr*>(&storage),
                  size) == static_cast<ssize_t>(datagram.size());
}

Bytes makeTransportPackets(std::size_t first, std::size_t count) {
    Bytes packets;
    for (std::size_t number = first; number < first + count; ++number) {
        packets.insert(packets.end(), {0x47, 0x01, 0x00, static_cast<std::uint8_t>(0x10 | (number & 0x0F))});
        for (std::size_t index = 4; index < 188; ++index) {
            packets.push_back(static_cast<std::uint8_t>(number * 7 + (number >> 8) + index));
        }
    }
    return packets;
}

Bytes makeRtp(std::uint16_t sequenceNumber, const Bytes& payload, std::uint32_t source) {
    Bytes packet{0x80,
                 33,
                 static_cast<std::uint8_t>(sequenceNumber >> 8),
                 static_cast<std::uint8_t>(sequenceNumber),
                 0,
                 0,
                 0,
                 0,
                 static_cast<std::uint8_t>(source >> 24),
                 static_cast<std::uint8_t>(source >> 16),
                 static_cast<std::uint8_t>(source >> 8),
                 static_cast<std::uint8_t>(source)};
    packet.insert(packet.end(), payload.begin(), payload.end());
    return packet;
}

} // namespace ClientTest
