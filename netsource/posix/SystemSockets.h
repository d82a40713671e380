#pragma once

// The system's socket headers, and the calls of theirs whose form differs between systems.

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <string>
#include <system_error>

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

namespace KorvelVideo::NetworkSource {

inline int systemSocket(std::intptr_t handle) noexcept { return static_cast<int>(handle); }

inline int lastSocketError() noexcept { return errno; }

inline bool setSocketOption(std::intptr_t handle, int level, int name, const void* value,
                            std::size_t size) noexcept {
    return setsockopt(systemSocket(handle), level, name, value, static_cast<socklen_t>(size)) == 0;
}

// What getaddrinfo's result means.
inline std::string describeLookUpError(int result) {
    return result == EAI_SYSTEM ? std::system_category().message(errno) : gai_strerror(result);
}

} // namespace KorvelVideo::NetworkSource
