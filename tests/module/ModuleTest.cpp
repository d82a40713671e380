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
                          {unknown, IID_IUnknown, CLASS_E_CLASSNOTAVAILABLE},
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
        if (object != nullptr) {
            EXPECT_EQ(module.canUnloadNow(), S_FALSE);
            EXPECT_EQ(static_cast<IUnknown*>(object)->Release(), 0U);
        }
        EXPECT_EQ(module.canUnloadNow(), S_OK);
        EXPECT_EQ(module.getClassObject(row.clsid, row.iid, nullptr), E_POINTER);
    }
}

TEST_F(Module, LocksAndObjectsKeepIt) {
    const LoadedModule module;
    void* object = nullptr;
    ASSERT_EQ(module.getClassObject(CLSID_RtpReceiverFactory, IID_IClassFactory, &object), S_OK);
    auto* const classFactory = static_cast<IClassFactory*>(object);
    EXPECT_EQ(classFactory->LockServer(TRUE), S_OK);
    EXPECT_EQ(classFactory->CreateInstance(nullptr, IID_IKvRtspReceiverFactory, &object), E_NOINTERFACE);
    EXPECT_EQ(object, nullptr);
    ASSERT_EQ(classFactory->CreateInstance(nullptr, IID_IKvRtpReceiverFactory, &object), S_OK);
    EXPECT_EQ(static_cast<IUnknown*>(object)->Release(), 0U);
    // Aggregation asked for by identity alone is granted, and ignored.
    StaticTestObject<IUnknown> outer;
    ASSERT_EQ(classFactory->CreateInstance(&outer, IID_IUnknown, &object), S_OK);
    EXPECT_EQ(outer.references(), 0U);
    EXPECT_EQ(static_cast<IUnknown*>(object)->Release(), 0U);
    EXPECT_EQ(classFactory->CreateInstance(&outer, IID_IKvRtpReceiverFactory, &object), E_NOINTERFACE);
    EXPECT_EQ(classFactory->Release(), 0U);
    EXPECT_EQ(module.canUnloadNow(), S_FALSE) << "the lock is still held";
    ASSERT_EQ(module.getClassObject(CLSID_RtpReceiverFactory, IID_IClassFactory, &object), S_OK);
    EXPECT_EQ(static_cast<IClassFactory*>(object)->LockServer(FALSE), S_OK);
    static_cast<IUnknown*>(object)->Release();
    EXPECT_EQ(module.canUnloadNow(), S_OK);
}

TEST_F(Module, HasALoggerForEachSourceFileWhileItIsLoaded) {
    const int before = RecordingLogger::alive();
    {
        const LoadedModule module;
        EXPECT_GT(RecordingLogger::alive(), before + 5);
    }
    EXPECT_EQ(RecordingLogger::alive(), before);
    EXPECT_EQ(RecordingLogger::foreignModuleIds(), 0);
}

// As a host does it: a class identifier, settings, a callback.
template <class Factory, class Settings>
class HostOf {
public:
    HostOf(const ServedClass& served, const char* url, IKvNetworkStreamDetectorCallback* callback) {
        Factory* factory = nullptr;
        EXPECT_EQ(CoCreateInstance(served.clsid, nullptr, CLSCTX_INPROC_SERVER, served.iid,
                                   reinterpret_cast<void**>(&factory)),
                  S_OK);
        Settings settings({url, nullptr, 0, 0});
        EXPECT_EQ(factory->CreateReceiver(&settings, callback, &receiver), S_OK);
        EXPECT_EQ(factory->Release(), 0U) << "receivers live on without their factory";
    }
    IKvNetworkReceiverController* receiver = nullptr;
};

class ModuleLife : public Module {
protected:
    ModuleLife() {
        const LoadedModule module;
        EXPECT_EQ(module.registerServer(), S_OK);
    }

    template <class Factory, class Settings>
    void live(const ServedClass& served, const char* url, const char* otherUrl) {
        SCOPED_TRACE(served.name);
        ASSERT_FALSE(isModuleLoaded());
        HostOf<Factory, Settings> host(served, url, &m_detector);
        CoFreeUnusedLibraries();
        ASSERT_TRUE(isModuleLoaded());
        ASSERT_EQ(host.receiver->Start(), S_OK);
        auto* const consumer = ScriptedSdk::consumers().at(0);
        ScriptedSdk::notify(*consumer, 10);
        ASSERT_TRUE(ScriptedSdk::play(*consumer, {{1, 2, 3}, 40}));
        ASSERT_TRUE(ScriptedSdk::play(*consumer, {{4, 5, 6}, 80}));
        EXPECT_EQ(m_sink.takeDelivered(), (std::vector<DeliveredUnit>{{{1, 2, 3}, 40}}));
        EXPECT_EQ(m_sink.takeStatuses(), std::vector<HRESULT>{KV_S_STREAM_ACTIVE});
        EXPECT_EQ(host.receiver->Redirect(otherUrl), S_OK);
        // The exception of one binary is caught in another.
        try {
            host.receiver->Redirect("nothing://known");
            ADD_FAILURE() << "nothing was raised";
        } catch (const CKvVaneException& exception) {
            EXPECT_EQ(exception.m_result, KV_E_INVALID_PARAMETER);
        }
        EXPECT_EQ(host.receiver->Release(), 0U);
        CoFreeUnusedLibraries();
        EXPECT_FALSE(isModuleLoaded());
        static_cast<void>(m_sink.takeStatuses());
    }

    RecordingVideoSink m_sink;
    RecordingDetector m_detector{&m_sink, nullptr};
};

TEST_F(ModuleLife, FromClassIdentifierToUnload) {
    live<IKvRtspReceiverFactory, RtspSettings>(kServedClasses[0], "rtsp://a", "rtsp://b");
    live<IKvRtmpReceiverFactory, RtmpSettings>(kServedClasses[1], "rtmp://a", "rtmp://b");
    live<IKvRtpReceiverFactory, RtpSettings>(kServedClasses[2], "rtp://a", "rtp://b");
    live<IKvTsOverUdpReceiverFactory, TsOverUdpSettings>(kServedClasses[3], "udp://a", "udp://b");
}

// A receiver released inside a callback keeps the module until its own thread has ended.
TEST_F(ModuleLife, ReleasedInsideACallbackItStaysUntilTheReceiverHasEnded) {
    {
        HostOf<IKvRtspReceiverFactory, RtspSettings> host(kServedClasses[0], "rtsp://a", &m_detector);
        ASSERT_EQ(host.receiver->Start(), S_OK);
        m_sink.onCall = [&](const std::string&) {
            EXPECT_EQ(host.receiver->Release(), 0U);
            CoFreeUnusedLibraries();
            EXPECT_TRUE(isModuleLoaded());
        };
        auto* const consumer = ScriptedSdk::consumers().at(0);
        ScriptedSdk::runOnClientThread([consumer] { ScriptedSdk::notify(*consumer, 10); });
        ASSERT_TRUE(ScriptedSdk::waitForClientThreads());
    }
    const LoadedModule module;
    EXPECT_TRUE(module.waitUntilUnloadable());
}

TEST_F(ModuleLife, LoadedAndUnloadedManyTimes) {
    for (int round = 0; round < 50; ++round) {
        IUnknown* factory = nullptr;
        ASSERT_EQ(CoCreateInstance(CLSID_RtspReceiverFactory, nullptr, CLSCTX_INPROC_SERVER, IID_IUnknown,
                                   reinterpret_cast<void**>(&factory)),
                  S_OK);
        EXPECT_EQ(factory->Release(), 0U);
        CoFreeUnusedLibraries();
        ASSERT_FALSE(isModuleLoaded());
    }
}

} // namespace
