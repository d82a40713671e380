#include "RtpReceiverFactory.h"

#include "ReceiverFactory.h"
#include "RtpReceiver.h"

namespace KorvelVideo::Network {

RtpReceiverFactory::RtpReceiverFactory() noexcept : TKvObject(L"RtpReceiverFactory", nullptr) {}

CKvUnknown* RtpReceiverFactory::CreateInstance(IUnknown* /*outer*/, HRESULT* result) {
    return createFactory<RtpReceiverFactory>(result);
}

HRESULT RtpReceiverFactory::NonDelegatingQueryInterface(REFIID iid, void** object) {
    if (iid == IID_IKvRtpReceiverFactory) {
        return GetInterface(static_cast<IKvRtpReceiverFactory*>(this), object);
    }
    return CKvUnknown::NonDelegatingQueryInterface(iid, object);
}

HRESULT RtpReceiverFactory::CreateReceiver(IKvRtpReceiverSettings* settings,
                                           IKvNetworkStreamDetectorCallback* callback,
                                           IKvNetworkReceiverController** receiver) {
    return createReceiver<RtpReceiver>(settings, callback, receiver, {KV_E_UNKNOWN_ERROR}, {KV_SITE});
}

} // namespace KorvelVideo::Network
