#include "RtmpReceiverFactory.h"

#include "ReceiverFactory.h"
#include "RtmpReceiver.h"

namespace KorvelVideo::Network {

RtmpReceiverFactory::RtmpReceiverFactory() noexcept : TKvObject(L"RtmpReceiverFactory", nullptr) {}

CKvUnknown* RtmpReceiverFactory::CreateInstance(IUnknown* /*outer*/, HRESULT* result) {
    return createFactory<RtmpReceiverFactory>(result);
}

HRESULT RtmpReceiverFactory::NonDelegatingQueryInterface(REFIID iid, void** object) {
    if (iid == IID_IKvRtmpReceiverFactory) {
        return GetInterface(static_cast<IKvRtmpReceiverFactory*>(this), object);
    }
    return CKvUnknown::NonDelegatingQueryInterface(iid, object);
}

HRESULT RtmpReceiverFactory::CreateReceiver(IKvRtmpReceiverSettings* settings,
                                            IKvNetworkStreamDetectorCallback* callback,
                                            IKvNetworkReceiverController** receiver) {
    return createReceiver<RtmpReceiver>(settings, callback, receiver,
                                        {KV_E_UNKNOWN_ERROR, kvResult(0x89998296)}, {KV_SITE});
}

} // namespace KorvelVideo::Network
