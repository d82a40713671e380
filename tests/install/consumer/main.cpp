// The smallest host: receives a transport stream and prints what comes of it.
#include <KvNetworkReceiver.h>

#include <cstdio>

struct Settings : IKvTsOverUdpReceiverSettings {
    HRESULT QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
    ULONG AddRef() override { return 1; }
    ULONG Release() override { return 1; }
    const char* GetUrl() override { return url; }
    const char* GetNetworkInterfaceCard() override { return nullptr; }
    const char* url = nullptr;
};
struct Refusal : IKvNetworkStreamDetectorCallback {
    HRESULT QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
    ULONG AddRef() override { return 1; }
    ULONG Release() override { return 1; }
    IKvVideoCallback* OnVideoStreamDetected(IKvNetworkReceiverStreamInformation*) override { return nullptr; }
    IKvAudioCallback* OnAudioStreamDetected(IKvNetworkReceiverStreamInformation*) override { return nullptr; }
};

int main(int, char** argv) {
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    IKvTsOverUdpReceiverFactory* factory = nullptr;
    HRESULT result = CoCreateInstance(CLSID_TsOverUdpReceiverFactory, nullptr, CLSCTX_INPROC_SERVER,
                                      IID_IKvTsOverUdpReceiverFactory, reinterpret_cast<void**>(&factory));
    std::printf("factory 0x%08X\n", static_cast<unsigned>(result));
    for (char** url = argv + 1; result >= 0 && *url != nullptr; ++url) {
        Settings settings;
        settings.url = *url;
        Refusal refusal;
        IKvNetworkReceiverController* receiver = nullptr;
        const HRESULT created = factory->CreateReceiver(&settings, &refusal, &receiver);
        std::printf("%s created 0x%08X\n", *url, static_cast<unsigned>(created));
        if (created >= 0) {
            std::printf("started 0x%08X\n", static_cast<unsigned>(receiver->Start()));
            std::printf("stopped 0x%08X\n", static_cast<unsigned>(receiver->Stop()));
            receiver->Release();
        }
    }
    if (factory != nullptr) {
        factory->Release();
    }
    CoFreeUnusedLibraries();
    return result >= 0 ? 0 : 1;
}
