#include "Sockets.h"
#include "StreamingSdk.h"

namespace NetworkSource = KorvelVideo::NetworkSource;
using MainConcept::NetworkStreaming::kSocketServiceOk;

namespace {

// Status of the socket layer's functions when the layer gives no service.
constexpr std::int32_t kSocketServiceFailed = 3;

} // namespace

extern "C" {

std::int32_t StartSocketService() {
    return NetworkSource::startSocketLayer() ? kSocketServiceOk : kSocketServiceFailed;
}

std::int32_t StopSocketService() {
    return NetworkSource::stopSocketLayer() ? kSocketServiceOk : kSocketServiceFailed;
}
}
