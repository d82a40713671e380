#pragma once

#include "BaseReceiver.h"
#include "ReceiverSource.h"

namespace KorvelVideo::Network {

// Receives an MPEG-2 transport stream in UDP datagrams.
class TsOverUdpReceiver final : public BaseReceiver {
public:
    TsOverUdpReceiver(IKvTsOverUdpReceiverSettings* settings, IKvNetworkStreamDetectorCallback* callback);

    // Beyond the base: starts.
    HRESULT Redirect(const char* url) override;

private:
    TsOverUdpReceiver(const ReceiverSource& source, IKvNetworkStreamDetectorCallback* callback);
};

} // namespace KorvelVideo::Network
