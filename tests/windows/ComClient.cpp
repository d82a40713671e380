// Run by scripts/windows-check, with the module registered: what a host does with it through COM, in an
// apartment of its own. `ComClient sta` or `ComClient mta`. Says what went wrong and returns 1.

#include <cstdio>
#include <cstring>
#include <iterator>

#include "KvNetworkReceiver.h"
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

void createAndQuery(const Class& served, const IID& other) {
    void* factory = nullptr;
    const HRESULT created =
        CoCreateInstance(*served.clsid, nullptr, CLSCTX_INPROC_SERVER, *served.iid, &factory);
    check(created == S_OK && factory != nullptr, "CoCreateInstance gives the factory", served.name);
    if (factory == nullptr) {
        std::printf("        CoCreateInstance returned 0x%08lX\n", static_cast<unsigned long>(created));
        return;
    }
    auto* const unknown = static_cast<IUnknown*>(factory);
    void* refused = &refused;
    check(unknown->QueryInterface(other, &refused) == E_NOINTERFACE && refused == nullptr,
          "another factory's interface is refused", served.name);
    void* identity = nullptr;
    check(unknown->QueryInterface(IID_IUnknown, &identity) == S_OK, "IUnknown is answered", served.name);
    if (identity != nullptr) {
        static_cast<IUnknown*>(identity)->Release();
    }
    CoFreeUnusedLibrariesEx(0, 0);
    check(isLoaded(), "the module stays loaded while an object lives", served.name);
    check(unknown->Release() == 0, "the last reference ends the factory", served.name);
}

// The receiver is refused before anything is opened.
void createReceiverWithoutCallback() {
    void* object = nullptr;
    CoCreateInstance(CLSID_TsOverUdpReceiverFactory, nullptr, CLSCTX_INPROC_SERVER,
                     IID_IKvTsOverUdpReceiverFactory, &object);
    if (object == nullptr) {
        return;
    }
    auto* const factory = static_cast<IKvTsOverUdpReceiverFactory*>(object);
    IKvNetworkReceiverController* receiver = nullptr;
    check(factory->CreateReceiver(nullptr, nullptr, &receiver) == KV_E_INVALID_POINTER && receiver == nullptr,
          "a null callback is refused across the module's boundary", "CreateReceiver");
    factory->Release();
}

void unload() {
    check(isLoaded(), "the module is loaded", "unloading");
    CoFreeUnusedLibraries();
    CoFreeUnusedLibrariesEx(0, 0); // the call above may wait for minutes before it unloads
    check(!isLoaded(), "CoFreeUnusedLibraries unloads the module", "unloading");
}

} // namespace

int main(int argumentCount, char** arguments) {
    const bool isSta = argumentCount > 1 && std::strcmp(arguments[1], "sta") == 0;
    CoInitializeEx(nullptr, isSta ? COINIT_APARTMENTTHREADED : COINIT_MULTITHREADED);
    for (int round = 0; round < 3; ++round) {
        for (std::size_t index = 0; index < std::size(kClasses); ++index) {
            createAndQuery(kClasses[index], *kClasses[(index + 1) % std::size(kClasses)].iid);
        }
        createReceiverWithoutCallback();
        unload();
    }
    CoUninitialize();
    std::printf("ComClient %s: %s\n", isSta ? "sta" : "mta", g_failures == 0 ? "passed" : "failed");
    return g_failures == 0 ? 0 : 1;
}
