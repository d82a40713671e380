#include "RtmpNetworkStreamReceiver.h"

#include "CallbackScope.h"
#include "Logging.h"

namespace KorvelVideo::Network {

using MainConcept::NetworkStreaming::_tagNetSourceNotifyType;

void RtmpNetworkStreamReceiver::OnNotify(_tagNetSourceNotifyType type, void* /*data*/) {
    const CallbackScope scope;
    if (type == MainConcept::NetworkStreaming::keNotifyActivity) {
        notifyFirstActivity();
    }
    handleNotification(type);
}

void RtmpNetworkStreamReceiver::handleNotification(_tagNetSourceNotifyType type) {
    HRESULT code = S_OK;
    switch (type) {
    case MainConcept::NetworkStreaming::keNotifyDisconnected:
        if (m_stopCalled) {
            logText(kCategoryStream, kLevelEvent, KV_SITE, "Got Disconnect because Stop was called.");
            return;
        }
        code = KV_E_DISCONNECTED;
        break;
    case MainConcept::NetworkStreaming::keNotifyNotice:
        code = KV_S_STREAM_NOTICE;
        break;
    case MainConcept::NetworkStreaming::keNotifyEndOfStream:
        m_activityNotified = false;
        notifyLastFrameAtOnce();
        code = KV_S_STREAM_ENDED;
        break;
    default:
        return;
    }
    static_cast<void>(m_notifier->notifyStatus(code));
}

void RtmpNetworkStreamReceiver::notifyLastFrameAtOnce() {
    TakenSamples last(*this);
    last.take();
    if (!last.empty()) {
        logText(kCategoryStream, kLevelEvent, KV_SITE,
                ("Notified last frame for RTMP End of Stream " + streamIdentifier()).c_str());
        last.deliver();
    }
}

} // namespace KorvelVideo::Network
