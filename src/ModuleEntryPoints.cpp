// The module's entry points: the classes that it serves, their registration, and whether it may be unloaded.

#include <algorithm>
#include <array>
#include <new>

#include "CKvClassFactory.h"
#include "ClassRegistration.h"
#include "DeferredWork.h"
#include "KvNetworkReceiver.h"
#include "PlatformModule.h"
#include "RtmpReceiverFactory.h"
#include "RtpReceiverFactory.h"
#include "RtspReceiverFactory.h"
#include "TsOverUdpReceiverFactory.h"

using KorvelVideo::Network::DeferredWork;
using KorvelVideo::Network::RtmpReceiverFactory;
using KorvelVideo::Network::RtpReceiverFactory;
using KorvelVideo::Network::RtspReceiverFactory;
using KorvelVideo::Network::TsOverUdpReceiverFactory;

namespace {

constexpr std::array<CKvFactoryTemplate, 4> kServedClasses{{
    {L"Korvel RTSP Receiver Factory", &CLSID_RtspReceiverFactory, RtspReceiverFactory::CreateInstance},
    {L"Korvel RTMP Receiver Factory", &CLSID_RtmpReceiverFactory, RtmpReceiverFactory::CreateInstance},
    {L"Korvel RTP Receiver Factory", &CLSID_RtpReceiverFactory, RtpReceiverFactory::CreateInstance},
    {L"Korvel TS over UDP Receiver Factory", &CLSID_TsOverUdpReceiverFactory,
     TsOverUdpReceiverFactory::CreateInstance},
}};

HMODULE g_module = nullptr;

using Path = std::array<char, 260>;
using WidePath = std::array<wchar_t, 260>;

// False when it cannot be read, and when it was cut: that would register a module that is not there.
bool readModulePath(WidePath& widePath) {
    Path path{};
    const DWORD length = GetModuleFileNameA(g_module, path.data(), static_cast<DWORD>(path.size()));
    return length != 0 && length < path.size() &&
           MultiByteToWideChar(CP_ACP, 0, path.data(), -1, widePath.data(),
                               static_cast<int>(widePath.size())) != 0;
}

// Runs a step for each served class, with the module's path, until one fails. Without the path the result is
// the platform's last error, whatever it is.
template <class Step>
HRESULT forEachServedClass(Step step) {
    try {
        WidePath path{};
        if (!readModulePath(path)) {
            return resultOfPlatformError(static_cast<std::int32_t>(GetLastError()));
        }
        HRESULT result = S_OK;
        for (const CKvFactoryTemplate& served : kServedClasses) {
            result = step(served, path.data());
            if (result < 0) {
                break;
            }
        }
        return result;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

} // namespace

extern "C" {

BOOL DllMain(HMODULE module, DWORD reason, void* /*reserved*/) {
    if (reason == DLL_PROCESS_ATTACH) {
        DisableThreadLibraryCalls(module);
        g_module = module;
    }
    return TRUE;
}

HRESULT DllGetClassObject(REFCLSID rclsid, REFIID riid, void** ppv) {
    if (ppv == nullptr) {
        return E_POINTER;
    }
    *ppv = nullptr;
    if (riid != IID_IUnknown && riid != IID_IClassFactory) {
        return E_NOINTERFACE;
    }
    const auto* const served = std::find_if(
        kServedClasses.begin(), kServedClasses.end(),
        [&rclsid](const CKvFactoryTemplate& entry) { return *entry.m_classIdentifier == rclsid; });
    if (served == kServedClasses.end()) {
        return CLASS_E_CLASSNOTAVAILABLE;
    }
    auto* const factory = new (std::nothrow) CKvClassFactory(*served);
    if (factory == nullptr) {
        return E_OUTOFMEMORY;
    }
    *ppv = static_cast<IClassFactory*>(factory);
    factory->AddRef();
    return S_OK;
}

HRESULT DllCanUnloadNow() {
    DeferredWork::sweep();
    return getServerLockCount() != 0 || getLiveObjectCount() != 0 ? S_FALSE : S_OK;
}

HRESULT DllRegisterServer() {
    return forEachServedClass([](const CKvFactoryTemplate& served, const wchar_t* path) {
        return registerServerClass(*served.m_classIdentifier, served.m_displayName, path, L"Both",
                                   L"InprocServer32");
    });
}

HRESULT DllUnregisterServer() {
    return forEachServedClass([](const CKvFactoryTemplate& served, const wchar_t* /*path*/) {
        return unregisterServerClass(*served.m_classIdentifier);
    });
}
}
