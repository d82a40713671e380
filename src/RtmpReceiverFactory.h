#pragma once

#include "CKvUnknown.h"
#include "KvNetworkReceiver.h"

namespace KorvelVideo::Network {

class RtmpReceiverFactory final : public TKvObject<IKvRtmpReceiverFactory> {
public:
    // Makes the factory, with count 0; null with a code in *result when there is no memory.
    static CKvUnknown* CreateInstance(IUnknown* outer, HRESULT* result);

    RtmpReceiverFactory() noexcept;

    HRESULT NonDelegatingQueryInterface(REFIID iid, void** object) override;
    HRESULT CreateReceiver(IKvRtmpReceiverSettings* settings, IKvNetworkStreamDetectorCallback* callback,
                           IKvNetworkReceiverController** receiver) override;
};

} // namespace KorvelVideo::Network
