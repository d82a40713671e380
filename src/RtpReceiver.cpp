#include "RtpReceiver.h"

#include "ReceiverSource.h"
#include "SessionDescription.h"

namespace KorvelVideo::Network {

RtpReceiver::RtpReceiver(IKvRtpReceiverSettings* settings, IKvNetworkStreamDetectorCallback* callback)
    : RtpReceiver(readParameters(settings), callback) {}

RtpReceiver::RtpReceiver(const Parameters& parameters, IKvNetworkStreamDetectorCallback* callback)
    : BaseReceiver(L"RTP RECEIVER", callback, parameters.url.c_str(), parameters.networkInterfaceCard,
                   parameters.clientOption != 0, parameters.clientOption) {}

RtpReceiver::Parameters RtpReceiver::readParameters(IKvRtpReceiverSettings* settings) {
    Parameters parameters;
    if (settings != nullptr) {
        parameters.clientOption = settings->GetClientOptionValue();
    }
    const ReceiverSource source = readSource(settings);
    parameters.networkInterfaceCard = source.networkInterfaceCard;
    parameters.url = loadSessionDescription(source.url);
    return parameters;
}

HRESULT RtpReceiver::Redirect(const char* url) {
    const std::string text = loadSessionDescription(url);
    const HRESULT result = BaseReceiver::Redirect(text.c_str());
    return result == S_OK ? BaseReceiver::Start() : result;
}

} // namespace KorvelVideo::Network
