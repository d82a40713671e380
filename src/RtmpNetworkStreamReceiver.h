#pragma once

#include "NetworkStreamReceiver.h"

namespace KorvelVideo::Network {

// The consumer of one RTMP stream. It differs in what it makes of the client's notifications: the end of the
// stream is delivered at once, on the client's thread, as often as the client reports it; a disconnection
// while the receiver is being stopped is only logged; silence means nothing.
class RtmpNetworkStreamReceiver final : public NetworkStreamReceiver {
public:
    using NetworkStreamReceiver::NetworkStreamReceiver;

    void OnNotify(MainConcept::NetworkStreaming::_tagNetSourceNotifyType type, void* data) override;

    // Everything but the first activity, which OnNotify reports before it. Exceptions of the notifier pass
    // on.
    void handleNotification(MainConcept::NetworkStreaming::_tagNetSourceNotifyType type);

private:
    void notifyLastFrameAtOnce();
};

} // namespace KorvelVideo::Network
