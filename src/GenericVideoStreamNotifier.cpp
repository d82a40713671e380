#include "GenericVideoStreamNotifier.h"

#include "Logging.h"
#include "Raise.h"

namespace KorvelVideo::Network {

GenericVideoStreamNotifier::GenericVideoStreamNotifier(IKvVideoCallback* videoReceiver)
    : m_videoReceiver(videoReceiver) {
    if (m_videoReceiver == nullptr) {
        KV_THROW(KV_E_INVALID_POINTER);
    }
}

TKvSmartPtr<IKvSurface> GenericVideoStreamNotifier::getSurface(const AccessUnit& accessUnit) {
    TKvSmartPtr<IKvSurface> incomingSurface;
    const std::uint32_t bufferSizeToAskFor = getAccessUnitSize(accessUnit);
    if (bufferSizeToAskFor == 0) {
        return incomingSurface;
    }
    KV_THROW_IF_FAILED(m_videoReceiver->ProvideVideoSurface(bufferSizeToAskFor, &incomingSurface));
    if (!incomingSurface) {
        KV_THROW(KV_E_INVALID_POINTER);
    }
    SKvLockedSurfaceDescription lockedSurfaceDescription{};
    lockedSurfaceDescription.m_size = sizeof(lockedSurfaceDescription);
    KV_THROW_IF_FAILED(incomingSurface->Lock(0, keKvFaceTypeFront, &lockedSurfaceDescription));
    if (lockedSurfaceDescription.m_bufferCapacity < bufferSizeToAskFor) {
        KV_THROW(KV_E_BUFFER_SIZE_TOO_SMALL);
    }
    // A host that reports room but no address would have the copy write to address 0.
    if (lockedSurfaceDescription.m_buffer == nullptr) {
        KV_THROW(KV_E_INVALID_POINTER);
    }
    copyAccessUnit(accessUnit, lockedSurfaceDescription.m_buffer);
    return incomingSurface;
}

void GenericVideoStreamNotifier::deliverSurface(const TKvSmartPtr<IKvSurface>& surface,
                                                std::uint64_t timeStamp) {
    static_cast<void>(surface->SetTimeStampInfo(&timeStamp));
    static_cast<void>(surface->SignalWriteCompletion());
    static_cast<void>(m_videoReceiver->DeliverVideoSurface(surface));
}

void GenericVideoStreamNotifier::notifyReception(const AccessUnit& accessUnit, std::uint64_t timeStamp) {
    try {
        const TKvSmartPtr<IKvSurface> surface = getSurface(accessUnit);
        if (!!surface) {
            deliverSurface(surface, timeStamp);
        }
    } catch (const CKvVaneException& exception) {
        logCaughtException(exception);
    }
}

HRESULT GenericVideoStreamNotifier::notifyStatus(HRESULT status) {
    return m_videoReceiver->NotifyStatus(status);
}

} // namespace KorvelVideo::Network
