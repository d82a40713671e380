#include "TsOverUdpReceiver.h"

namespace KorvelVideo::Network {

TsOverUdpReceiver::TsOverUdpReceiver(IKvTsOverUdpReceiverSettings* settings,
                                     IKvNetworkStreamDetectorCallback* callback)
    : TsOverUdpReceiver(readSource(settings), callback) {}

TsOverUdpReceiver::TsOverUdpReceiver(const ReceiverSource& source, IKvNetworkStreamDetectorCallback* callback)
    : BaseReceiver(L"TS OVER UDP RECEIVER", callback, source.url, source.networkInterfaceCard, false, 0) {}

HRESULT TsOverUdpReceiver::Redirect(const char* url) {
    const HRESULT result = BaseReceiver::Redirect(url);
    return result == S_OK ? BaseReceiver::Start() : result;
}

} // namespace KorvelVideo::Network
