#include <chrono>
#include <thread>

#include "HostSettings.h"
#include "KvVaneException.h"
#include "ModuleFixture.h"
#include "RecordingHost.h"

namespace {

class Module : public ModuleFixture {};

TEST_F(Module, ClassObjects) {
    const LoadedModule module;
    const CLSID unknown{1, 2, 3, {}};
    struct Row {
        CLSID clsid;
        IID iid;
        HRESULT result;
    };
    std::vector<Row> rows{{unknown, IID_IClassFactory, CLASS_E_CLASSNOTAVAILABLE},
                          {unknown, IID_IKvRtspReceiverFactory, E_NOINTERFACE}};
    for (const ServedClass& served : kServedClasses) {
        rows.push_back({served.clsid, IID_IUnknown, S_OK});
        rows.push_back({served.clsid, IID_IClassFactory, S_OK});
        rows.push_back({served.clsid, served.iid, E_NOINTERFACE});
    }
    for (const Row& row : rows) {
        void* object = &rows;
        EXPECT_EQ(module.getClassObject(row.clsid, row.iid, &object), row.result);
        EXPECT_EQ(object != nullptr, row.result == S_OK);
        EXPECT_EQ(module.call("DllCanUnloadNow"), row.result == S_OK ? S_FALSE : S_OK);
        if (object != nullptr) {
            EXPECT_EQ(static_cast<IUnknown*>(object)->Release(), 0U);
        }
        EXPECT_EQ(module.getClassObject(row.clsid, row.iid, nullptr), E_POINTER);
    }
}

TEST_F(Module, ALockKeepsIt) {
    const LoadedModule module;
    void* object = nullptr;
    for (const BOOL lock : {7, FALSE}) { // whatever is not FALSE locks
        ASSERT_EQ(module.getClassObject(CLSID_RtpReceiverFactory, IID_IClassFactory, &object), S_OK);
        auto* const classFactory = static_cast<IClassFactory*>(object);
        EXPECT_EQ(classFactory->LockServer(lock), S_OK);
        EXPECT_EQ(classFactory->Release(), 0U);
        EXPECT_EQ(module.call("DllCanUnloadNow"), lock != FALSE ? S_FALSE : S_OK);
    }
}

class ModuleLife : public Module {
protected:
    ModuleLife() {
        const LoadedModule module;
        EXPECT_EQ(module.call("DllRegisterServer"), S_OK);
    }

    // As a host does it: a class identifier, settings, a callback.
    template <class Factory>
    IKvNetworkReceiverController* create(const ServedClass& served, const std::string& protocol) {
        const std::string url = protocol + "://a";
        Factory* factory = nullptr;
        IKvNetworkReceiverController* receiver = nullptr;
        EXPECT_EQ(CoCreateInstance(served.clsid, nullptr, CLSCTX_INPROC_SERVER, served.iid,
                                   reinterpret_cast<void**>(&factory)),
                  S_OK);
        HostSettings settings({url.c_str()});
        EXPECT_EQ(factory->CreateReceiver(&settings, &m_detector, &receiver), S_OK);
        EXPECT_EQ(factory->Release(), 0U) << "receivers live on without their factory";
        EXPECT_EQ(receiver->Start(), S_OK);
        return receiver;
    }

    template <class Factory>
    void live(const ServedClass& served, const std::string& protocol) {
        SCOPED_TRACE(served.displayName);
        auto* const receiver = create<Factory>(served, protocol);
        CoFreeUnusedLibraries();
        ASSERT_TRUE(isModuleLoaded());
        auto* const consumer = ScriptedSdk::consumers().at(0);
        ScriptedSdk::play(*consumer, {{1, 2, 3}, 40});
        ScriptedSdk::play(*consumer, {{4, 5, 6}, 80});
        EXPECT_EQ(m_sink.takeDelivered(), (std::vector<DeliveredUnit>{{{1, 2, 3}, 40}}));
        EXPECT_EQ(receiver->Redirect((protocol + "://b").c_str()), S_OK);
        EXPECT_THROW(receiver->Redirect("nothing://known"), CKvVaneException) << "caught in another binary";
        EXPECT_EQ(receiver->Release(), 0U);
        CoFreeUnusedLibraries();
        EXPECT_FALSE(isModuleLoaded());
    }

    RecordingSink m_sink;
    RecordingDetector m_detector{&m_sink, nullptr};
};

TEST_F(ModuleLife, FromClassIdentifierToUnloadAndAgain) {
    for (int round = 0; round < 2; ++round) {
        live<IKvRtspReceiverFactory>(kServedClasses[0], "rtsp");
        live<IKvRtmpReceiverFactory>(kServedClasses[1], "rtmp");
        live<IKvRtpReceiverFactory>(kServedClasses[2], "rtp");
        live<IKvTsOverUdpReceiverFactory>(kServedClasses[3], "udp");
    }
}

// A receiver released inside a callback keeps the module until its own thread has ended.
TEST_F(ModuleLife, ReleasedInsideACallbackItStaysUntilTheReceiverHasEnded) {
    auto* const receiver = create<IKvRtspReceiverFactory>(kServedClasses[0], "rtsp");
    m_sink.onCall = [receiver](const std::string&) {
        EXPECT_EQ(receiver->Release(), 0U);
        CoFreeUnusedLibraries();
        EXPECT_TRUE(isModuleLoaded());
    };
    auto* const consumer = ScriptedSdk::consumers().at(0);
    ScriptedSdk::runOnClientThread([consumer] { ScriptedSdk::notify(*consumer, 10); });
    ASSERT_TRUE(ScriptedSdk::waitForClientThreads());
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (isModuleLoaded() && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        CoFreeUnusedLibraries();
    }
}

} // namespace
