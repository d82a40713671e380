#include "NetworkCounters.h"

#include <algorithm>

#include "NetworkClientCounters.h"
#include "PlatformModule.h"

namespace KorvelVideo::Host {

using NetworkSource::ClientCounters;

namespace {

constexpr const char* libraryName = KV_NETWORK_LIBRARY;
constexpr const char* queryName = "GetNetworkClientCounters";

} // namespace

NetworkCounters::NetworkCounters() = default;
NetworkCounters::~NetworkCounters() = default;

void NetworkCounters::refresh() {
    if (!m_isSearched) {
        m_isSearched = true;
        // Already in the process with the module; kept until the process ends, as the module is.
        if (HMODULE library = LoadLibraryA(libraryName); library != nullptr) {
            m_query = reinterpret_cast<Query>(reinterpret_cast<void*>(GetProcAddress(library, queryName)));
        }
    }
    if (m_query == nullptr) {
        return;
    }
    std::uint32_t count = 0;
    do {
        m_clients.resize(std::max<std::size_t>({m_clients.size(), count, 1}));
        m_clients.front().size = sizeof(ClientCounters);
        count = m_query(m_clients.data(), static_cast<std::uint32_t>(m_clients.size()));
    } while (count > m_clients.size());
    m_clients.resize(count);
}

std::optional<Loss> NetworkCounters::lossOf(const void* receiver) const {
    const auto found =
        std::find_if(m_clients.begin(), m_clients.end(), [receiver](const ClientCounters& client) {
            return receiver != nullptr && client.receiver == receiver;
        });
    if (found == m_clients.end()) {
        return std::nullopt;
    }
    Loss loss;
    loss.systemDrops = found->kernelDrops;
    loss.rtpLost = found->rtpLost;
    loss.damaged = found->damaged;
    loss.unbufferedBytes = found->unbufferedBytes;
    loss.continuityErrors = found->continuityErrors;
    return loss;
}

} // namespace KorvelVideo::Host
