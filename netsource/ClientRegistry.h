#pragma once

#include <cstdint>
#include <mutex>
#include <vector>

namespace KorvelVideo::NetworkSource {

class NetworkClient;
struct ClientCounters;

// The clients that live in the process, in order of creation.
class ClientRegistry {
public:
    [[nodiscard]] static ClientRegistry& instance();

    // Returns the client's number.
    [[nodiscard]] std::uint32_t add(const NetworkClient& client);
    // When it returns, no query looks at the client any more.
    void remove(const NetworkClient& client) noexcept;
    [[nodiscard]] std::uint32_t query(ClientCounters* clients, std::uint32_t capacity) const;

private:
    mutable std::mutex m_mutex;
    std::uint32_t m_lastNumber = 0;
    std::vector<const NetworkClient*> m_clients;
};

} // namespace KorvelVideo::NetworkSource
