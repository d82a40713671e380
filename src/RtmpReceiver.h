#pragma once

#include "BaseReceiver.h"
#include "ReceiverSource.h"

namespace KorvelVideo::Network {

// Receives from an RTMP server.
class RtmpReceiver final : public BaseReceiver {
public:
    RtmpReceiver(IKvRtmpReceiverSettings* settings, IKvNetworkStreamDetectorCallback* callback);

    // Beyond the base: finishes every stream as if its source had ended, also when called again.
    HRESULT Stop() override;

    // Beyond the base: sets the client's parameters anew and starts.
    HRESULT Redirect(const char* url) override;

private:
    RtmpReceiver(IKvRtmpReceiverSettings* settings, IKvNetworkStreamDetectorCallback* callback,
                 const ReceiverSource& source);

    std::uint16_t m_port = 0; // 0 when the settings gave none
};

} // namespace KorvelVideo::Network
