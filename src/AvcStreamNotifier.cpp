#include "AvcStreamNotifier.h"

#include "Logging.h"
#include "Raise.h"

namespace KorvelVideo::Network {

AvcStreamNotifier::~AvcStreamNotifier() {
    logText(kCategoryStream, kLevelLifetime, KV_SITE, "GenericVideoStreamNotifier destructor.");
}

void AvcStreamNotifier::notifyReception(const AccessUnit& accessUnit, std::uint64_t timeStamp) {
    try {
        const TKvSmartPtr<IKvSurface> incomingSurface = getSurface(accessUnit);
        if (!incomingSurface) {
            return;
        }
        SKvLockedSurfaceDescription lockedSurfaceDescription{};
        lockedSurfaceDescription.m_size = sizeof(lockedSurfaceDescription);
        KV_THROW_IF_FAILED(incomingSurface->Lock(0, keKvFaceTypeFront, &lockedSurfaceDescription));
        deliverSurface(incomingSurface, timeStamp);
    } catch (const CKvVaneException& exception) {
        logCaughtException(exception);
    }
}

} // namespace KorvelVideo::Network
