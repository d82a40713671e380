// Run by scripts/windows-check, with the module registered: what a host does with it through COM.
// `ComClient sta|mta|none URL`: the main thread's apartment (none: that of the process), and an address of a
// transport stream on which nothing comes. Says what went wrong and returns 1.

#include <cstdio>
#include <iterator>
#include <string>
#include <thread>

#include "ComObject.h"
#include "KvNetworkReceiver.h"
#include "KvVaneException.h"
#include "PlatformModule.h"

namespace {

int g_failures = 0;

void check(bool holds, const char* what, const char* subject) {
    if (!holds) {
        std::printf("FAILED: %s: %s\n", subject, what);
        ++g_failures;
    }
}

struct Class {
    const char* name;
    const CLSID* clsid;
    const IID* iid;
};

constexpr Class kClasses[] = {
    {"RTSP factory", &CLSID_RtspReceiverFactory, &IID_IKvRtspReceiverFactory},
    {"RTMP factory", &CLSID_RtmpReceiverFactory, &IID_IKvRtmpReceiverFactory},
    {"RTP factory", &CLSID_RtpReceiverFactory, &IID_IKvRtpReceiverFactory},
    {"TS over UDP factory", &CLSID_TsOverUdpReceiverFactory, &IID_IKvTsOverUdpReceiverFactory},
};

bool isLoaded() { return GetModuleHandleA("kvNetworkReceiver.dll") != nullptr; }

using KorvelVideo::Host::Reference;
using KorvelVideo::Host::UncountedObject;

void createAndQuery(const Class& served, const IID& other) {
    Reference<IUnknown> factory;
    const HRESULT created =
        CoCreateInstance(*served.clsid, nullptr, CLSCTX_INPROC_SERVER, *served.iid, factory.receiveVoid());
    check(created == S_OK && factory, "CoCreateInstance gives the factory", served.name);
    if (!factory) {
        return;
    }
    Reference<IUnknown> asked;
    check(factory->QueryInterface(other, asked.receiveVoid()) == E_NOINTERFACE && !asked,
          "another factory's interface is refused", served.name);
    check(factory->QueryInterface(IID_IUnknown, asked.receiveVoid()) == S_OK && asked, "IUnknown is answered",
          served.name);
    CoFreeUnusedLibrariesEx(0, 0);
    check(isLoaded(), "the module stays loaded while an object lives", served.name);
}

struct Settings final : UncountedObject<IKvTsOverUdpReceiverSettings> {
    const char* GetUrl() override { return url; }
    const char* GetNetworkInterfaceCard() override { return nullptr; }
    const char* url = nullptr;
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
    if (!factory) {
        return;
    }
    Settings settings;
    settings.url = url;
    Detector detector;
    Reference<IKvNetworkReceiverController> receiver;
    check(factory->CreateReceiver(&settings, nullptr, receiver.receive()) == KV_E_INVALID_POINTER &&
              !receiver,
          "a null callback is refused", "CreateReceiver");
    check(factory->CreateReceiver(&settings, &detector, receiver.receive()) == S_OK && receiver,
          "a receiver is made", "CreateReceiver");
    if (!receiver) {
        return;
    }
    std::thread([&] {
        check(receiver->Start() == S_OK, "succeeds", "Start");
        HRESULT raised = S_OK;
        try {
            receiver->Redirect("udp://127.0.0.1@127.0.0.1:9");
        } catch (const CKvVaneException& exception) {
            raised = exception.m_result;
        }
        check(raised == KV_E_INVALID_PARAMETER, "raises its code", "Redirect");
        check(receiver->Redirect(url) == S_OK, "succeeds", "Redirect");
        check(receiver->Stop() == S_OK, "succeeds", "Stop");
        receiver.reset();
    }).join();
}

void unload(bool alsoForTheProcess) {
    check(isLoaded(), "the module is loaded", "unloading");
    const auto freeLibraries = [] {
        CoFreeUnusedLibraries();
        CoFreeUnusedLibrariesEx(0, 0); // the call above may wait for minutes before it unloads
    };
    freeLibraries();
    if (alsoForTheProcess) { // each apartment keeps the module for itself, and its own may have come later
        std::thread([&] {
            CoInitializeEx(nullptr, COINIT_MULTITHREADED);
            freeLibraries();
            CoUninitialize();
        }).join();
    }
    check(!isLoaded(), "CoFreeUnusedLibraries unloads the module", "unloading");
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
        for (std::size_t index = 0; index < std::size(kClasses); ++index) {
            createAndQuery(kClasses[index], *kClasses[(index + 1) % std::size(kClasses)].iid);
        }
        receive(url);
        unload(apartment == "none");
    }
    return g_failures == 0 ? 0 : 1;
}
