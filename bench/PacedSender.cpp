// Sends numbered transport stream datagrams at an even pace: the load for reception measurements.
//
//   kv-paced-sender ADDRESS PORT STREAMS MBIT_PER_SECOND SECONDS [rtp]
//
// Stream i goes to port PORT + i at the given rate each. A datagram holds 7 transport packets of one packet
// identifier with right continuity counters; bytes 4 to 11 of each datagram's payload are its number in the
// stream, lowest byte first. At the end it prints how many datagrams were sent, refused by the system, and
// how late the pace was at worst.

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kPacketSize = 188;
constexpr std::size_t kPackets = 7;
constexpr std::size_t kPayloadSize = kPacketSize * kPackets;
constexpr std::size_t kRtpHeaderSize = 12;
constexpr std::size_t kBatch = 64;
// A shorter sleep than this is not worth its wake-up.
constexpr std::chrono::microseconds kShortestTick{100};
constexpr std::chrono::milliseconds kLongestCatchUp{1};

class Stream {
public:
    Stream(const sockaddr_in& address, bool rtp) : m_headerSize(rtp ? kRtpHeaderSize : 0) {
        m_socket = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        if (m_socket < 0 ||
            connect(m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
            std::perror("socket");
            std::exit(1);
        }
        for (std::size_t index = 0; index < kBatch; ++index) {
            m_datagrams[index].assign(m_headerSize + kPayloadSize, 0x55);
            m_pieces[index] = {m_datagrams[index].data(), m_datagrams[index].size()};
            m_messages[index].msg_hdr.msg_iov = &m_pieces[index];
            m_messages[index].msg_hdr.msg_iovlen = 1;
        }
    }
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;
    ~Stream() { close(m_socket); }

    // Sends up to datagram number `until`.
    void sendUntil(std::uint64_t until) {
        while (m_number < until) {
            const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(until - m_number, kBatch));
            for (std::size_t index = 0; index < count; ++index) {
                write(m_datagrams[index], m_number + index);
            }
            int sent = sendmmsg(m_socket, m_messages.data(), static_cast<unsigned>(count), 0);
            if (sent <= 0) { // refused, for example because nobody receives: goes on with the next
                ++refused;
                sent = 1;
            }
            m_number += static_cast<std::uint64_t>(sent);
        }
    }
    [[nodiscard]] std::uint64_t number() const { return m_number; }
    std::uint64_t refused = 0;

private:
    void write(std::vector<std::uint8_t>& datagram, std::uint64_t number) const {
        if (m_headerSize != 0) {
            datagram[0] = 0x80;
            datagram[1] = 33;
            datagram[2] = static_cast<std::uint8_t>(number >> 8);
            datagram[3] = static_cast<std::uint8_t>(number);
        }
        std::uint8_t* packet = datagram.data() + m_headerSize;
        for (std::size_t index = 0; index < kPackets; ++index, packet += kPacketSize) {
            packet[0] = 0x47;
            packet[1] = 0x01;
            packet[2] = 0x00;
            packet[3] = static_cast<std::uint8_t>(0x10 | ((number * kPackets + index) & 0x0F));
        }
        for (unsigned byte = 0; byte < 8; ++byte) {
            datagram[m_headerSize + 4 + byte] = static_cast<std::uint8_t>(number >> 8 * byte);
        }
    }

    const std::size_t m_headerSize;
    int m_socket = -1;
    std::uint64_t m_number = 0;
    std::array<std::vector<std::uint8_t>, kBatch> m_datagrams;
    std::array<iovec, kBatch> m_pieces{};
    std::array<mmsghdr, kBatch> m_messages{};
};

} // namespace

int main(int argc, char** argv) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    if (argc < 6 || inet_pton(AF_INET, argv[1], &address.sin_addr) != 1) {
        std::fprintf(stderr, "usage: %s ADDRESS PORT STREAMS MBIT_PER_SECOND SECONDS [rtp]\n", argv[0]);
        return 2;
    }
    const auto port = static_cast<std::uint16_t>(std::atoi(argv[2]));
    const auto streamCount = static_cast<std::uint16_t>(std::atoi(argv[3]));
    const double perSecond = std::atof(argv[4]) * 1e6 / 8 / kPayloadSize;
    const std::chrono::duration<double> length(std::atof(argv[5]));
    const bool rtp = argc > 6 && std::string(argv[6]) == "rtp";

    std::vector<std::unique_ptr<Stream>> streams;
    for (std::uint16_t index = 0; index < streamCount; ++index) {
        address.sin_port = htons(static_cast<std::uint16_t>(port + index));
        streams.push_back(std::make_unique<Stream>(address, rtp));
    }
    const auto tick =
        std::max<Clock::duration>(std::chrono::duration_cast<Clock::duration>(
                                      std::chrono::duration<double>(1 / perSecond / streamCount)),
                                  kShortestTick);
    Clock::time_point begin = Clock::now();
    Clock::time_point next = begin;
    Clock::duration latest{};
    while (next - begin < length) {
        std::this_thread::sleep_until(next);
        const Clock::time_point now = Clock::now();
        const Clock::duration late = now - next;
        latest = std::max(latest, late);
        if (late > kLongestCatchUp) { // a sender that was held up goes on at its pace, it does not make up
            begin += late - kLongestCatchUp;
        }
        const double seconds =
            std::chrono::duration<double>(
                std::min<Clock::duration>(now - begin, std::chrono::duration_cast<Clock::duration>(length)))
                .count();
        for (std::size_t index = 0; index < streams.size(); ++index) {
            // The streams take turns within the time of one datagram.
            const double turn = static_cast<double>(index) / static_cast<double>(streams.size());
            streams[index]->sendUntil(
                static_cast<std::uint64_t>(std::max(0.0, seconds * perSecond - turn) + 0.5));
        }
        next = std::max(next + tick, now);
    }
    std::uint64_t sent = 0;
    std::uint64_t refused = 0;
    for (const auto& stream : streams) {
        sent += stream->number() - stream->refused;
        refused += stream->refused;
    }
    std::printf("{\"sent\":%llu,\"refused\":%llu,\"latest_ms\":%.2f}\n",
                static_cast<unsigned long long>(sent), static_cast<unsigned long long>(refused),
                std::chrono::duration<double, std::milli>(latest).count());
    return 0;
}
