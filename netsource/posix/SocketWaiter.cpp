#include "Sockets.h"

#include <algorithm>
#include <array>

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace KorvelVideo::NetworkSource {

namespace {

constexpr std::uint64_t kWakeToken = ~std::uint64_t{0};

epoll_event makeEvent(std::uint64_t token, std::uint32_t events) noexcept {
    epoll_event event{};
    event.events = events;
    event.data.u64 = token;
    return event;
}

} // namespace

struct SocketWaiter::Poll {
    int epoll = epoll_create1(EPOLL_CLOEXEC);
    int wake = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);

    Poll() = default;
    Poll(const Poll&) = delete;
    Poll& operator=(const Poll&) = delete;
    ~Poll() {
        for (const int file : {epoll, wake}) {
            if (file >= 0) {
                ::close(file);
            }
        }
    }
};

SocketWaiter::SocketWaiter() : m_poll(std::make_unique<Poll>()) {
    epoll_event event = makeEvent(kWakeToken, EPOLLIN);
    if (isOpen()) {
        epoll_ctl(m_poll->epoll, EPOLL_CTL_ADD, m_poll->wake, &event);
    }
}

SocketWaiter::~SocketWaiter() = default;

bool SocketWaiter::isOpen() const noexcept { return m_poll->epoll >= 0 && m_poll->wake >= 0; }

bool SocketWaiter::add(const DatagramSocket& socket, std::uint64_t token) noexcept {
    epoll_event event = makeEvent(token, EPOLLIN | EPOLLONESHOT);
    return epoll_ctl(m_poll->epoll, EPOLL_CTL_ADD, static_cast<int>(socket.handle()), &event) == 0;
}

void SocketWaiter::rearm(const DatagramSocket& socket, std::uint64_t token) noexcept {
    epoll_event event = makeEvent(token, EPOLLIN | EPOLLONESHOT);
    epoll_ctl(m_poll->epoll, EPOLL_CTL_MOD, static_cast<int>(socket.handle()), &event);
}

void SocketWaiter::remove(const DatagramSocket& socket) noexcept {
    epoll_ctl(m_poll->epoll, EPOLL_CTL_DEL, static_cast<int>(socket.handle()), nullptr);
}

void SocketWaiter::wait(std::chrono::milliseconds timeout, std::vector<std::uint64_t>& ready) {
    ready.clear();
    std::array<epoll_event, 64> events;
    const int count = epoll_wait(m_poll->epoll, events.data(), static_cast<int>(events.size()),
                                 static_cast<int>(timeout.count()));
    for (int index = 0; index < count; ++index) {
        const std::uint64_t token = events[static_cast<std::size_t>(index)].data.u64;
        if (token != kWakeToken) {
            ready.push_back(token);
            continue;
        }
        std::uint64_t value = 0;
        [[maybe_unused]] const ssize_t taken = read(m_poll->wake, &value, sizeof(value));
    }
}

void SocketWaiter::wake() noexcept {
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = write(m_poll->wake, &one, sizeof(one));
}

} // namespace KorvelVideo::NetworkSource
