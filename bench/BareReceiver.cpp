// Receives what kv-paced-sender sends with nothing but system calls: the baseline of bench/receive.
//
//   kv-bare-receiver PORT STREAMS
//
// One thread reads every socket empty (recvmmsg) and sleeps for 5 ms, until it is interrupted. Then it prints
// how many bytes came. Nothing is delivered to anybody.

#include <array>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <vector>

#include <netinet/in.h>
#include <sys/socket.h>

namespace {

constexpr std::size_t kDatagramSize = 2048;
constexpr std::size_t kBatch = 64;
constexpr int kSocketBuffer = 4 << 20;
constexpr std::chrono::milliseconds kInterval{5};

volatile std::sig_atomic_t ended = 0;

// -1 when the port cannot be received on.
int openSocket(std::uint16_t port) {
    const int file = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_port = htons(port);
    local.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (setsockopt(file, SOL_SOCKET, SO_RCVBUFFORCE, &kSocketBuffer, sizeof(kSocketBuffer)) != 0) {
        setsockopt(file, SOL_SOCKET, SO_RCVBUF, &kSocketBuffer, sizeof(kSocketBuffer));
    }
    return bind(file, reinterpret_cast<const sockaddr*>(&local), sizeof(local)) == 0 ? file : -1;
}

class Batch {
public:
    Batch() {
        for (std::size_t index = 0; index < kBatch; ++index) {
            m_pieces[index] = {m_memory.data() + index * kDatagramSize, kDatagramSize};
            m_messages[index].msg_hdr.msg_iov = &m_pieces[index];
            m_messages[index].msg_hdr.msg_iovlen = 1;
        }
    }
    // Bytes that were queued.
    std::uint64_t empty(int file) {
        std::uint64_t bytes = 0;
        for (int count = kBatch; count == kBatch;) {
            count = recvmmsg(file, m_messages.data(), kBatch, MSG_DONTWAIT, nullptr);
            for (int index = 0; index < count; ++index) {
                bytes += m_messages[static_cast<std::size_t>(index)].msg_len;
            }
        }
        return bytes;
    }

private:
    std::array<mmsghdr, kBatch> m_messages{};
    std::array<iovec, kBatch> m_pieces{};
    std::array<std::uint8_t, kBatch * kDatagramSize> m_memory{};
};

} // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: %s PORT STREAMS\n", argv[0]);
        return 2;
    }
    std::signal(SIGINT, [](int) { ended = 1; });
    std::vector<int> files(static_cast<std::size_t>(std::atoi(argv[2])));
    auto port = static_cast<std::uint16_t>(std::atoi(argv[1]));
    for (int& file : files) {
        file = openSocket(port++);
        if (file < 0) {
            std::perror("bind");
            return 3;
        }
    }
    Batch batch;
    std::uint64_t bytes = 0;
    while (ended == 0) {
        const auto begin = std::chrono::steady_clock::now();
        for (const int file : files) {
            bytes += batch.empty(file);
        }
        std::this_thread::sleep_until(begin + kInterval);
    }
    std::printf("%llu\n", static_cast<unsigned long long>(bytes));
    return 0;
}
