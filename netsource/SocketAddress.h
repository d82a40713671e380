#pragma once

// What the files behind Sockets.h share: addresses of either family, and where the systems differ.
// SystemSockets.h is the one of the system that is built for; it brings the system's own headers.

#include <cstdint>
#include <optional>
#include <string>

#include "Sockets.h"
#include "SystemSockets.h"

namespace KorvelVideo::NetworkSource {

// An address of either family.
struct SocketAddress {
    sockaddr_storage storage{};
    socklen_t size = 0;

    [[nodiscard]] int family() const noexcept { return storage.ss_family; }
    [[nodiscard]] const sockaddr* get() const noexcept { return reinterpret_cast<const sockaddr*>(&storage); }
    [[nodiscard]] const sockaddr_in& v4() const noexcept {
        return reinterpret_cast<const sockaddr_in&>(storage);
    }
    [[nodiscard]] const sockaddr_in6& v6() const noexcept {
        return reinterpret_cast<const sockaddr_in6&>(storage);
    }
    void setPort(std::uint16_t port) noexcept {
        if (family() == AF_INET6) {
            reinterpret_cast<sockaddr_in6&>(storage).sin6_port = htons(port);
        } else {
            reinterpret_cast<sockaddr_in&>(storage).sin_port = htons(port);
        }
    }
    [[nodiscard]] bool isMulticast() const noexcept {
        return family() == AF_INET6 ? IN6_IS_ADDR_MULTICAST(&v6().sin6_addr)
                                    : (ntohl(v4().sin_addr.s_addr) >> 28) == 0xE;
    }
    [[nodiscard]] bool isAny() const noexcept {
        return family() == AF_INET6 ? IN6_IS_ADDR_UNSPECIFIED(&v6().sin6_addr)
                                    : v4().sin_addr.s_addr == htonl(INADDR_ANY);
    }
    [[nodiscard]] bool sameHost(const sockaddr* other) const noexcept {
        if (other->sa_family != family()) {
            return false;
        }
        return family() == AF_INET6
                   ? IN6_ARE_ADDR_EQUAL(&reinterpret_cast<const sockaddr_in6*>(other)->sin6_addr,
                                        &v6().sin6_addr)
                   : reinterpret_cast<const sockaddr_in*>(other)->sin_addr.s_addr == v4().sin_addr.s_addr;
    }
};

[[nodiscard]] SocketAddress makeSocketAddress(const sockaddr* address, socklen_t size) noexcept;

// Looks the name up; an address is taken as it is.
[[nodiscard]] SocketOutcome resolveHost(const std::string& host, int family, SocketAddress& address);

struct NetworkInterface {
    unsigned index = 0;
    std::optional<SocketAddress> address; // one of the family asked for
};

// Finds the interface of that name or with that local address. Each system has its own.
[[nodiscard]] SocketOutcome findInterface(const std::string& nameOrAddress, int family,
                                          NetworkInterface& result);

// The status of a failed system call. Each system has its own.
[[nodiscard]] MainConcept::NetworkStreaming::ClientStatus statusOfSocketError(int error) noexcept;

// Turns the failure of a system call into an outcome; `what` begins the text.
[[nodiscard]] SocketOutcome failWithError(int error, const std::string& what);

struct DatagramEndpoint::Addresses {
    SocketAddress local; // the group itself for multicast
    std::optional<SocketAddress> source;
    unsigned interfaceIndex = 0;
    bool multicast = false;
    std::string name; // as the user wrote it
};

} // namespace KorvelVideo::NetworkSource
