#pragma once

#include "CKvUnknown.h"
#include "KvNetworkReceiver.h"

namespace KorvelVideo::Network {

class RtpReceiverFactory final : public TKvObject<IKvRtpReceiverFactory> {
public:
    // Makes the factory, with count 0; null with a code in *result when there is no memory.
    static CKvUnknown* CreateInstance(IUnknown* outer, HRESULT* result);

    RtpReceiverFactory() noexcept;

    HRESULT NonDelegatingQueryInterface(REFIID iid, void** object) override;
    HRESULT CreateReceiver(IKvRtpReceiverSettings* settings, IKvNetworkStreamDetectorCallback* callback,
                           IKvNetworkReceiverController** receiver) override;
};

} // namespace KorvelVideo::Network
