#include "TestServer.h"

#include <thread>

#include "PlatformCompiler.h"
#include "TestObject.h"

namespace {

HMODULE g_module = nullptr;
std::atomic<int> g_objects{0};

struct Object final : TestObject<IUnknown> {
    Object() { ++g_objects; }
    ~Object() override { --g_objects; }
};

// Usable without its initialiser: the thread sanitizer does not see that the loader has run it.
constinit TestClass g_factory([]() -> IUnknown* {
    std::this_thread::sleep_for(std::chrono::milliseconds(2)); // gives whoever unloads too early time to
    return new Object;
});

} // namespace

extern "C" {

BOOL DllMain(HMODULE module, DWORD /*reason*/, void* /*reserved*/) {
    g_module = module;
    return TRUE;
}

KV_EXPORT HMODULE testServerModule() { return g_module; }

KV_EXPORT HRESULT DllGetClassObject(REFCLSID clsid, REFIID iid, void** object) {
    if (clsid != CLSID_TestServer) {
        *object = nullptr;
        return CLASS_E_CLASSNOTAVAILABLE;
    }
    return g_factory.QueryInterface(iid, object);
}

KV_EXPORT HRESULT DllCanUnloadNow() { return g_objects == 0 ? S_OK : S_FALSE; }
}
