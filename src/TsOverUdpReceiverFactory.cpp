#include "TsOverUdpReceiverFactory.h"

#include "ReceiverFactory.h"
#include "TsOverUdpReceiver.h"

namespace KorvelVideo::Network {

TsOverUdpReceiverFactory::TsOverUdpReceiverFactory() noexcept
    : TKvObject(L"TsOverUdpReceiverFactory", nullptr) {}

CKvUnknown* TsOverUdpReceiverFactory::CreateInstance(IUnknown* /*outer*/, HRESULT* result) {
    return createFactory<TsOverUdpReceiverFactory>(result);
}

HRESULT TsOverUdpReceiverFactory::NonDelegatingQueryInterface(REFIID iid, void** object) {
    if (iid == IID_IKvTsOverUdpReceiverFactory) {
        return GetInterface(static_cast<IKvTsOverUdpReceiverFactory*>(this), object);
    }
    return CKvUnknown::NonDelegatingQueryInterface(iid, object);
}

HRESULT TsOverUdpReceiverFactory::CreateReceiver(IKvTsOverUdpReceiverSettings* settings,
                                                 IKvNetworkStreamDetectorCallback* callback,
                                                 IKvNetworkReceiverController** receiver) {
    return createReceiver<TsOverUdpReceiver>(settings, callback, receiver, {KV_E_UNKNOWN_ERROR}, {KV_SITE});
}

} // namespace KorvelVideo::Network
