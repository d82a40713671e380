#pragma once

#include "IAudioVideoReceptionNotifier.h"
#include "KvAudioInterfaces.h"
#include "TKvSmartPtr.h"

namespace KorvelVideo::Network {

// Delivers an AAC stream that arrives as plain access units into host sample buffers, each with the stream's
// codec configuration attached: one copy, straight from the received buffers, and no allocation of its own.
// No state but the sink and the configuration object, so no lock.
class GenericAudioStreamNotifier final : public IAudioVideoReceptionNotifier {
public:
    // `audioReceiver` is the host's sink: not owned, no reference taken; it must outlive the notifier. Null
    // raises KV_E_INVALID_POINTER. `configData` is the stream's AudioSpecificConfig (ISO/IEC
    // 14496-3, 1.6.2.1), may be null, and is read during the call only. COM must be usable on the calling
    // thread: CKvSmartPointerException when the host's configuration object cannot be created.
    GenericAudioStreamNotifier(IKvAudioCallback* audioReceiver, const std::uint8_t* configData,
                               std::uint32_t configLength);
    GenericAudioStreamNotifier(const GenericAudioStreamNotifier&) = delete;
    GenericAudioStreamNotifier& operator=(const GenericAudioStreamNotifier&) = delete;
    ~GenericAudioStreamNotifier() override;

    // The host sees ProvideAudioSamples, GetBufferAndLength, SetTimeStampInfo, AttachCustomObject,
    // SignalWriteCompletion, DeliverAudioSamples and the release of the notifier's reference; nothing at all
    // for an access unit of 0 bytes. A buffer that was lent and cannot be delivered gets
    // SignalWriteCompletion.
    void notifyReception(const AccessUnit& accessUnit, std::uint64_t timeStamp) override;
    HRESULT notifyStatus(HRESULT status) override;

private:
    void fillSamples(const AccessUnit& accessUnit, std::uint32_t bufferSizeToAskFor, std::uint64_t timeStamp,
                     TKvSmartPtr<IKvAudioSamples>& audioSamples);
    static void completeUndelivered(const TKvSmartPtr<IKvAudioSamples>& audioSamples);

    IKvAudioCallback* m_audioReceiver;
    TKvSmartPtr<IKvAACCodecConfigDataAccess> m_codecConfigDataAccess;
};

} // namespace KorvelVideo::Network
