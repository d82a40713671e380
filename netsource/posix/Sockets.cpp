#include "SocketAddress.h"

#include <array>
#include <memory>

#include <fcntl.h>
#include <ifaddrs.h>
#include <linux/sock_diag.h>
#include <net/if.h>
#include <unistd.h>

namespace KorvelVideo::NetworkSource {

using namespace MainConcept::NetworkStreaming;

namespace {

bool setOption(int file, int level, int name, int value) noexcept {
    return setSocketOption(file, level, name, &value, sizeof(value));
}

} // namespace

ClientStatus statusOfSocketError(int error) noexcept {
    switch (error) {
    case EACCES:
    case EPERM:
        return keClientAccessDenied;
    case EADDRNOTAVAIL:
    case ENODEV:
    case ENXIO:
        return keClientNotFound;
    case EAFNOSUPPORT:
    case EPROTONOSUPPORT:
        return keClientNotSupported;
    case ENOMEM:
    case ENOBUFS:
    case EMFILE:
    case ENFILE:
        return keClientOutOfMemory;
    default:
        return keClientConnectionFailed;
    }
}

SocketOutcome findInterface(const std::string& nameOrAddress, int family, NetworkInterface& result) {
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0) {
        return failWithError(errno, "the network interfaces cannot be listed");
    }
    const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> owner(list, &freeifaddrs);
    std::string name = nameOrAddress;
    std::array<std::uint8_t, sizeof(in6_addr)> bytes{};
    const int addressFamily = inet_pton(AF_INET, nameOrAddress.c_str(), bytes.data()) == 1    ? AF_INET
                              : inet_pton(AF_INET6, nameOrAddress.c_str(), bytes.data()) == 1 ? AF_INET6
                                                                                              : AF_UNSPEC;
    if (addressFamily != AF_UNSPEC) {
        SocketAddress wanted;
        if (SocketOutcome outcome = resolveHost(nameOrAddress, addressFamily, wanted); !outcome.ok()) {
            return outcome;
        }
        name.clear();
        for (const ifaddrs* entry = list; entry != nullptr && name.empty(); entry = entry->ifa_next) {
            if (entry->ifa_addr != nullptr && wanted.sameHost(entry->ifa_addr)) {
                name = entry->ifa_name;
                if (addressFamily == family) {
                    result.address = wanted;
                }
            }
        }
    }
    result.index = name.empty() ? 0 : if_nametoindex(name.c_str());
    if (result.index == 0) {
        return {keClientNotFound, "there is no network interface \"" + nameOrAddress + "\""};
    }
    for (const ifaddrs* entry = list; entry != nullptr && !result.address; entry = entry->ifa_next) {
        if (entry->ifa_addr != nullptr && entry->ifa_name == name && entry->ifa_addr->sa_family == family) {
            result.address = makeSocketAddress(entry->ifa_addr, family == AF_INET6 ? sizeof(sockaddr_in6)
                                                                                   : sizeof(sockaddr_in));
        }
    }
    return {};
}

SocketOutcome DatagramSocket::bind(const DatagramEndpoint& endpoint) {
    const DatagramEndpoint::Addresses& to = *endpoint.m_addresses;
    close();
    const int file = socket(to.local.family(), SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, IPPROTO_UDP);
    if (file < 0) {
        return failWithError(errno, "no socket can be opened");
    }
    m_handle = file;
    m_drops = 0;
    m_lastDrops = 0;
    constexpr int kWanted = static_cast<int>(kReceiveBufferSize);
    if (!setOption(file, SOL_SOCKET, SO_RCVBUFFORCE, kWanted)) { // needs a privilege
        setOption(file, SOL_SOCKET, SO_RCVBUF, kWanted);
    }
    int granted = 0;
    socklen_t size = sizeof(granted);
    getsockopt(file, SOL_SOCKET, SO_RCVBUF, &granted, &size);
    m_receiveBufferSize =
        static_cast<std::uint32_t>(granted) / 2; // the system doubles it for its own records

    if (to.multicast) {
        setOption(file, SOL_SOCKET, SO_REUSEADDR, 1);
        if (to.local.family() == AF_INET) { // only what this socket joins, not what any other joins
            setOption(file, IPPROTO_IP, IP_MULTICAST_ALL, 0);
        } else {
            setOption(file, IPPROTO_IPV6, IPV6_MULTICAST_ALL, 0);
        }
    } else if (to.local.family() == AF_INET6) {
        setOption(file, IPPROTO_IPV6, IPV6_V6ONLY, 0); // "[::]" means every local address of both families
    }
    SocketAddress local = to.local;
    if (local.family() == AF_INET6 && to.multicast && IN6_IS_ADDR_MC_LINKLOCAL(&local.v6().sin6_addr) &&
        to.interfaceIndex != 0) {
        reinterpret_cast<sockaddr_in6&>(local.storage).sin6_scope_id = to.interfaceIndex;
    }
    if (::bind(file, local.get(), local.size) != 0) {
        SocketOutcome outcome = failWithError(errno, to.name + " cannot be received on");
        close();
        return outcome;
    }
    return {};
}

void DatagramSocket::close() noexcept {
    if (isOpen()) {
        ::close(systemSocket(m_handle));
        m_handle = kNone;
    }
}

std::uint64_t DatagramSocket::drops() noexcept {
    std::array<std::uint32_t, SK_MEMINFO_VARS> memory{};
    socklen_t size = sizeof(memory);
    if (isOpen() && getsockopt(systemSocket(m_handle), SOL_SOCKET, SO_MEMINFO, memory.data(), &size) == 0 &&
        size > SK_MEMINFO_DROPS * sizeof(std::uint32_t)) {
        const std::uint32_t now = memory[SK_MEMINFO_DROPS];
        m_drops += now - m_lastDrops; // the system's counter wraps at 32 bits
        m_lastDrops = now;
    }
    return m_drops;
}

void DatagramSocket::discardQueue() noexcept {
    // Bounded: whoever sends faster than this reads gets his datagrams delivered.
    for (std::size_t count = 0; count < 65536; ++count) {
        std::uint8_t byte = 0;
        if (recv(systemSocket(m_handle), &byte, sizeof(byte), MSG_DONTWAIT | MSG_TRUNC) < 0) {
            return;
        }
    }
}

} // namespace KorvelVideo::NetworkSource
