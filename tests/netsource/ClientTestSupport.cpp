#include "ClientTestSupport.h"

#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <utility>

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
    return rows.empty() ? throw std::runtime_error("no table " + name) : rows;
}

Octets fromHex(std::string digits) {
    Octets bytes;
    std::erase(digits, ' ');
    for (std::size_t at = 0; at < digits.size(); at += 2) {
        bytes.push_back(static_cast<std::uint8_t>(std::stoul(digits.substr(at, 2), nullptr, 16)));
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
    if (keeping) {
        const std::lock_guard lock(m_mutex);
        if (m_timeStamps.empty() || m_timeStamps.back() != info->timeStamp) {
            m_timeStamps.push_back(info->timeStamp);
            m_payloads.emplace_back();
        }
        append(m_payloads.back(), Octets(info->buffer, info->buffer + info->dataLength));
    }
    size += info->dataLength;
    ++buffers;
    m_allocator->ReleaseBuffer(std::exchange(m_pending, info->buffer));
    onData();
}

void RecordingConsumer::OnNotify(_tagNetSourceNotifyType type, void* /*data*/) {
    if (keeping) {
        const std::lock_guard lock(m_mutex);
        m_notifications.push_back(type);
    }
    onNotify(type);
}

Octets RecordingConsumer::data() const {
    Octets all;
    for (const Octets& payload : payloads()) {
        append(all, payload);
    }
    return all;
}

Receiver::Receiver() {
    StartSocketService();
    SdkClientSettings settings{};
    settings.receiver = this;
    client = CreateNetworkClient(this, &settings);
}

IMediaConsumer* Receiver::OnCreateConsumerForNetStream(_tagMCNetStreamMediaInfo* mediaInfo,
                                                       IMCPlaylistItemQualitySelector* /*selector*/,
                                                       std::uint32_t /*value*/) {
    const Octets config(mediaInfo->codecConfig, mediaInfo->codecConfig + mediaInfo->codecConfigLength);
    announcements.push_back({mediaInfo->streamType, mediaInfo->mediaKind, mediaInfo->audioSamplingRate,
                             mediaInfo->audioChannels, config});
    onAnnounce();
    consumers.push_back(std::make_unique<RecordingConsumer>());
    return consumers.back().get();
}

std::uint32_t Receiver::play() {
    const std::uint8_t enabled = 1;
    for (const auto& taker : consumers) {
        client->EnableConsumer(taker.get(), 0, &enabled, 1);
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

bool Receiver::wasTold(int type) const {
    const std::vector<int> told = consumer().notifications();
    return !told.empty() && told.back() == type;
}

static std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> addressOf(const char* host, std::uint16_t port) {
    addrinfo hints{};
    hints.ai_flags = AI_NUMERICHOST;
    hints.ai_socktype = SOCK_DGRAM;
    addrinfo* found = nullptr;
    getaddrinfo(host, std::to_string(port).c_str(), &hints, &found);
    return {found, &freeaddrinfo};
}

Sender::Sender(const std::string& address, std::uint16_t port, const char* from) {
    const auto to = addressOf(address.c_str(), port);
    const auto local = addressOf(from != nullptr ? from : address.c_str(), 0);
    m_socket = socket(to->ai_family, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if ((from != nullptr && bind(m_socket, local->ai_addr, local->ai_addrlen) != 0) ||
        connect(m_socket, to->ai_addr, to->ai_addrlen) != 0) {
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
