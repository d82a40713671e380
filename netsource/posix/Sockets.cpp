#include "Sockets.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <optional>
#include <system_error>
#include <utility>

#include <arpa/inet.h>
#include <fcntl.h>
#include <ifaddrs.h>
#include <linux/sock_diag.h>
#include <net/if.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace KorvelVideo::NetworkSource {

using namespace MainConcept::NetworkStreaming;

namespace {

// An address of either family.
struct Address {
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
                                    : IN_MULTICAST(ntohl(v4().sin_addr.s_addr));
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

Address makeAddress(const sockaddr* address, socklen_t size) noexcept {
    Address result;
    std::memcpy(&result.storage, address, size);
    result.size = size;
    return result;
}

std::string describeError(int error) { return std::system_category().message(error); }

SocketOutcome fail(ClientStatus status, std::string problem) { return {status, std::move(problem)}; }

// Turns the failure of a system call into an outcome; `what` begins the text.
SocketOutcome failWithError(int error, const std::string& what) {
    ClientStatus status = keClientConnectionFailed;
    switch (error) {
    case EACCES:
    case EPERM:
        status = keClientAccessDenied;
        break;
    case EADDRNOTAVAIL:
    case ENODEV:
    case ENXIO:
        status = keClientNotFound;
        break;
    case EAFNOSUPPORT:
    case EPROTONOSUPPORT:
        status = keClientNotSupported;
        break;
    case ENOMEM:
    case ENOBUFS:
    case EMFILE:
    case ENFILE:
        status = keClientOutOfMemory;
        break;
    default:
        break;
    }
    return fail(status, what + ": " + describeError(error));
}

SocketOutcome resolveHost(const std::string& host, int family, Address& address) {
    addrinfo hints{};
    hints.ai_family = family;
    hints.ai_socktype = SOCK_DGRAM;
    addrinfo* found = nullptr;
    const int result = getaddrinfo(host.c_str(), nullptr, &hints, &found);
    if (result != 0) {
        const std::string reason = result == EAI_SYSTEM ? describeError(errno) : gai_strerror(result);
        return fail(result == EAI_MEMORY ? keClientOutOfMemory : keClientUnknownHost,
                    "the address \"" + host + "\" is unknown: " + reason);
    }
    address = makeAddress(found->ai_addr, found->ai_addrlen);
    freeaddrinfo(found);
    return {};
}

struct Interface {
    unsigned index = 0;
    std::optional<Address> address; // one of the family asked for
};

// Finds the interface of that name or with that local address.
SocketOutcome findInterface(const std::string& nameOrAddress, int family, Interface& result) {
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
        Address wanted;
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
        return fail(keClientNotFound, "there is no network interface \"" + nameOrAddress + "\"");
    }
    for (const ifaddrs* entry = list; entry != nullptr && !result.address; entry = entry->ifa_next) {
        if (entry->ifa_addr != nullptr && entry->ifa_name == name && entry->ifa_addr->sa_family == family) {
            result.address =
                makeAddress(entry->ifa_addr, family == AF_INET6 ? sizeof(sockaddr_in6) : sizeof(sockaddr_in));
        }
    }
    return {};
}

int fileOf(std::intptr_t handle) noexcept { return static_cast<int>(handle); }

bool setOption(int file, int level, int name, int value) noexcept {
    return setsockopt(file, level, name, &value, sizeof(value)) == 0;
}

} // namespace

bool startSocketLayer() noexcept { return true; }
bool stopSocketLayer() noexcept { return true; }

struct DatagramEndpoint::Addresses {
    Address local; // the group itself for multicast, so that nothing else on the port comes in
    std::optional<Address> source;
    unsigned interfaceIndex = 0;
    bool multicast = false;
    std::string name; // as the user wrote it
};

DatagramEndpoint::DatagramEndpoint() : m_addresses(std::make_unique<Addresses>()) {}
DatagramEndpoint::~DatagramEndpoint() = default;

bool DatagramEndpoint::isMulticast() const noexcept { return m_addresses->multicast; }

void DatagramEndpoint::setPort(std::uint16_t port) noexcept { m_addresses->local.setPort(port); }

SocketOutcome DatagramEndpoint::resolve(const std::string& source, const std::string& address,
                                        std::uint16_t port, const std::string& networkInterface) {
    Addresses& to = *m_addresses;
    to.name =
        (address.empty() ? "every local address" : "\"" + address + "\"") + ", port " + std::to_string(port);
    if (SocketOutcome outcome = resolveHost(address.empty() ? "0.0.0.0" : address, AF_UNSPEC, to.local);
        !outcome.ok()) {
        return outcome;
    }
    to.multicast = to.local.isMulticast();
    if (!source.empty()) {
        if (!to.multicast) {
            return fail(keClientInvalidParameter, "the source \"" + source +
                                                      "\" goes with a multicast group only, and \"" +
                                                      address + "\" is none");
        }
        Address resolved;
        if (SocketOutcome outcome = resolveHost(source, to.local.family(), resolved); !outcome.ok()) {
            return outcome;
        }
        to.source = resolved;
    }
    if (!networkInterface.empty()) {
        Interface found;
        if (SocketOutcome outcome = findInterface(networkInterface, to.local.family(), found);
            !outcome.ok()) {
            return outcome;
        }
        to.interfaceIndex = found.index;
        if (to.local.isAny()) {
            if (!found.address) {
                return fail(keClientNotFound, "the network interface \"" + networkInterface +
                                                  "\" has no address to receive on");
            }
            to.local = *found.address;
        }
    }
    to.local.setPort(port);
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
    Address local = to.local;
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

SocketOutcome DatagramSocket::join(const DatagramEndpoint& endpoint) {
    const DatagramEndpoint::Addresses& to = *endpoint.m_addresses;
    if (!to.multicast) {
        return {};
    }
    const int level = to.local.family() == AF_INET6 ? IPPROTO_IPV6 : IPPROTO_IP;
    int result = 0;
    if (to.source) {
        group_source_req request{};
        request.gsr_interface = to.interfaceIndex;
        request.gsr_group = to.local.storage;
        request.gsr_source = to.source->storage;
        result = setsockopt(fileOf(m_handle), level, MCAST_JOIN_SOURCE_GROUP, &request, sizeof(request));
    } else {
        group_req request{};
        request.gr_interface = to.interfaceIndex;
        request.gr_group = to.local.storage;
        result = setsockopt(fileOf(m_handle), level, MCAST_JOIN_GROUP, &request, sizeof(request));
    }
    return result == 0 ? SocketOutcome{} : failWithError(errno, "the group " + to.name + " cannot be joined");
}

void DatagramSocket::close() noexcept {
    if (isOpen()) {
        ::close(fileOf(m_handle));
        m_handle = kNone;
    }
}

std::uint16_t DatagramSocket::localPort() const noexcept {
    sockaddr_storage storage{};
    socklen_t size = sizeof(storage);
    if (!isOpen() || getsockname(fileOf(m_handle), reinterpret_cast<sockaddr*>(&storage), &size) != 0) {
        return 0;
    }
    return ntohs(storage.ss_family == AF_INET6 ? reinterpret_cast<const sockaddr_in6&>(storage).sin6_port
                                               : reinterpret_cast<const sockaddr_in&>(storage).sin_port);
}

std::uint64_t DatagramSocket::drops() noexcept {
    std::array<std::uint32_t, SK_MEMINFO_VARS> memory{};
    socklen_t size = sizeof(memory);
    if (isOpen() && getsockopt(fileOf(m_handle), SOL_SOCKET, SO_MEMINFO, memory.data(), &size) == 0 &&
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
        if (recv(fileOf(m_handle), &byte, sizeof(byte), MSG_DONTWAIT | MSG_TRUNC) < 0) {
            return;
        }
    }
}

} // namespace KorvelVideo::NetworkSource
