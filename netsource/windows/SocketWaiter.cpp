#include "SystemSockets.h"

#include <algorithm>
#include <mutex>

#include "Sockets.h"

namespace KorvelVideo::NetworkSource {

namespace {

// A socket that is connected to itself, so that a byte sent on it ends a wait.
class WakeSocket {
public:
    WakeSocket() noexcept {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        int size = sizeof(address);
        auto* const where = reinterpret_cast<sockaddr*>(&address);
        u_long nonBlocking = 1;
        if (m_socket != INVALID_SOCKET &&
            (bind(m_socket, where, size) != 0 || getsockname(m_socket, where, &size) != 0 ||
             connect(m_socket, where, size) != 0 ||
             ioctlsocket(m_socket, static_cast<long>(FIONBIO), &nonBlocking) != 0)) {
            closesocket(m_socket);
            m_socket = INVALID_SOCKET;
        }
    }
    WakeSocket(const WakeSocket&) = delete;
    WakeSocket& operator=(const WakeSocket&) = delete;
    ~WakeSocket() {
        if (m_socket != INVALID_SOCKET) {
            closesocket(m_socket);
        }
    }

    [[nodiscard]] SOCKET get() const noexcept { return m_socket; }
    void ring() const noexcept {
        const char byte = 0;
        send(m_socket, &byte, sizeof(byte), 0);
    }
    void silence() const noexcept {
        char byte = 0;
        for (int count = 0; count < 1024 && recv(m_socket, &byte, sizeof(byte), 0) >= 0; ++count) {
        }
    }

private:
    SOCKET m_socket = socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
};

struct Entry {
    SOCKET socket;
    std::uint64_t token;
    bool isArmed;
};

} // namespace

// WSAPoll over the armed sockets. Its cost rises with their number, but a socket with data leaves the poll
// until it is armed again, and what the pool waits for here are the quiet ones.
struct SocketWaiter::Poll {
    std::mutex lock; // guards entries
    std::vector<Entry> entries;
    WakeSocket wake;
    // Of the thread that waits.
    std::vector<WSAPOLLFD> polled;
    std::vector<std::uint64_t> tokens;

    std::vector<Entry>::iterator find(SOCKET socket) {
        return std::find_if(entries.begin(), entries.end(),
                            [socket](const Entry& entry) { return entry.socket == socket; });
    }
};

SocketWaiter::SocketWaiter() : m_poll(std::make_unique<Poll>()) {}
SocketWaiter::~SocketWaiter() = default;

bool SocketWaiter::isOpen() const noexcept { return m_poll->wake.get() != INVALID_SOCKET; }

bool SocketWaiter::add(const DatagramSocket& socket, std::uint64_t token) noexcept {
    try {
        const std::lock_guard lock(m_poll->lock);
        m_poll->entries.push_back({systemSocket(socket.handle()), token, true});
    } catch (const std::bad_alloc&) {
        return false;
    }
    wake(); // a wait under way does not know the socket
    return true;
}

void SocketWaiter::rearm(const DatagramSocket& socket, std::uint64_t token) noexcept {
    const std::lock_guard lock(m_poll->lock);
    if (const auto entry = m_poll->find(systemSocket(socket.handle())); entry != m_poll->entries.end()) {
        entry->token = token;
        entry->isArmed = true;
    }
}

void SocketWaiter::remove(const DatagramSocket& socket) noexcept {
    {
        const std::lock_guard lock(m_poll->lock);
        if (const auto entry = m_poll->find(systemSocket(socket.handle())); entry != m_poll->entries.end()) {
            m_poll->entries.erase(entry);
        }
    }
    wake(); // the socket may be closed now
}

void SocketWaiter::wait(std::chrono::milliseconds timeout, std::vector<std::uint64_t>& ready) {
    ready.clear();
    m_poll->polled.assign(1, {m_poll->wake.get(), POLLRDNORM, 0});
    m_poll->tokens.assign(1, 0);
    {
        const std::lock_guard lock(m_poll->lock);
        for (const Entry& entry : m_poll->entries) {
            if (entry.isArmed) {
                m_poll->polled.push_back({entry.socket, POLLRDNORM, 0});
                m_poll->tokens.push_back(entry.token);
            }
        }
    }
    if (WSAPoll(m_poll->polled.data(), static_cast<ULONG>(m_poll->polled.size()),
                static_cast<int>(timeout.count())) <= 0) {
        return;
    }
    m_poll->wake.silence();
    const std::lock_guard lock(m_poll->lock);
    for (std::size_t index = 1; index < m_poll->polled.size(); ++index) {
        if (m_poll->polled[index].revents == 0) {
            continue;
        }
        const auto entry = m_poll->find(m_poll->polled[index].fd);
        // Removed, or another one by now.
        if (entry == m_poll->entries.end() || entry->token != m_poll->tokens[index] || !entry->isArmed) {
            continue;
        }
        entry->isArmed = false;
        ready.push_back(entry->token);
    }
}

void SocketWaiter::wake() noexcept { m_poll->wake.ring(); }

} // namespace KorvelVideo::NetworkSource
