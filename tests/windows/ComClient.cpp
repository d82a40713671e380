// Run by scripts/windows-check, with the module registered: what a host does with it through COM.
// `ComClient sta|mta|none URL`: the main thread's apartment (none: that of the process), and an address of a
// transport stream on which nothing comes. Says what went wrong and returns 1.

#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <string>
#include <thread>
#include <utility>

#include "ComObject.h"
#include "KvNetworkReceiver.h"
#include "KvVaneException.h"
#include "PlatformModule.h"

namespace {

void require(bool holds, const char* what) {
    if (!holds) {
        std::printf("FAILED: %s\n", what);
        std::exit(1);
    }
}

constexpr std::pair<const CLSID*, const IID*> kFactories[] = {
    {&CLSID_RtspReceiverFactory, &IID_IKvRtspReceiverFactory},
    {&CLSID_RtmpReceiverFactory, &IID_IKvRtmpReceiverFactory},
    {&CLSID_RtpReceiverFactory, &IID_IKvRtpReceiverFactory},
    {&CLSID_TsOverUdpReceiverFactory, &IID_IKvTsOverUdpReceiverFactory},
};

bool isLoaded() { return GetModuleHandleA("kvNetworkReceiver.dll") != nullptr; }

using KorvelVideo::Host::Reference;
using KorvelVideo::Host::UncountedObject;

void createAndQuery(REFCLSID clsid, REFIID iid, REFIID other) {
    Reference<IUnknown> factory;
    Reference<IUnknown> asked;
    require(CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, iid, factory.receiveVoid()) == S_OK &&
                factory,
            "CoCreateInstance gives the factory");
    require(factory->QueryInterface(other, asked.receiveVoid()) == E_NOINTERFACE && !asked,
            "another factory's interface is refused");
    CoFreeUnusedLibrariesEx(0, 0);
    require(isLoaded(), "the module stays loaded while an object lives");
}

struct Settings final : UncountedObject<IKvTsOverUdpReceiverSettings> {
    explicit Settings(const char* of) : url(of) {}
    const char* GetUrl() override { return url; }
    const char* GetNetworkInterfaceCard() override { return nullptr; }
    const char* const url;
};

struct Sink final : UncountedObject<IKvVideoCallback> {
    HRESULT ProvideVideoSurface(std::uint32_t, IKvSurface**) override { return E_FAIL; }
    HRESULT DeliverVideoSurface(IKvSurface*) override { return S_OK; }
    HRESULT NotifyStatus(HRESULT) override { return S_OK; }
};

struct Detector final : UncountedObject<IKvNetworkStreamDetectorCallback> {
    IKvVideoCallback* OnVideoStreamDetected(IKvNetworkReceiverStreamInformation*) override { return &sink; }
    IKvAudioCallback* OnAudioStreamDetected(IKvNetworkReceiverStreamInformation*) override { return nullptr; }
    Sink sink;
};

// A receiver made on this thread and used on one that enters no apartment. What Redirect throws is the
// module's, caught by another module.
void receive(const char* url) {
    Reference<IKvTsOverUdpReceiverFactory> factory;
    static_cast<void>(CoCreateInstance(CLSID_TsOverUdpReceiverFactory, nullptr, CLSCTX_INPROC_SERVER,
                                       IID_IKvTsOverUdpReceiverFactory, factory.receiveVoid()));
    Settings settings(url);
    Detector detector;
    Reference<IKvNetworkReceiverController> receiver;
    require(factory->CreateReceiver(&settings, nullptr, receiver.receive()) == KV_E_INVALID_POINTER,
            "CreateReceiver refuses a null callback");
    require(factory->CreateReceiver(&settings, &detector, receiver.receive()) == S_OK && receiver,
            "CreateReceiver makes a receiver");
    std::thread([&] {
        require(receiver->Start() == S_OK, "Start succeeds");
        HRESULT raised = S_OK;
        try {
            receiver->Redirect("udp://127.0.0.1@127.0.0.1:9");
        } catch (const CKvVaneException& exception) {
            raised = exception.m_result;
        }
        require(raised == KV_E_INVALID_PARAMETER, "Redirect raises its code");
        require(receiver->Redirect(url) == S_OK && receiver->Stop() == S_OK, "Redirect and Stop succeed");
        receiver.reset();
    }).join();
}

void unload() {
    const auto freeLibraries = [] {
        CoFreeUnusedLibraries();
        CoFreeUnusedLibrariesEx(0, 0); // the call above may wait for minutes before it unloads
    };
    freeLibraries();
    std::thread([&] { // each apartment keeps the module for itself
        CoInitializeEx(nullptr, COINIT_MULTITHREADED);
        freeLibraries();
        CoUninitialize();
    })
        .join();
    require(!isLoaded(), "CoFreeUnusedLibraries unloads the module");
}

} // namespace

int main(int argumentCount, char** arguments) {
    const std::string apartment = argumentCount == 3 ? arguments[1] : "";
    const char* const url = argumentCount == 3 ? arguments[2] : "";
    CO_MTA_USAGE_COOKIE processApartment{};
    CoIncrementMTAUsage(&processApartment);
    if (apartment != "none") {
        CoInitializeEx(nullptr, apartment == "sta" ? COINIT_APARTMENTTHREADED : COINIT_MULTITHREADED);
    }
    for (int round = 0; round < 3; ++round) {
        for (std::size_t index = 0; index < std::size(kFactories); ++index) {
            const auto& [clsid, iid] = kFactories[index];
            createAndQuery(*clsid, *iid, *kFactories[(index + 1) % std::size(kFactories)].second);
        }
        receive(url);
        unload();
    }
    return 0;
}
