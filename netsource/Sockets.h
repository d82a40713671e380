#pragma once

// Datagram sockets as the operating system gives them: the one place of netsource/ that differs between
// systems (posix/Sockets.cpp, posix/DatagramBatch.cpp).

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "StreamingSdk.h"

namespace KorvelVideo::NetworkSource {

// Starts and stops the system's socket layer where it has one; counted by the system. False on failure.
[[nodiscard]] bool startSocketLayer() noexcept;
[[nodiscard]] bool stopSocketLayer() noexcept;

// What came of a socket operation: keClientOk, or a status and a text that names what is wrong.
struct SocketOutcome {
    MainConcept::NetworkStreaming::ClientStatus status = MainConcept::NetworkStreaming::keClientOk;
    std::string problem;
    [[nodiscard]] bool ok() const noexcept { return status == MainConcept::NetworkStreaming::keClientOk; }
};

// Where a socket receives. Resolved once, because that may take long.
class DatagramEndpoint {
public:
    DatagramEndpoint();
    DatagramEndpoint(const DatagramEndpoint&) = delete;
    DatagramEndpoint& operator=(const DatagramEndpoint&) = delete;
    ~DatagramEndpoint();

    // Resolves names and the interface (a name or one of its addresses; empty: the system's choice). An empty
    // address stands for every local IPv4 one. A source goes with a multicast group only. Blocks while names
    // are resolved.
    [[nodiscard]] SocketOutcome resolve(const std::string& source, const std::string& address,
                                        std::uint16_t port, const std::string& networkInterface);
    [[nodiscard]] bool isMulticast() const noexcept;
    void setPort(std::uint16_t port) noexcept;

private:
    friend class DatagramSocket;
    struct Addresses;
    std::unique_ptr<Addresses> m_addresses;
};

// A receiving socket that never blocks. Not thread-safe.
class DatagramSocket {
public:
    // The size asked for; the system may grant less.
    static constexpr std::uint32_t kReceiveBufferSize = 4U << 20;

    DatagramSocket() = default;
    DatagramSocket(DatagramSocket&& other) noexcept
        : m_handle(std::exchange(other.m_handle, kNone)), m_receiveBufferSize(other.m_receiveBufferSize),
          m_lastDrops(other.m_lastDrops), m_drops(other.m_drops) {}
    DatagramSocket(const DatagramSocket&) = delete;
    DatagramSocket& operator=(const DatagramSocket&) = delete;
    ~DatagramSocket() { close(); }

    // Opens the socket and binds it to the endpoint: from here on the system queues what arrives, but joins
    // no group. Several sockets may be bound to one multicast group, only one to a local address and port.
    [[nodiscard]] SocketOutcome bind(const DatagramEndpoint& endpoint);
    // Joins the endpoint's multicast group; does nothing for a local address. `close` leaves it.
    [[nodiscard]] SocketOutcome join(const DatagramEndpoint& endpoint);
    void close() noexcept;

    [[nodiscard]] bool isOpen() const noexcept { return m_handle != kNone; }
    [[nodiscard]] std::uint16_t localPort() const noexcept;
    // Bytes of datagrams that the socket buffer was granted.
    [[nodiscard]] std::uint32_t receiveBufferSize() const noexcept { return m_receiveBufferSize; }
    // Datagrams dropped since `bind` because the socket buffer was full; 0 where the system does not tell.
    [[nodiscard]] std::uint64_t drops() noexcept;
    // Throws away what the system has queued.
    void discardQueue() noexcept;

    [[nodiscard]] std::intptr_t handle() const noexcept { return m_handle; }

private:
    static constexpr std::intptr_t kNone = -1;
    std::intptr_t m_handle = kNone;
    std::uint32_t m_receiveBufferSize = 0;
    std::uint32_t m_lastDrops = 0;
    std::uint64_t m_drops = 0;
};

// Receives many datagrams at once, straight to where they are wanted. One per receiving thread; the memory
// that it sets aside for oversized datagrams is touched only when one comes.
class DatagramBatch {
public:
    static constexpr std::size_t kMaxDatagrams = 64;
    static constexpr std::size_t kMaxDatagramSize = 65536;
    static constexpr std::size_t kMaxHeaderSize = 16;

    DatagramBatch();
    DatagramBatch(const DatagramBatch&) = delete;
    DatagramBatch& operator=(const DatagramBatch&) = delete;
    ~DatagramBatch();

    // Receives up to `count` (at most kMaxDatagrams) queued datagrams. Of datagram i the first `headerSize`
    // bytes are stored apart, the next `slotSize` at target + i * slotSize, and what is left in an overflow
    // area. Returns how many came; 0 when none is queued.
    [[nodiscard]] std::size_t receive(DatagramSocket& socket, std::uint8_t* target, std::size_t headerSize,
                                      std::size_t slotSize, std::size_t count) noexcept;

    // Of the last `receive`: the whole length of datagram i, its header, and what went to the overflow area.
    [[nodiscard]] std::size_t length(std::size_t index) const noexcept;
    [[nodiscard]] std::span<const std::uint8_t, kMaxHeaderSize> header(std::size_t index) const noexcept;
    [[nodiscard]] std::span<const std::uint8_t> overflow(std::size_t index) const noexcept;

    // Memory for one whole batch of datagrams of any size, for whoever has to put one together.
    [[nodiscard]] std::uint8_t* scratch() noexcept;

private:
    struct Messages;
    std::unique_ptr<Messages> m_messages;
};

// Waits until any of many sockets has data. `add` and `remove` may be called from any thread, also while
// another one waits; the rest from one thread at a time.
class SocketWaiter {
public:
    SocketWaiter();
    SocketWaiter(const SocketWaiter&) = delete;
    SocketWaiter& operator=(const SocketWaiter&) = delete;
    ~SocketWaiter();

    // False when the system gave no resources for it.
    [[nodiscard]] bool isOpen() const noexcept;
    // From here on `token` is reported once as soon as the socket has data; `rearm` asks for it again.
    [[nodiscard]] bool add(const DatagramSocket& socket, std::uint64_t token) noexcept;
    void rearm(const DatagramSocket& socket, std::uint64_t token) noexcept;
    void remove(const DatagramSocket& socket) noexcept;
    // Replaces the contents of `ready` by the tokens of sockets with data. Returns at the latest after
    // `timeout`, or at once after `wake`, which any thread may call.
    void wait(std::chrono::milliseconds timeout, std::vector<std::uint64_t>& ready);
    void wake() noexcept;

private:
    struct Poll;
    std::unique_ptr<Poll> m_poll;
};

} // namespace KorvelVideo::NetworkSource
