#include "SocketAddress.h"

#include <cstring>
#include <system_error>
#include <utility>

namespace KorvelVideo::NetworkSource {

using namespace MainConcept::NetworkStreaming;

namespace {

SocketOutcome fail(ClientStatus status, std::string problem) { return {status, std::move(problem)}; }

} // namespace

SocketAddress makeSocketAddress(const sockaddr* address, socklen_t size) noexcept {
    SocketAddress result;
    std::memcpy(&result.storage, address, static_cast<std::size_t>(size));
    result.size = size;
    return result;
}

SocketOutcome failWithError(int error, const std::string& what) {
    return fail(statusOfSocketError(error), what + ": " + std::system_category().message(error));
}

SocketOutcome resolveHost(const std::string& host, int family, SocketAddress& address) {
    addrinfo hints{};
    hints.ai_family = family;
    hints.ai_socktype = SOCK_DGRAM;
    addrinfo* found = nullptr;
    const int result = getaddrinfo(host.c_str(), nullptr, &hints, &found);
    if (result != 0) {
        return fail(result == EAI_MEMORY ? keClientOutOfMemory : keClientUnknownHost,
                    "the address \"" + host + "\" is unknown: " + describeLookUpError(result));
    }
    address = makeSocketAddress(found->ai_addr, static_cast<socklen_t>(found->ai_addrlen));
    freeaddrinfo(found);
    return {};
}

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
        SocketAddress resolved;
        if (SocketOutcome outcome = resolveHost(source, to.local.family(), resolved); !outcome.ok()) {
            return outcome;
        }
        to.source = resolved;
    }
    if (!networkInterface.empty()) {
        NetworkInterface found;
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

SocketOutcome DatagramSocket::join(const DatagramEndpoint& endpoint) {
    const DatagramEndpoint::Addresses& to = *endpoint.m_addresses;
    if (!to.multicast) {
        return {};
    }
    const int level = to.local.family() == AF_INET6 ? IPPROTO_IPV6 : IPPROTO_IP;
    bool joined = false;
    if (to.source) {
        group_source_req request{};
        request.gsr_interface = to.interfaceIndex;
        request.gsr_group = to.local.storage;
        request.gsr_source = to.source->storage;
        joined = setSocketOption(m_handle, level, MCAST_JOIN_SOURCE_GROUP, &request, sizeof(request));
    } else {
        group_req request{};
        request.gr_interface = to.interfaceIndex;
        request.gr_group = to.local.storage;
        joined = setSocketOption(m_handle, level, MCAST_JOIN_GROUP, &request, sizeof(request));
    }
    return joined ? SocketOutcome{}
                  : failWithError(lastSocketError(), "the group " + to.name + " cannot be joined");
}

std::uint16_t DatagramSocket::localPort() const noexcept {
    sockaddr_storage storage{};
    socklen_t size = sizeof(storage);
    if (!isOpen() || getsockname(systemSocket(m_handle), reinterpret_cast<sockaddr*>(&storage), &size) != 0) {
        return 0;
    }
    return ntohs(storage.ss_family == AF_INET6 ? reinterpret_cast<const sockaddr_in6&>(storage).sin6_port
                                               : reinterpret_cast<const sockaddr_in&>(storage).sin_port);
}

} // namespace KorvelVideo::NetworkSource
