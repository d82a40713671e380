#include "AudioVideoInformation.h"

#include <gtest/gtest.h>

#include "TKvSmartPtr.h"

using namespace KorvelVideo::Network;

namespace {

const std::vector<IID> kInterfaces{IID_IUnknown, IID_IKvNetworkReceiverH264Information,
                                   IID_IKvNetworkReceiverAacInformation,
                                   IID_IKvNetworkReceiverStreamInformation, IID_IClassFactory};

// Each answers IUnknown and the interface of its own stream, with one count for both.
TEST(StreamInformation, AnswersItsOwnInterface) {
    struct Row {
        TKvSmartPtr<IKvNetworkReceiverStreamInformation> object;
        std::size_t own; // of kInterfaces; 0: none
    };
    for (const Row& row : {Row{new H264Information(SKvVideoFormatDescription{}, 4, 100, 40), 1},
                           Row{new AacInformation(5, 7), 2}, Row{new TsInformation, 0}}) {
        for (std::size_t index = 0; index < kInterfaces.size(); ++index) {
            SCOPED_TRACE(std::to_string(row.own) + ", " + std::to_string(index));
            TKvSmartPtr<IUnknown> answer;
            const HRESULT expected = index == 0 || index == row.own ? S_OK : E_NOINTERFACE;
            EXPECT_EQ(row.object->QueryInterface(kInterfaces[index], reinterpret_cast<void**>(&answer)),
                      expected);
            EXPECT_EQ(row.object->QueryInterface(kInterfaces[index], nullptr), E_POINTER);
            EXPECT_EQ(row.object->AddRef(), expected == S_OK ? 3U : 2U);
            row.object->Release();
        }
    }
}

} // namespace
