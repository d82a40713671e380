#pragma once

#include "IAudioVideoReceptionNotifier.h"
#include "KvAudioInterfaces.h"
#include "TKvSmartPtr.h"

namespace KorvelVideo::Network {

// Delivers an AAC stream whose pieces arrive framed: each piece is a LOAS frame (ISO/IEC 14496-3, 1.7.2) or,
// when it does not begin with the LOAS syncword, a length prefix and the raw AAC payload. The host gets the
// payload alone, all pieces of an access unit back to back in one sample buffer, with the stream's codec
// configuration attached.
//
// The payload is copied once, straight from the received buffers. No allocation of its own but the parser's
// records of a LOAS frame. Nothing is kept between access units, so a LOAS frame must carry its own
// configuration; no state but the sink and the configuration object, so no lock.
class LatmStreamNotifier final : public IAudioVideoReceptionNotifier {
public:
    // As GenericAudioStreamNotifier.
    LatmStreamNotifier(IKvAudioCallback* audioReceiver, const std::uint8_t* configData,
                       std::uint32_t configLength);
    LatmStreamNotifier(const LatmStreamNotifier&) = delete;
    LatmStreamNotifier& operator=(const LatmStreamNotifier&) = delete;
    ~LatmStreamNotifier() override;

    // The host sees ProvideAudioSamples (with 0, too), GetBufferAndLength, SetTimeStampInfo,
    // AttachCustomObject, SignalWriteCompletion, DeliverAudioSamples and the release of the notifier's
    // reference. A buffer that was lent and cannot be filled is released without any further call. A failed
    // allocation of the parser passes on.
    void notifyReception(const AccessUnit& accessUnit, std::uint64_t timeStamp) override;
    HRESULT notifyStatus(HRESULT status) override;

private:
    [[nodiscard]] TKvSmartPtr<IKvAudioSamples> getSamples(const AccessUnit& accessUnit);

    IKvAudioCallback* m_audioReceiver;
    TKvSmartPtr<IKvAACCodecConfigDataAccess> m_codecConfigDataAccess;
};

// The payload size of a piece in the length-prefixed framing: k bytes of 255, one byte b below 255, then
// 255 x k + b bytes of payload. A prefix that does not fit the length of the piece is logged, and `length` is
// returned: the whole piece is payload then. Sizes beyond 31 bits are to be read back as unsigned.
[[nodiscard]] std::int32_t getTarventBufferSizeFromHeader(const std::uint8_t* data, std::uint32_t length);

} // namespace KorvelVideo::Network
