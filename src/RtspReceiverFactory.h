#pragma once

#include "CKvUnknown.h"
#include "KvNetworkReceiver.h"

namespace KorvelVideo::Network {

class RtspReceiverFactory final : public TKvObject<IKvRtspReceiverFactory> {
public:
    // Makes the factory, with count 0; null with a code in *result when there is no memory.
    static CKvUnknown* CreateInstance(IUnknown* outer, HRESULT* result);

    RtspReceiverFactory() noexcept;

    HRESULT NonDelegatingQueryInterface(REFIID iid, void** object) override;
    HRESULT CreateReceiver(IKvRtspReceiverSettings* settings, IKvNetworkStreamDetectorCallback* callback,
                           IKvNetworkReceiverController** receiver) override;
};

} // namespace KorvelVideo::Network
