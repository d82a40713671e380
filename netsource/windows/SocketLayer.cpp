#include "SystemSockets.h"

#include "Sockets.h"

namespace KorvelVideo::NetworkSource {

bool startSocketLayer() noexcept {
    WSADATA data{};
    return WSAStartup(MAKEWORD(2, 2), &data) == 0;
}

bool stopSocketLayer() noexcept { return WSACleanup() == 0; }

} // namespace KorvelVideo::NetworkSource
