#include "SocketAddress.h"

#include <array>
#include <memory>
#include <string_view>
#include <vector>

#include <iphlpapi.h>

namespace KorvelVideo::NetworkSource {

using namespace MainConcept::NetworkStreaming;

namespace {

template <class Value>
bool setOption(std::intptr_t handle, int level, int name, Value value) noexcept {
    return setSocketOption(handle, level, name, &value, sizeof(value));
}

// Whether a receive fails with what an earlier datagram met; in mstcpip.h of some compilers only.
constexpr DWORD kReportConnectionResets = IOC_IN | IOC_VENDOR | 12;

// Reports of a port unreachable, which an earlier datagram may have met, must not fail a receive.
void refuseConnectionResets(SOCKET handle) noexcept {
    DWORD enabled = 0;
    DWORD returned = 0;
    WSAIoctl(handle, kReportConnectionResets, &enabled, sizeof(enabled), nullptr, 0, &returned, nullptr,
             nullptr);
}

// Every adapter of the computer with its addresses; empty on failure, which is stored in `error`.
std::unique_ptr<std::byte[]> listAdapters(ULONG& error) {
    // The size asked for may have grown when the list is read: a few rounds.
    ULONG size = 16 * 1024;
    for (int round = 0; round < 4; ++round) {
        auto list = std::make_unique<std::byte[]>(size);
        error = GetAdaptersAddresses(
            AF_UNSPEC, GAA_FLAG_SKIP_ANYCAST | GAA_FLAG_SKIP_MULTICAST | GAA_FLAG_SKIP_DNS_SERVER, nullptr,
            reinterpret_cast<IP_ADAPTER_ADDRESSES*>(list.get()), &size);
        if (error != ERROR_BUFFER_OVERFLOW) {
            return error == ERROR_SUCCESS ? std::move(list) : nullptr;
        }
    }
    return nullptr;
}

std::string narrow(const wchar_t* text) {
    std::array<char, 512> bytes{};
    const int length = WideCharToMultiByte(CP_ACP, 0, text, -1, bytes.data(), static_cast<int>(bytes.size()),
                                           nullptr, nullptr);
    return length > 0 ? bytes.data() : std::string();
}

// Of one family, or the one that equals `wanted`.
const sockaddr* findAddress(const IP_ADAPTER_ADDRESSES& adapter, int family, const SocketAddress* wanted) {
    for (const auto* entry = adapter.FirstUnicastAddress; entry != nullptr; entry = entry->Next) {
        const sockaddr* address = entry->Address.lpSockaddr;
        if (wanted != nullptr ? wanted->sameHost(address) : address->sa_family == family) {
            return address;
        }
    }
    return nullptr;
}

} // namespace

ClientStatus statusOfSocketError(int error) noexcept {
    switch (error) {
    case WSAEACCES:
        return keClientAccessDenied;
    case WSAEADDRNOTAVAIL:
        return keClientNotFound;
    case WSAEAFNOSUPPORT:
    case WSAEPROTONOSUPPORT:
        return keClientNotSupported;
    case WSAENOBUFS:
    case WSAEMFILE:
        return keClientOutOfMemory;
    default:
        return keClientConnectionFailed;
    }
}

SocketOutcome findInterface(const std::string& nameOrAddress, int family, NetworkInterface& result) {
    ULONG error = 0;
    const std::unique_ptr<std::byte[]> list = listAdapters(error);
    if (list == nullptr) {
        return failWithError(static_cast<int>(error), "the network interfaces cannot be listed");
    }
    SocketAddress wanted;
    std::array<std::uint8_t, sizeof(in6_addr)> bytes{};
    const bool isAddress = inet_pton(AF_INET, nameOrAddress.c_str(), bytes.data()) == 1 ||
                           inet_pton(AF_INET6, nameOrAddress.c_str(), bytes.data()) == 1;
    if (isAddress) {
        if (SocketOutcome outcome = resolveHost(nameOrAddress, AF_UNSPEC, wanted); !outcome.ok()) {
            return outcome;
        }
    }
    for (const auto* adapter = reinterpret_cast<const IP_ADAPTER_ADDRESSES*>(list.get()); adapter != nullptr;
         adapter = adapter->Next) {
        const sockaddr* address = isAddress ? findAddress(*adapter, family, &wanted) : nullptr;
        // The name that a person sees, or the system's own.
        if (address == nullptr && (isAddress || (narrow(adapter->FriendlyName) != nameOrAddress &&
                                                 adapter->AdapterName != nameOrAddress))) {
            continue;
        }
        if (address == nullptr || address->sa_family != family) {
            address = findAddress(*adapter, family, nullptr);
        }
        result.index = family == AF_INET6 ? adapter->Ipv6IfIndex : adapter->IfIndex;
        if (address != nullptr) {
            result.address =
                makeSocketAddress(address, family == AF_INET6 ? sizeof(sockaddr_in6) : sizeof(sockaddr_in));
        }
        return {};
    }
    return {keClientNotFound, "there is no network interface \"" + nameOrAddress + "\""};
}

SocketOutcome DatagramSocket::bind(const DatagramEndpoint& endpoint) {
    const DatagramEndpoint::Addresses& to = *endpoint.m_addresses;
    close();
    const SOCKET handle = WSASocketW(to.local.family(), SOCK_DGRAM, IPPROTO_UDP, nullptr, 0,
                                     WSA_FLAG_OVERLAPPED | WSA_FLAG_NO_HANDLE_INHERIT);
    if (handle == INVALID_SOCKET) {
        return failWithError(lastSocketError(), "no socket can be opened");
    }
    m_handle = static_cast<std::intptr_t>(handle);
    m_drops = 0;
    m_lastDrops = 0;
    u_long nonBlocking = 1;
    ioctlsocket(handle, static_cast<long>(FIONBIO), &nonBlocking);
    refuseConnectionResets(handle);
    setOption(m_handle, SOL_SOCKET, SO_RCVBUF, static_cast<int>(kReceiveBufferSize));
    int granted = 0;
    int size = sizeof(granted);
    getsockopt(handle, SOL_SOCKET, SO_RCVBUF, reinterpret_cast<char*>(&granted), &size);
    m_receiveBufferSize = static_cast<std::uint32_t>(granted);

    SocketAddress local = to.local;
    if (to.multicast) {
        setOption(m_handle, SOL_SOCKET, SO_REUSEADDR, 1);
        // A group cannot be bound to here; every local address stands for it.
        if (local.family() == AF_INET6) {
            reinterpret_cast<sockaddr_in6&>(local.storage).sin6_addr = in6_addr{};
        } else {
            reinterpret_cast<sockaddr_in&>(local.storage).sin_addr.s_addr = htonl(INADDR_ANY);
        }
    } else {
        setOption(m_handle, SOL_SOCKET, SO_EXCLUSIVEADDRUSE, 1);
        if (local.family() == AF_INET6) {
            setOption(m_handle, IPPROTO_IPV6, IPV6_V6ONLY,
                      0); // "[::]" means every local address of both families
        }
    }
    if (::bind(handle, local.get(), local.size) != 0) {
        SocketOutcome outcome = failWithError(lastSocketError(), to.name + " cannot be received on");
        close();
        return outcome;
    }
    return {};
}

void DatagramSocket::close() noexcept {
    if (isOpen()) {
        closesocket(systemSocket(m_handle));
        m_handle = kNone;
    }
}

// The system does not tell.
std::uint64_t DatagramSocket::drops() noexcept { return m_drops; }

void DatagramSocket::discardQueue() noexcept {
    // Bounded: whoever sends faster than this reads gets his datagrams delivered.
    for (std::size_t count = 0; count < 65536; ++count) {
        char byte = 0;
        // A datagram longer than the buffer is cut, which is reported as an error.
        if (recv(systemSocket(m_handle), &byte, sizeof(byte), 0) < 0 && lastSocketError() != WSAEMSGSIZE) {
            return;
        }
    }
}

} // namespace KorvelVideo::NetworkSource
