#pragma once

#include <string>

#include "BaseReceiver.h"

namespace KorvelVideo::Network {

// Receives RTP, from a URL or as a session description file says.
class RtpReceiver final : public BaseReceiver {
public:
    RtpReceiver(IKvRtpReceiverSettings* settings, IKvNetworkStreamDetectorCallback* callback);

    // Takes a URL or the path of a description file. Beyond the base: starts.
    HRESULT Redirect(const char* url) override;

private:
    struct Parameters {
        std::uint32_t clientOption = 0; // 0: none
        const char* networkInterfaceCard = nullptr;
        std::string url;
    };

    RtpReceiver(const Parameters& parameters, IKvNetworkStreamDetectorCallback* callback);
    static Parameters readParameters(IKvRtpReceiverSettings* settings);
};

} // namespace KorvelVideo::Network
