#pragma once

#include "CKvUnknown.h"
#include "KvNetworkReceiver.h"

namespace KorvelVideo::Network {

class TsOverUdpReceiverFactory final : public TKvObject<IKvTsOverUdpReceiverFactory> {
public:
    // Makes the factory, with count 0; null with a code in *result when there is no memory.
    static CKvUnknown* CreateInstance(IUnknown* outer, HRESULT* result);

    TsOverUdpReceiverFactory() noexcept;

    HRESULT NonDelegatingQueryInterface(REFIID iid, void** object) override;
    HRESULT CreateReceiver(IKvTsOverUdpReceiverSettings* settings, IKvNetworkStreamDetectorCallback* callback,
                           IKvNetworkReceiverController** receiver) override;
};

} // namespace KorvelVideo::Network
