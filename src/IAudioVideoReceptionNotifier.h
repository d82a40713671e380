#pragma once

#include <cstdint>

#include "AccessUnit.h"
#include "PlatformCom.h"

namespace KorvelVideo::Network {

// The end of an elementary stream inside the module: copies each access unit into a buffer that the host
// lends, and passes status codes on. Called by the stream's NetworkStreamReceiver, on whatever thread that
// runs on.
class IAudioVideoReceptionNotifier {
public:
    virtual ~IAudioVideoReceptionNotifier() = default;

    // Delivers one access unit with its time stamp, unchanged. A failure loses this access unit only: it is
    // logged, and no CKvVaneException leaves the call.
    virtual void notifyReception(const AccessUnit& accessUnit, std::uint64_t timeStamp) = 0;

    // Passes a status code to the host's sink and returns its answer.
    virtual HRESULT notifyStatus(HRESULT status) = 0;
};

} // namespace KorvelVideo::Network
