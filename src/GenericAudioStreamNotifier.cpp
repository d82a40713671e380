#include "GenericAudioStreamNotifier.h"

#include "CodecConfiguration.h"
#include "Logging.h"
#include "Raise.h"

namespace KorvelVideo::Network {

GenericAudioStreamNotifier::GenericAudioStreamNotifier(IKvAudioCallback* audioReceiver,
                                                       const std::uint8_t* configData,
                                                       std::uint32_t configLength)
    : m_audioReceiver(audioReceiver) {
    if (m_audioReceiver == nullptr) {
        KV_THROW(KV_E_INVALID_POINTER);
    }
    createCodecConfigDataAccess(configData, configLength, m_codecConfigDataAccess);
    logText(kCategoryStream, kLevelLifetime, KV_SITE, "GenericAudioStreamNotifier constructor.");
}

GenericAudioStreamNotifier::~GenericAudioStreamNotifier() {
    logText(kCategoryStream, kLevelLifetime, KV_SITE, "GenericAudioStreamNotifier destructor.");
}

void GenericAudioStreamNotifier::fillSamples(const AccessUnit& accessUnit, std::uint32_t bufferSizeToAskFor,
                                             std::uint64_t timeStamp,
                                             TKvSmartPtr<IKvAudioSamples>& audioSamples) {
    KV_THROW_IF_FAILED(m_audioReceiver->ProvideAudioSamples(bufferSizeToAskFor, &audioSamples));
    if (!audioSamples) {
        KV_THROW(KV_E_INVALID_POINTER);
    }
    std::uint8_t* audioSamplesBuffer = nullptr;
    std::uint32_t audioSamplesBufferSize = 0;
    KV_THROW_IF_FAILED(audioSamples->GetBufferAndLength(&audioSamplesBuffer, &audioSamplesBufferSize));
    if (audioSamplesBufferSize < bufferSizeToAskFor) {
        KV_THROW(KV_E_BUFFER_SIZE_TOO_SMALL);
    }
    // A host that reports room but no address would have the copy write to address 0.
    if (audioSamplesBuffer == nullptr) {
        KV_THROW(KV_E_INVALID_POINTER);
    }
    copyAccessUnit(accessUnit, audioSamplesBuffer);
    KV_THROW_IF_FAILED(audioSamples->SetTimeStampInfo(&timeStamp));
    static_cast<void>(
        audioSamples->AttachCustomObject(IID_IKvAACCodecConfigDataAccess, m_codecConfigDataAccess));
    KV_THROW_IF_FAILED(audioSamples->SignalWriteCompletion());
}

void GenericAudioStreamNotifier::notifyReception(const AccessUnit& accessUnit, std::uint64_t timeStamp) {
    TKvSmartPtr<IKvAudioSamples> audioSamples;
    bool isComplete = false;
    try {
        const std::uint32_t bufferSizeToAskFor = getAccessUnitSize(accessUnit);
        if (bufferSizeToAskFor == 0) {
            return;
        }
        fillSamples(accessUnit, bufferSizeToAskFor, timeStamp, audioSamples);
        isComplete = true;
        logPrintf(kCategoryStream, kLevelLifetime, KV_SITE,
                  "GenericAudioStreamNotifier::notifyReception.bufferSizeToAskFor:%d", bufferSizeToAskFor);
        static_cast<void>(m_audioReceiver->DeliverAudioSamples(audioSamples));
    } catch (const CKvVaneException& exception) {
        logCaughtException(exception);
        if (!isComplete && !!audioSamples) {
            completeUndelivered(audioSamples);
        }
    }
}

// A host that redirects from inside the call may throw the module's own exception again.
void GenericAudioStreamNotifier::completeUndelivered(const TKvSmartPtr<IKvAudioSamples>& audioSamples) {
    try {
        static_cast<void>(audioSamples->SignalWriteCompletion());
    } catch (const CKvVaneException& exception) {
        logCaughtException(exception);
    }
}

HRESULT GenericAudioStreamNotifier::notifyStatus(HRESULT status) {
    return m_audioReceiver->NotifyStatus(status);
}

} // namespace KorvelVideo::Network
