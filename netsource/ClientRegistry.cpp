#include "ClientRegistry.h"

#include <algorithm>

#include "NetworkClient.h"
#include "NetworkClientCounters.h"

namespace KorvelVideo::NetworkSource {

ClientRegistry& ClientRegistry::instance() {
    static ClientRegistry registry;
    return registry;
}

std::uint32_t ClientRegistry::add(const NetworkClient& client) {
    const std::lock_guard lock(m_mutex);
    m_clients.push_back(&client);
    return ++m_lastNumber;
}

void ClientRegistry::remove(const NetworkClient& client) noexcept {
    const std::lock_guard lock(m_mutex);
    std::erase(m_clients, &client);
}

std::uint32_t ClientRegistry::query(ClientCounters* clients, std::uint32_t capacity) const {
    const std::lock_guard lock(m_mutex);
    const auto count = static_cast<std::uint32_t>(m_clients.size());
    if (clients != nullptr && capacity != 0 && clients->size == sizeof(ClientCounters)) {
        for (std::uint32_t index = 0; index < std::min(count, capacity); ++index) {
            m_clients[index]->fillCounters(clients[index]);
        }
    }
    return count;
}

} // namespace KorvelVideo::NetworkSource
