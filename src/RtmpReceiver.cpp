#include "RtmpReceiver.h"

namespace KorvelVideo::Network {

RtmpReceiver::RtmpReceiver(IKvRtmpReceiverSettings* settings, IKvNetworkStreamDetectorCallback* callback)
    : RtmpReceiver(settings, callback, readSource(settings)) {}

RtmpReceiver::RtmpReceiver(IKvRtmpReceiverSettings* settings, IKvNetworkStreamDetectorCallback* callback,
                           const ReceiverSource& source)
    : BaseReceiver(L"RTMP RECEIVER", callback, source.url, source.networkInterfaceCard, true, 2) {
    if (settings->GetPort() >= 1) {
        m_port = static_cast<std::uint16_t>(settings->GetPort());
        setLocalPort(m_port);
    }
}

HRESULT RtmpReceiver::Stop() {
    const HRESULT result = BaseReceiver::Stop();
    // Inside a callback the stop itself comes later; what is pending is dropped now, before a worker could
    // deliver it.
    forEachStream(&NetworkStreamReceiver::clearSamples);
    forEachStream(&NetworkStreamReceiver::forceEndOfStream);
    return result;
}

HRESULT RtmpReceiver::Redirect(const char* url) {
    if (const HRESULT result = BaseReceiver::Redirect(url); result != S_OK) {
        return result;
    }
    closeClientOnFailure([this] {
        if (m_port != 0) {
            setLocalPort(m_port);
        }
    });
    return BaseReceiver::Start();
}

} // namespace KorvelVideo::Network
