#include "TestServer.h"

#include "PlatformCompiler.h"
#include "TestObject.h"

namespace {

constinit TestServerState g_state;

struct Object final : TestObject<IUnknown> {
    Object() { ++g_state.objects; }
    ~Object() override { --g_state.objects; }
};

class Factory final : public StaticTestObject<IClassFactory> {
public:
    HRESULT QueryInterface(REFIID iid, void** object) override {
        *object = iid == IID_IClassFactory ? this : nullptr;
        return *object != nullptr ? S_OK : E_NOINTERFACE;
    }
    HRESULT CreateInstance(IUnknown* /*outer*/, REFIID iid, void** object) override {
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

BOOL DllMain(HMODULE module, DWORD /*reason*/, void* /*reserved*/) {
    g_state.module = module;
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

KV_EXPORT HRESULT DllCanUnloadNow() { return g_state.objects == 0 ? S_OK : S_FALSE; }
}
