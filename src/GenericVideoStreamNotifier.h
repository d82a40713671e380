#pragma once

#include "IAudioVideoReceptionNotifier.h"
#include "KvVideoInterfaces.h"
#include "TKvSmartPtr.h"

namespace KorvelVideo::Network {

// Delivers a video or transport stream byte for byte into host surfaces: one copy, straight from the received
// buffers, and no allocation of its own. No state but the sink, so no lock.
class GenericVideoStreamNotifier : public IAudioVideoReceptionNotifier {
public:
    // `videoReceiver` is the host's sink: not owned, no reference taken; it must outlive the notifier. Null
    // raises KV_E_INVALID_POINTER.
    explicit GenericVideoStreamNotifier(IKvVideoCallback* videoReceiver);

    // The host sees ProvideVideoSurface, Lock, SetTimeStampInfo, SignalWriteCompletion, DeliverVideoSurface
    // and the release of the notifier's reference; nothing at all for an access unit of 0 bytes.
    void notifyReception(const AccessUnit& accessUnit, std::uint64_t timeStamp) override;
    HRESULT notifyStatus(HRESULT status) override;

protected:
    // A host surface, locked and filled with the access unit; empty when the access unit has 0 bytes.
    [[nodiscard]] TKvSmartPtr<IKvSurface> getSurface(const AccessUnit& accessUnit);

    // Stamps the surface, completes it and gives it to the host; the host's results are not looked at.
    void deliverSurface(const TKvSmartPtr<IKvSurface>& surface, std::uint64_t timeStamp);

private:
    IKvVideoCallback* m_videoReceiver;
};

} // namespace KorvelVideo::Network
