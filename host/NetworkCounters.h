#pragma once

#include <optional>
#include <vector>

#include "Report.h"

namespace KorvelVideo::NetworkSource {
struct ClientCounters;
}

namespace KorvelVideo::Host {

// What the network client counts, asked for where the module's network client has such a query.
class NetworkCounters {
public:
    NetworkCounters();
    ~NetworkCounters();
    NetworkCounters(const NetworkCounters&) = delete;
    NetworkCounters& operator=(const NetworkCounters&) = delete;

    // Asks once for all clients. The module must be loaded.
    void refresh();
    // The loss of the client that belongs to `receiver`, as of the last refresh; none when it is not known.
    [[nodiscard]] std::optional<Loss> lossOf(const void* receiver) const;

private:
    using Query = std::uint32_t (*)(NetworkSource::ClientCounters* clients, std::uint32_t capacity);

    Query m_query = nullptr;
    bool m_isSearched = false;
    std::vector<NetworkSource::ClientCounters> m_clients;
};

} // namespace KorvelVideo::Host
