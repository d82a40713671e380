#include "RtspReceiver.h"

namespace KorvelVideo::Network {

RtspReceiver::RtspReceiver(IKvRtspReceiverSettings* settings, IKvNetworkStreamDetectorCallback* callback)
    : RtspReceiver(settings, callback, readSource(settings)) {}

RtspReceiver::RtspReceiver(IKvRtspReceiverSettings* settings, IKvNetworkStreamDetectorCallback* callback,
                           const ReceiverSource& source)
    : BaseReceiver(L"RTSP RECEIVER", callback, source.url, source.networkInterfaceCard, false, 0) {
    setInterleavedFallback();
    if (settings->GetPort() >= 1) {
        m_port = static_cast<std::uint16_t>(settings->GetPort());
        setLocalPort(m_port);
    }
}

HRESULT RtspReceiver::Redirect(const char* url) {
    if (const HRESULT result = BaseReceiver::Redirect(url); result != S_OK) {
        return result;
    }
    closeClientOnFailure([this] {
        setInterleavedFallback();
        if (m_port != 0) {
            setLocalPort(m_port);
        }
    });
    return BaseReceiver::Start();
}

void RtspReceiver::setInterleavedFallback() {
    const std::uint32_t allowed = 1;
    setOption(MainConcept::NetworkStreaming::keParameterInterleavedFallback, &allowed, sizeof(allowed));
}

} // namespace KorvelVideo::Network
