#pragma once

#include <cstdint>

#include "CKvUnknown.h"
#include "KvStreamInformation.h"
#include "KvVideoFormat.h"

namespace KorvelVideo::Network {

// What the host learns of a stream before it chooses a sink. Fixed at construction, so every operation may be
// called from any thread. Each is born with count 0 and ends with its last reference, on whatever thread.
// Each answers IUnknown and its own interface; the common IKvNetworkReceiverStreamInformation is only handed
// over, never queried for.

// An H.264 stream.
class H264Information final : public TKvObject<IKvNetworkReceiverH264Information> {
public:
    H264Information(const SKvVideoFormatDescription& format, std::uint32_t colourClass, std::uint32_t profile,
                    std::uint32_t level) noexcept;
    ~H264Information() override;

    HRESULT NonDelegatingQueryInterface(REFIID iid, void** object) override;

    std::uint32_t GetStreamType() override { return keKvStreamTypeH264; }
    SKvVideoFormatDescription GetVideoFormat() override { return m_format; }
    std::uint32_t GetColourClass() override { return m_colourClass; }
    std::uint32_t GetProfile() override { return m_profile; }
    std::uint32_t GetLevel() override { return m_level; }

private:
    const SKvVideoFormatDescription m_format;
    const std::uint32_t m_colourClass;
    const std::uint32_t m_profile;
    const std::uint32_t m_level;
};

// An AAC stream, plain or framed.
class AacInformation final : public TKvObject<IKvNetworkReceiverAacInformation> {
public:
    AacInformation(std::uint32_t first, std::uint32_t second) noexcept;
    ~AacInformation() override;

    HRESULT NonDelegatingQueryInterface(REFIID iid, void** object) override;

    std::uint32_t GetStreamType() override { return keKvStreamTypeAac; }
    std::uint32_t GetFirstValue() override { return m_firstValue; }
    std::uint32_t GetSecondValue() override { return m_secondValue; }

private:
    const std::uint32_t m_firstValue;
    const std::uint32_t m_secondValue;
};

// An MPEG-2 transport stream. It has no interface of its own beyond the common one, so it answers IUnknown
// only.
class TsInformation final : public TKvObject<IKvNetworkReceiverStreamInformation> {
public:
    TsInformation() noexcept;

    std::uint32_t GetStreamType() override { return keKvStreamTypeTransportStream; }
};

} // namespace KorvelVideo::Network
