#include "ClientTestSupport.h"

#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <utility>

#include <net/if.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "SourceFactory.h"

namespace ClientTest {

std::vector<std::string> split(const std::string& text, char separator) {
    std::vector<std::string> parts;
    std::istringstream stream(text);
    for (std::string part; std::getline(stream, part, separator);) {
        const std::size_t begin = std::min(part.find_first_not_of(' '), part.size());
        parts.push_back(part.substr(begin, part.find_last_not_of(' ') + 1 - begin));
    }
    return parts;
}

std::vector<std::vector<std::string>> readTable(const std::string& name) {
    std::ifstream file(std::string(KV_TEST_DATA "/netsource/") + name);
    std::vector<std::vector<std::string>> rows;
    for (std::string line; std::getline(file, line);) {
        if (!line.empty() && line[0] != '#') {
            rows.push_back(split(line + " ", '|')); // the space makes a cell of an empty last one
        }
    }
    if (rows.empty()) {
        throw std::runtime_error("no table " + name);
    }
    return rows;
}

Octets fromHex(const std::string& digits) {
    Octets bytes;
    std::string pair;
    for (const char digit : digits) {
        pair += digit == ' ' ? "" : std::string(1, digit);
        if (pair.size() == 2) {
            bytes.push_back(static_cast<std::uint8_t>(std::stoul(std::exchange(pair, ""), nullptr, 16)));
        }
    }
    return bytes;
}

bool waitFor(const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

static std::atomic<std::int64_t> clockNanoseconds{1'000'000'000'000};
Source::TimePoint testClock() { return Source::TimePoint(std::chrono::nanoseconds(clockNanoseconds)); }
void advanceClock(std::chrono::milliseconds time) { clockNanoseconds += time.count() * 1'000'000; }
NetworkClient::Surroundings testSurroundings() { return {&makeSource, &testClock, std::chrono::seconds(10)}; }

void RecordingConsumer::GetBuffer(_tagConsumerInfo* info) {
    if (refusing) {
        return;
    }
    std::uint32_t capacity = 0;
    info->buffer = m_allocator->AllocateBuffer(&capacity, nullptr);
    if (info->buffer != nullptr) {
        AttachBuffer(info, 0, capacity);
        ++lent;
    }
}

void RecordingConsumer::OnData(_tagConsumerInfo* info) {
    --lent;
    if (info->discard != 0) {
        m_allocator->ReleaseBuffer(info->buffer);
        return;
    }
    {
        const std::lock_guard lock(m_mutex);
        if (keeping && (m_units.empty() || m_units.back().timeStamp != info->timeStamp)) {
            m_units.push_back({info->timeStamp, {}});
        }
        if (keeping) {
            append(m_units.back().bytes, Octets(info->buffer, info->buffer + info->dataLength));
        }
    }
    size += info->dataLength;
    ++buffers;
    m_allocator->ReleaseBuffer(std::exchange(m_pending, info->buffer));
    onData();
}

void RecordingConsumer::OnNotify(_tagNetSourceNotifyType type, void* /*data*/) {
    {
        const std::lock_guard lock(m_mutex);
        m_notifications.push_back(type);
    }
    onNotify(type);
}

std::vector<RecordingConsumer::Unit> RecordingConsumer::units() const {
    const std::lock_guard lock(m_mutex);
    return m_units;
}

std::vector<int> RecordingConsumer::notifications() const {
    const std::lock_guard lock(m_mutex);
    return m_notifications;
}

std::vector<Octets> RecordingConsumer::payloads() const {
    std::vector<Octets> all;
    for (const Unit& unit : units()) {
        all.push_back(unit.bytes);
    }
    return all;
}

Octets RecordingConsumer::data() const {
    Octets all;
    for (const Octets& payload : payloads()) {
        append(all, payload);
    }
    return all;
}

IMediaConsumer* RecordingCreator::OnCreateConsumerForNetStream(_tagMCNetStreamMediaInfo* mediaInfo,
                                                               IMCPlaylistItemQualitySelector* /*selector*/,
                                                               std::uint32_t /*value*/) {
    const std::uint8_t* const config = mediaInfo->codecConfig;
    announcements.push_back({mediaInfo->streamType,
                             mediaInfo->mediaKind,
                             mediaInfo->audioSamplingRate,
                             mediaInfo->audioChannels,
                             {config, config + mediaInfo->codecConfigLength}});
    onAnnounce();
    consumers.push_back(std::make_unique<RecordingConsumer>());
    return consumers.back().get();
}

Receiver::Receiver() {
    StartSocketService();
    SdkClientSettings settings{};
    settings.receiver = this;
    client = CreateNetworkClient(&creator, &settings);
}

std::uint32_t Receiver::play() {
    const std::uint8_t enabled = 1;
    for (const auto& consumer : creator.consumers) {
        client->EnableConsumer(consumer.get(), 0, &enabled, 1);
    }
    return client->Play(0.0, -1.0, 1.0);
}

void Receiver::close() {
    if (client != nullptr) {
        client->Stop();
        client->Shutdown();
        client->Release();
        client = nullptr;
        StopSocketService();
    }
}

ClientCounters Receiver::counters() const {
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

bool Receiver::wasTold(int type) {
    const std::vector<int> told = consumer().notifications();
    return !told.empty() && told.back() == type;
}

Sender::Sender(const std::string& address, std::uint16_t port, const char* networkInterface,
               const char* from) {
    const auto addressOf = [](const std::string& host, std::uint16_t ofPort) {
        addrinfo hints{};
        hints.ai_flags = AI_NUMERICHOST;
        hints.ai_socktype = SOCK_DGRAM;
        addrinfo* found = nullptr;
        if (getaddrinfo(host.c_str(), std::to_string(ofPort).c_str(), &hints, &found) != 0) {
            throw std::runtime_error("no address " + host);
        }
        return std::unique_ptr<addrinfo, decltype(&freeaddrinfo)>(found, &freeaddrinfo);
    };
    const auto to = addressOf(address, port);
    const auto local = addressOf(from != nullptr ? from : address, 0);
    m_socket = socket(to->ai_family, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const unsigned index = if_nametoindex(networkInterface);
    ip_mreqn request{};
    request.imr_ifindex = static_cast<int>(index);
    bool done = to->ai_family == AF_INET6
                    ? setsockopt(m_socket, IPPROTO_IPV6, IPV6_MULTICAST_IF, &index, sizeof(index)) == 0
                    : setsockopt(m_socket, IPPROTO_IP, IP_MULTICAST_IF, &request, sizeof(request)) == 0;
    done = done && (from == nullptr || bind(m_socket, local->ai_addr, local->ai_addrlen) == 0);
    if (!done || connect(m_socket, to->ai_addr, to->ai_addrlen) != 0) {
        throw std::runtime_error("no sender to " + address);
    }
}

Sender::~Sender() { ::close(m_socket); }

bool Sender::send(const Octets& datagram) const {
    return ::send(m_socket, datagram.data(), datagram.size(), 0) == static_cast<ssize_t>(datagram.size());
}

Octets makeTransportPackets(std::size_t first, std::size_t count) {
    Octets packets;
    for (std::size_t number = first; number < first + count; ++number) {
        packets.insert(packets.end(), {0x47, 0x01, 0x00, static_cast<std::uint8_t>(0x10 | (number & 0x0F))});
        for (std::size_t index = 4; index < 188; ++index) {
            packets.push_back(static_cast<std::uint8_t>(number * 7 + (number >> 8) + index));
        }
    }
    return packets;
}

Octets makeRtp(std::size_t sequenceNumber, const Octets& payload) {
    const auto high = static_cast<std::uint8_t>(sequenceNumber >> 8);
    Octets packet{0x80, 33, high, static_cast<std::uint8_t>(sequenceNumber), 0, 0, 0, 0, 0, 0, 0x12, 0x34};
    append(packet, payload);
    return packet;
}

} // namespace ClientTest
