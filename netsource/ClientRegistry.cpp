#include "ClientRegistry.h"

#include <algorithm>

#include "NetworkClient.h"
#include "NetworkClientCounters.h"

namespace KorvelVideo::NetworkSource {

ClientRegistry& ClientRegistry::instance() {
    static ClientRegistry registry;
    return registry;
}

void ClientRegistry::add(const NetworkClient& client) {
    const std::lock_guard lock(m_mutex);
    m_clients.push_back({&client, ++m_lastNumber});
}

void ClientRegistry::remove(const NetworkClient& client) noexcept {
    const std::lock_guard lock(m_mutex);
    std::erase_if(m_clients, [&client](const Entry& entry) { return entry.client == &client; });
}

std::uint32_t ClientRegistry::query(ClientCounters* clients, std::uint32_t capacity) const {
    const std::lock_guard lock(m_mutex);
    const auto count = static_cast<std::uint32_t>(m_clients.size());
    if (clients != nullptr && capacity != 0 && clients->size == sizeof(ClientCounters)) {
        for (std::uint32_t index = 0; index < std::min(count, capacity); ++index) {
            m_clients[index].client->fillCounters(clients[index]);
            clients[index].number = m_clients[index].number;
        }
    }
    return count;
}

} // namespace KorvelVideo::NetworkSource
