#pragma once

#include "BaseReceiver.h"
#include "ReceiverSource.h"

namespace KorvelVideo::Network {

// Receives from an RTSP server. The client may fall back to interleaved TCP.
class RtspReceiver final : public BaseReceiver {
public:
    RtspReceiver(IKvRtspReceiverSettings* settings, IKvNetworkStreamDetectorCallback* callback);

    // Beyond the base: sets the client's parameters anew and starts.
    HRESULT Redirect(const char* url) override;

private:
    RtspReceiver(IKvRtspReceiverSettings* settings, IKvNetworkStreamDetectorCallback* callback,
                 const ReceiverSource& source);
    void setInterleavedFallback();

    std::uint16_t m_port = 0; // 0 when the settings gave none
};

} // namespace KorvelVideo::Network
