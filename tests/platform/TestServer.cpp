#include "TestServer.h"

#include "PlatformCompiler.h"
#include "TestObject.h"

namespace {

constinit TestServerState g_state;

// Enters COM and makes an object while the module is loaded; leaves while it is unloaded, if by the same
// thread.
class MadeAtLoad {
public:
    MadeAtLoad() : m_entered(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED)) {
        void* object = nullptr;
        CoCreateInstance(CLSID_MadeAtLoad, nullptr, CLSCTX_INPROC_SERVER, IID_IUnknown, &object);
        m_object = static_cast<IUnknown*>(object);
    }
    ~MadeAtLoad() {
        if (m_object != nullptr) {
            m_object->Release();
        }
        if (SUCCEEDED(m_entered) && m_thread == GetCurrentThreadId()) {
            CoUninitialize();
        }
    }
    MadeAtLoad(const MadeAtLoad&) = delete;
    MadeAtLoad& operator=(const MadeAtLoad&) = delete;

private:
    const HRESULT m_entered;
    const DWORD m_thread = GetCurrentThreadId();
    IUnknown* m_object = nullptr;
};

const MadeAtLoad g_madeAtLoad;

class Object final : public TestObject<IUnknown> {
public:
    Object() { ++g_state.objects; }
    ~Object() override { --g_state.objects; }
    Object(const Object&) = delete;
    Object& operator=(const Object&) = delete;
};

class Factory final : public StaticTestObject<IClassFactory> {
public:
    HRESULT QueryInterface(REFIID iid, void** object) override {
        *object = iid == IID_IClassFactory ? this : nullptr;
        return *object != nullptr ? S_OK : E_NOINTERFACE;
    }
    HRESULT CreateInstance(IUnknown* /*outer*/, REFIID iid, void** object) override {
        if (g_state.entered != nullptr) {
            SetEvent(g_state.entered);
            WaitForSingleObject(g_state.proceed, 10'000);
        }
        auto* made = new Object;
        const HRESULT result = made->QueryInterface(iid, object);
        made->Release();
        return result;
    }
    HRESULT LockServer(BOOL /*lock*/) override { return S_OK; }
};

// Usable without its initialiser: the thread sanitizer does not see that the loader has run it.
constinit Factory g_factory;

} // namespace

extern "C" {

BOOL DllMain(HMODULE module, DWORD reason, void* /*reserved*/) {
    g_state.module = module;
    g_state.reason = reason;
    return TRUE;
}

KV_EXPORT TestServerState* testServerState() { return &g_state; }

KV_EXPORT HRESULT DllGetClassObject(REFCLSID clsid, REFIID iid, void** object) {
    if (clsid != CLSID_TestServer) {
        *object = nullptr;
        return CLASS_E_CLASSNOTAVAILABLE;
    }
    return g_factory.QueryInterface(iid, object);
}

KV_EXPORT HRESULT DllCanUnloadNow() {
    return g_state.alwaysUnloadable || g_state.objects == 0 ? S_OK : S_FALSE;
}
}
