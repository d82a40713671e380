#include "AudioVideoInformation.h"

#include "Logging.h"

namespace KorvelVideo::Network {

H264Information::H264Information(const SKvVideoFormatDescription& format, std::uint32_t colourClass,
                                 std::uint32_t profile, std::uint32_t level) noexcept
    : TKvObject(L"H264Information", nullptr), m_format(format), m_colourClass(colourClass),
      m_profile(profile), m_level(level) {}

H264Information::~H264Information() {
    logText(kCategoryStream, kLevelLifetime, KV_SITE, "H264Information destructor.");
}

HRESULT H264Information::NonDelegatingQueryInterface(REFIID iid, void** object) {
    if (iid == IID_IKvNetworkReceiverH264Information) {
        return GetInterface(static_cast<IKvNetworkReceiverH264Information*>(this), object);
    }
    return CKvUnknown::NonDelegatingQueryInterface(iid, object);
}

AacInformation::AacInformation(std::uint32_t first, std::uint32_t second) noexcept
    : TKvObject(L"AacInformation", nullptr), m_firstValue(first), m_secondValue(second) {
    logText(kCategoryStream, kLevelLifetime, KV_SITE, "AacInformation constructor.");
}

AacInformation::~AacInformation() {
    logText(kCategoryStream, kLevelLifetime, KV_SITE, "AacInformation destructor.");
}

HRESULT AacInformation::NonDelegatingQueryInterface(REFIID iid, void** object) {
    if (iid == IID_IKvNetworkReceiverAacInformation) {
        return GetInterface(static_cast<IKvNetworkReceiverAacInformation*>(this), object);
    }
    return CKvUnknown::NonDelegatingQueryInterface(iid, object);
}

TsInformation::TsInformation() noexcept : TKvObject(L"tsInformation", nullptr) {
    logText(kCategoryStream, kLevelLifetime, KV_SITE, "TsInformation constructor.");
}

} // namespace KorvelVideo::Network
