#include "RtspReceiverFactory.h"

#include "ReceiverFactory.h"
#include "RtspReceiver.h"

namespace KorvelVideo::Network {

RtspReceiverFactory::RtspReceiverFactory() noexcept : TKvObject(L"RtspReceiverFactory", nullptr) {}

CKvUnknown* RtspReceiverFactory::CreateInstance(IUnknown* /*outer*/, HRESULT* result) {
    return createFactory<RtspReceiverFactory>(result);
}

HRESULT RtspReceiverFactory::NonDelegatingQueryInterface(REFIID iid, void** object) {
    if (iid == IID_IKvRtspReceiverFactory) {
        return GetInterface(static_cast<IKvRtspReceiverFactory*>(this), object);
    }
    return CKvUnknown::NonDelegatingQueryInterface(iid, object);
}

HRESULT RtspReceiverFactory::CreateReceiver(IKvRtspReceiverSettings* settings,
                                            IKvNetworkStreamDetectorCallback* callback,
                                            IKvNetworkReceiverController** receiver) {
    return createReceiver<RtspReceiver>(settings, callback, receiver, {KV_E_UNKNOWN_ERROR}, {KV_SITE});
}

} // namespace KorvelVideo::Network
