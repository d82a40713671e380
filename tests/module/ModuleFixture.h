#pragma once

#include <dlfcn.h>

#include <chrono>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "CallLog.h"
#include "KvNetworkReceiver.h"
#include "PlatformModule.h"
#include "RecordingLogger.h"
#include "ScriptedClient.h"
#include "TemporaryRegistry.h"

// The module, loaded by path, with its entry points.
class LoadedModule {
public:
    LoadedModule() : m_module(LoadLibraryA(KV_MODULE)) {}
    ~LoadedModule() { FreeLibrary(m_module); }
    LoadedModule(const LoadedModule&) = delete;
    LoadedModule& operator=(const LoadedModule&) = delete;

    HRESULT getClassObject(REFCLSID clsid, REFIID iid, void** object) const {
        return entryPoint<HRESULT (*)(REFCLSID, REFIID, void**)>("DllGetClassObject")(clsid, iid, object);
    }
    HRESULT canUnloadNow() const { return entryPoint<HRESULT (*)()>("DllCanUnloadNow")(); }
    HRESULT registerServer() const { return entryPoint<HRESULT (*)()>("DllRegisterServer")(); }
    HRESULT unregisterServer() const { return entryPoint<HRESULT (*)()>("DllUnregisterServer")(); }

    bool waitUntilUnloadable() const {
        for (int attempt = 0; attempt < 10'000; ++attempt) {
            if (canUnloadNow() == S_OK) {
                return true;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return false;
    }

private:
    template <class EntryPoint>
    EntryPoint entryPoint(const char* name) const {
        return reinterpret_cast<EntryPoint>(GetProcAddress(m_module, name));
    }

    HMODULE m_module;
};

inline bool isModuleLoaded() {
    void* const module = dlopen(KV_MODULE, RTLD_LAZY | RTLD_NOLOAD);
    if (module != nullptr) {
        dlclose(module);
    }
    return module != nullptr;
}

struct ServedClass {
    const char* name;
    const char* displayName;
    CLSID clsid;
    IID iid;
};

inline const ServedClass kServedClasses[] = {
    {"Rtsp", "Korvel RTSP Receiver Factory", CLSID_RtspReceiverFactory, IID_IKvRtspReceiverFactory},
    {"Rtmp", "Korvel RTMP Receiver Factory", CLSID_RtmpReceiverFactory, IID_IKvRtmpReceiverFactory},
    {"Rtp", "Korvel RTP Receiver Factory", CLSID_RtpReceiverFactory, IID_IKvRtpReceiverFactory},
    {"TsOverUdp", "Korvel TS over UDP Receiver Factory", CLSID_TsOverUdpReceiverFactory,
     IID_IKvTsOverUdpReceiverFactory},
};

class ModuleFixture : public testing::Test {
protected:
    ModuleFixture() {
        ScriptedSdk::reset();
        ScriptedSdk::resetClients();
        ScriptedSdk::setAnnouncements({ScriptedSdk::Announcement{}});
        CallLog::instance().clear();
        RecordingLogger::clear();
    }
    ~ModuleFixture() override {
        CoFreeUnusedLibraries();
        EXPECT_FALSE(isModuleLoaded()) << "something keeps the module";
        EXPECT_EQ(ScriptedSdk::liveClients(), 0);
        EXPECT_EQ(ScriptedSdk::runningServices(), 0);
        EXPECT_EQ(ScriptedSdk::misuses(), 0);
        CallLog::instance().clear();
    }

    KvTest::TemporaryRegistry m_registry;
};
