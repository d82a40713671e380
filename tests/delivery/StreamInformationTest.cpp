#include "AudioVideoInformation.h"

#include "ComContract.h"

using namespace KorvelVideo::Network;

namespace {

// With one reference, by the interface that the host is handed.
template <class Interface, class Information>
Interface* referenced(Information* information) {
    information->AddRef();
    return information;
}

IUnknown* newH264() {
    return referenced<IKvNetworkReceiverH264Information>(
        new H264Information(SKvVideoFormatDescription{}, 4, 100, 40));
}
IUnknown* newAac() { return referenced<IKvNetworkReceiverAacInformation>(new AacInformation(5, 7)); }
IUnknown* newTs() { return referenced<IKvNetworkReceiverStreamInformation>(new TsInformation); }

const IID& kAny = IID_IKvNetworkReceiverStreamInformation;
const IID& kH264 = IID_IKvNetworkReceiverH264Information;
const IID& kAac = IID_IKvNetworkReceiverAacInformation;

INSTANTIATE_TEST_SUITE_P(StreamInformation, ComContract,
                         testing::Values(ComSubject{"H264Information", newH264, {kH264}, {kAny, kAac}},
                                         ComSubject{"AacInformation", newAac, {kAac}, {kAny, kH264}},
                                         ComSubject{"TsInformation", newTs, {}, {kAny, kH264, kAac}}),
                         nameOfSubject);

} // namespace
