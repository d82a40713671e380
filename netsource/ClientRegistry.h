#pragma once

#include <cstdint>
#include <mutex>
#include <vector>

namespace KorvelVideo::NetworkSource {

class NetworkClient;
struct ClientCounters;

// The clients that live in the process, in order of creation, numbered from 1.
class ClientRegistry {
public:
    [[nodiscard]] static ClientRegistry& instance();

    // The client is complete: from here on another thread's query may look at it.
    void add(const NetworkClient& client);
    // When it returns, no query looks at the client any more.
    void remove(const NetworkClient& client) noexcept;
    [[nodiscard]] std::uint32_t query(ClientCounters* clients, std::uint32_t capacity) const;

private:
    struct Entry {
        const NetworkClient* client;
        std::uint32_t number;
    };

    mutable std::mutex m_mutex;
    std::uint32_t m_lastNumber = 0;
    std::vector<Entry> m_clients;
};

} // namespace KorvelVideo::NetworkSource
