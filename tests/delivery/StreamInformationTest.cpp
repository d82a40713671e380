#include "AudioVideoInformation.h"

#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ComContract.h"
#include "RecordingLogger.h"

using namespace KorvelVideo::Network;

namespace {

using Lines = std::vector<LogLine>;

constexpr SKvVideoFormatDescription kFormat{28, 1920, 1080, 8, 2, 3, 3};

// With one reference, by the interface that the host is handed.
template <class Information>
IKvNetworkReceiverStreamInformation* referenced(Information* information) {
    information->AddRef();
    return information;
}

IKvNetworkReceiverStreamInformation* newH264() {
    return referenced(new H264Information(kFormat, 4, 100, 40));
}

IKvNetworkReceiverStreamInformation* newAac() { return referenced(new AacInformation(5, 7)); }

IKvNetworkReceiverStreamInformation* newTs() { return referenced(new TsInformation); }

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

INSTANTIATE_TEST_SUITE_P(
    StreamInformation, ComContract,
    testing::Values(
        ComSubject{"H264Information",
                   newH264,
                   {IID_IKvNetworkReceiverH264Information},
                   {IID_IKvNetworkReceiverStreamInformation, IID_IKvNetworkReceiverAacInformation}},
        ComSubject{"AacInformation",
                   newAac,
                   {IID_IKvNetworkReceiverAacInformation},
                   {IID_IKvNetworkReceiverStreamInformation, IID_IKvNetworkReceiverH264Information}},
        ComSubject{"TsInformation",
                   newTs,
                   {},
                   {IID_IKvNetworkReceiverStreamInformation, IID_IKvNetworkReceiverH264Information,
                    IID_IKvNetworkReceiverAacInformation}},
        aggregated("PartOfAnother", [](IUnknown* outer) -> CKvUnknown* { return new Part(outer); },
                   {IID_IKvNetworkReceiverAacInformation}, {IID_IKvNetworkReceiverStreamInformation})),
    nameOfSubject);

TEST(StreamInformation, ValuesPassThroughUnchanged) {
    auto* const h264 = static_cast<IKvNetworkReceiverH264Information*>(newH264());
    EXPECT_EQ(h264->GetStreamType(), 1U);
    const SKvVideoFormatDescription format = h264->GetVideoFormat();
    EXPECT_EQ(std::memcmp(&format, &kFormat, sizeof(format)), 0);
    EXPECT_EQ(h264->GetColourClass(), 4U);
    EXPECT_EQ(h264->GetProfile(), 100U);
    EXPECT_EQ(h264->GetLevel(), 40U);
    h264->Release();

    auto* const aac = static_cast<IKvNetworkReceiverAacInformation*>(newAac());
    EXPECT_EQ(aac->GetStreamType(), 2U);
    EXPECT_EQ(aac->GetFirstValue(), 5U);
    EXPECT_EQ(aac->GetSecondValue(), 7U);
    aac->Release();

    auto* const ts = newTs();
    EXPECT_EQ(ts->GetStreamType(), 3U);
    ts->Release();
}

TEST(StreamInformation, LifeIsLogged) {
    RecordingLogger::clear();
    newH264()->Release();
    EXPECT_EQ(RecordingLogger::takeLines(true), (Lines{{3, 0, "H264Information destructor."}}));
    newAac()->Release();
    EXPECT_EQ(RecordingLogger::takeLines(true),
              (Lines{{3, 0, "AacInformation constructor."}, {3, 0, "AacInformation destructor."}}));
    newTs()->Release();
    EXPECT_EQ(RecordingLogger::takeLines(true), (Lines{{3, 0, "TsInformation constructor."}}));
    for (const std::string& site : RecordingLogger::takeSites()) {
        EXPECT_EQ(site.rfind("src/AudioVideoInformation|", 0), 0U) << site;
    }
}

} // namespace
