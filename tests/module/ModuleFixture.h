#pragma once

#include <dlfcn.h>

#include <string>

#include <gtest/gtest.h>

#include "CallLog.h"
#include "KvNetworkReceiver.h"
#include "PlatformModule.h"
#include "RecordingLogger.h"
#include "ScriptedSdk.h"
#include "TemporaryRegistry.h"

// The module, loaded by path, with its entry points.
class LoadedModule {
public:
    LoadedModule() : m_module(LoadLibraryA(KV_MODULE)) {}
    ~LoadedModule() { FreeLibrary(m_module); }
    LoadedModule(const LoadedModule&) = delete;
    LoadedModule& operator=(const LoadedModule&) = delete;

    // Calls DllGetClassObject, DllCanUnloadNow, ...
    template <class... Parameters>
    HRESULT call(const char* entryPoint, Parameters... parameters) const {
        return reinterpret_cast<HRESULT (*)(Parameters...)>(GetProcAddress(m_module, entryPoint))(
            parameters...);
    }
    HRESULT getClassObject(CLSID clsid, IID iid, void** object) const {
        return call<const CLSID&, const IID&>("DllGetClassObject", clsid, iid, object);
    }

private:
    HMODULE m_module;
};

inline bool isModuleLoaded() {
    void* const module = dlopen(KV_MODULE, RTLD_LAZY | RTLD_NOLOAD);
    return module != nullptr && dlclose(module) == 0;
}

struct ServedClass {
    std::string displayName;
    CLSID clsid;
    IID iid;
};

inline const ServedClass kServedClasses[] = {
    {"Korvel RTSP Receiver Factory", CLSID_RtspReceiverFactory, IID_IKvRtspReceiverFactory},
    {"Korvel RTMP Receiver Factory", CLSID_RtmpReceiverFactory, IID_IKvRtmpReceiverFactory},
    {"Korvel RTP Receiver Factory", CLSID_RtpReceiverFactory, IID_IKvRtpReceiverFactory},
    {"Korvel TS over UDP Receiver Factory", CLSID_TsOverUdpReceiverFactory, IID_IKvTsOverUdpReceiverFactory},
};

class ModuleFixture : public testing::Test {
protected:
    ModuleFixture() { ScriptedSdk::reset({ScriptedSdk::Announcement{}}); }
    ~ModuleFixture() override {
        CoFreeUnusedLibraries();
        EXPECT_FALSE(isModuleLoaded()) << "something keeps the module";
        EXPECT_EQ(ScriptedSdk::remains(), ScriptedSdk::Remains{});
    }

    KvTest::TemporaryRegistry m_registry;
};
