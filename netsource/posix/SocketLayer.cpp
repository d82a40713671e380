#include "Sockets.h"

namespace KorvelVideo::NetworkSource {

bool startSocketLayer() noexcept { return true; }
bool stopSocketLayer() noexcept { return true; }

} // namespace KorvelVideo::NetworkSource
