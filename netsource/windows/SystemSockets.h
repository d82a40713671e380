#pragma once

// The system's socket headers, and the calls of theirs whose form differs between systems.

#include <cstddef>
#include <cstdint>
#include <string>
#include <system_error>

// Before windows.h, which would bring the headers of the first socket interface.
#include <winsock2.h>
#include <ws2tcpip.h>

namespace KorvelVideo::NetworkSource {

inline SOCKET systemSocket(std::intptr_t handle) noexcept { return static_cast<SOCKET>(handle); }

inline int lastSocketError() noexcept { return WSAGetLastError(); }

inline bool setSocketOption(std::intptr_t handle, int level, int name, const void* value,
                            std::size_t size) noexcept {
    return setsockopt(systemSocket(handle), level, name, static_cast<const char*>(value),
                      static_cast<int>(size)) == 0;
}

// What getaddrinfo's result means: it is an error code of the socket layer here.
inline std::string describeLookUpError(int result) { return std::system_category().message(result); }

} // namespace KorvelVideo::NetworkSource
