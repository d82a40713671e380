#include "ComContract.h"
#include "ReceiverFixture.h"

// Receivers and factories as component objects. A factory answers its own interface alone beside IUnknown, a
// receiver nothing else.

namespace {

using namespace KorvelVideo::Network;

template <class Factory>
ComSubject factorySubject(const char* name, REFIID answered) {
    std::vector<IID> refused{IID_IClassFactory, IID_IKvRtspReceiverFactory, IID_IKvRtmpReceiverFactory,
                             IID_IKvRtpReceiverFactory, IID_IKvTsOverUdpReceiverFactory};
    std::erase(refused, answered);
    const auto create = []() -> IUnknown* {
        HRESULT result = S_OK;
        void* identity = nullptr;
        Factory::CreateInstance(nullptr, &result)->NonDelegatingQueryInterface(IID_IUnknown, &identity);
        return static_cast<IUnknown*>(identity);
    };
    return {name, create, {answered}, refused};
}

ComSubject receiverSubject(const ReceiverKind& kind) {
    const auto create = [&kind]() -> IUnknown* {
        static RecordingDetector detector(nullptr, nullptr);
        IKvNetworkReceiverController* receiver = nullptr;
        const SettingsValues values{kind.url};
        EXPECT_EQ(kind.create(&values, &detector, &receiver), S_OK);
        return receiver;
    };
    return {std::string(kind.name) + "Receiver", create, {}, {IID_IKvRtspReceiverFactory, IID_IClassFactory}};
}

INSTANTIATE_TEST_SUITE_P(
    Receivers, ComContract,
    testing::Values(factorySubject<RtspReceiverFactory>("RtspReceiverFactory", IID_IKvRtspReceiverFactory),
                    factorySubject<RtmpReceiverFactory>("RtmpReceiverFactory", IID_IKvRtmpReceiverFactory),
                    factorySubject<RtpReceiverFactory>("RtpReceiverFactory", IID_IKvRtpReceiverFactory),
                    factorySubject<TsOverUdpReceiverFactory>("TsOverUdpReceiverFactory",
                                                             IID_IKvTsOverUdpReceiverFactory),
                    receiverSubject(kRtsp), receiverSubject(kRtmp), receiverSubject(kRtp),
                    receiverSubject(kTsOverUdp)),
    nameOfSubject);

} // namespace
