#include "AudioVideoInformation.h"

#include <cstring>

#include "ComContract.h"
#include "RecordingLogger.h"

using namespace KorvelVideo::Network;

namespace {

constexpr SKvVideoFormatDescription kFormat{28, 1920, 1080, 8, 2, 3, 3};

// With one reference, by the interface that the host is handed.
template <class Interface>
Interface* referenced(Interface* information) {
    information->AddRef();
    return information;
}

IKvNetworkReceiverH264Information* newH264() {
    return referenced<IKvNetworkReceiverH264Information>(new H264Information(kFormat, 4, 100, 40));
}
IKvNetworkReceiverAacInformation* newAac() {
    return referenced<IKvNetworkReceiverAacInformation>(new AacInformation(5, 7));
}
IKvNetworkReceiverStreamInformation* newTs() {
    return referenced<IKvNetworkReceiverStreamInformation>(new TsInformation);
}

// A class as the three are made of, but inside another object.
class Part final : public TKvObject<IKvNetworkReceiverAacInformation> {
public:
    explicit Part(IUnknown* outer) : TKvObject(L"part", outer) {}
    HRESULT NonDelegatingQueryInterface(REFIID iid, void** object) override {
        return iid == IID_IKvNetworkReceiverAacInformation
                   ? GetInterface(static_cast<IKvNetworkReceiverAacInformation*>(this), object)
                   : CKvUnknown::NonDelegatingQueryInterface(iid, object);
    }
    std::uint32_t GetStreamType() override { return keKvStreamTypeAac; }
    std::uint32_t GetFirstValue() override { return 0; }
    std::uint32_t GetSecondValue() override { return 0; }
};

const IID& kAny = IID_IKvNetworkReceiverStreamInformation;
const IID& kH264 = IID_IKvNetworkReceiverH264Information;
const IID& kAac = IID_IKvNetworkReceiverAacInformation;

INSTANTIATE_TEST_SUITE_P(StreamInformation, ComContract,
                         testing::Values(ComSubject{"H264Information", newH264, {kH264}, {kAny, kAac}},
                                         ComSubject{"AacInformation", newAac, {kAac}, {kAny, kH264}},
                                         ComSubject{"TsInformation", newTs, {}, {kAny, kH264, kAac}},
                                         aggregated("PartOfAnother",
                                                    [](IUnknown* outer) -> CKvUnknown* {
                                                        return new Part(outer);
                                                    },
                                                    {kAac}, {kAny})),
                         nameOfSubject);

TEST(StreamInformation, ValuesPassThroughUnchangedAndLifeIsLogged) {
    RecordingLogger::clear();
    auto* const h264 = newH264();
    EXPECT_EQ(h264->GetStreamType(), 1U);
    const SKvVideoFormatDescription format = h264->GetVideoFormat();
    EXPECT_EQ(std::memcmp(&format, &kFormat, sizeof(format)), 0);
    EXPECT_EQ(h264->GetColourClass(), 4U);
    EXPECT_EQ(h264->GetProfile(), 100U);
    EXPECT_EQ(h264->GetLevel(), 40U);
    h264->Release();
    auto* const aac = newAac();
    EXPECT_EQ(aac->GetStreamType(), 2U);
    EXPECT_EQ(aac->GetFirstValue(), 5U);
    EXPECT_EQ(aac->GetSecondValue(), 7U);
    aac->Release();
    auto* const ts = newTs();
    EXPECT_EQ(ts->GetStreamType(), 3U);
    ts->Release();
    EXPECT_EQ(RecordingLogger::takeLines(true), (std::vector<LogLine>{{3, 0, "H264Information destructor."},
                                                                      {3, 0, "AacInformation constructor."},
                                                                      {3, 0, "AacInformation destructor."},
                                                                      {3, 0, "TsInformation constructor."}}));
    for (const std::string& site : RecordingLogger::takeSites()) {
        EXPECT_EQ(site.rfind("src/AudioVideoInformation|", 0), 0U) << site;
    }
}

} // namespace
