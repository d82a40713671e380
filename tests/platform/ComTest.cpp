#include <gtest/gtest.h>

#include <dlfcn.h>

#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "PlatformFaults.h"
#include "PlatformRegistry.h"
#include "TemporaryRegistry.h"
#include "TestObject.h"
#include "TestServer.h"

namespace {

using KvTest::TemporaryRegistry;

constexpr DWORD longWait = 10'000;
constexpr IID unknownInterface{0x11111111, 1, 1, {1, 1, 1, 1, 1, 1, 1, 1}};

class ComScope {
public:
    explicit ComScope(DWORD model = COINIT_MULTITHREADED) : m_result(CoInitializeEx(nullptr, model)) {}
    ~ComScope() {
        if (SUCCEEDED(m_result)) {
            CoUninitialize();
        }
    }
    ComScope(const ComScope&) = delete;
    ComScope& operator=(const ComScope&) = delete;

private:
    const HRESULT m_result;
};

// A class object and its objects in one: counts references, and answers every creation with itself.
class CountingClass final : public StaticTestObject<IClassFactory> {
public:
    HRESULT QueryInterface(REFIID /*iid*/, void** object) override {
        *object = static_cast<IClassFactory*>(this);
        AddRef();
        return S_OK;
    }
    HRESULT CreateInstance(IUnknown* /*outer*/, REFIID iid, void** object) override {
        ++creations;
        return FAILED(creationResult) ? creationResult : QueryInterface(iid, object);
    }
    HRESULT LockServer(BOOL /*lock*/) override { return S_OK; }

    std::atomic<int> creations{0};
    HRESULT creationResult = S_OK;
};

// Serves a class from `classObject` while it lives.
class Served {
public:
    Served(REFCLSID clsid, IUnknown* classObject) {
        EXPECT_EQ(
            CoRegisterClassObject(clsid, classObject, CLSCTX_INPROC_SERVER, REGCLS_MULTIPLEUSE, &m_cookie),
            S_OK);
    }
    ~Served() { EXPECT_EQ(CoRevokeClassObject(m_cookie), S_OK); }
    Served(const Served&) = delete;
    Served& operator=(const Served&) = delete;

private:
    DWORD m_cookie = 0;
};

void registerServer(REFCLSID clsid, const std::string& path) {
    wchar_t text[39];
    StringFromGUID2(clsid, text, 39);
    const std::wstring key = std::wstring(L"CLSID\\") + text + L"\\InprocServer32";
    const std::wstring widePath(path.begin(), path.end());
    ASSERT_EQ(RegSetValueW(HKEY_CLASSES_ROOT, key.c_str(), REG_SZ, widePath.c_str(), 0),
              LSTATUS{ERROR_SUCCESS});
}

HRESULT create(REFCLSID clsid, IUnknown** object, REFIID iid = IID_IUnknown) {
    void* made = nullptr;
    const HRESULT result = CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, iid, &made);
    *object = static_cast<IUnknown*>(made);
    return result;
}

// The loaded test server's state; null when it is not loaded.
TestServerState* loadedServer() {
    void* library = dlopen(KV_TEST_SERVER, RTLD_LAZY | RTLD_NOLOAD);
    if (library == nullptr) {
        return nullptr;
    }
    const auto state = reinterpret_cast<TestServerStateFunction>(dlsym(library, "testServerState"));
    dlclose(library);
    return state();
}

struct ApartmentCall {
    bool isUninitialize;
    DWORD model;
    HRESULT expected;
};
constexpr DWORD mta = COINIT_MULTITHREADED;
constexpr DWORD sta = COINIT_APARTMENTTHREADED;

struct ApartmentCase {
    const char* name;
    std::vector<ApartmentCall> calls;
};

TEST(Apartment, IsCountedForEachThread) {
    const ApartmentCase cases[] = {
        {"same model", {{false, mta, S_OK}, {false, mta, S_FALSE}}},
        {"other model", {{false, sta, S_OK}, {false, mta, RPC_E_CHANGED_MODE}, {false, sta, S_FALSE}}},
        {"refused entry is not counted",
         {{false, mta, S_OK}, {false, sta, RPC_E_CHANGED_MODE}, {true, 0, 0}, {false, sta, S_OK}}},
        {"left as often as entered",
         {{false, sta, S_OK},
          {false, sta, S_FALSE},
          {true, 0, 0},
          {false, mta, RPC_E_CHANGED_MODE},
          {true, 0, 0},
          {false, mta, S_OK}}},
        {"left without entry", {{true, 0, 0}, {false, mta, S_OK}}},
    };
    for (const ApartmentCase& row : cases) {
        std::thread([&row] {
            int entered = 0;
            for (const ApartmentCall& call : row.calls) {
                if (call.isUninitialize) {
                    CoUninitialize();
                    --entered;
                } else {
                    EXPECT_EQ(CoInitializeEx(nullptr, call.model), call.expected) << row.name;
                    entered += SUCCEEDED(call.expected) ? 1 : 0;
                }
            }
            for (; entered > 0; --entered) {
                CoUninitialize();
            }
        }).join();
    }
    int reserved = 0;
    EXPECT_EQ(CoInitializeEx(&reserved, mta), E_INVALIDARG);
}

TEST(Apartment, MultithreadedOneServesEveryThread) {
    CountingClass counting;
    const Served served(CLSID_MadeAtLoad, &counting);
    IUnknown* object = nullptr;
    EXPECT_EQ(create(CLSID_MadeAtLoad, &object), CO_E_NOTINITIALIZED);
    std::thread([&object] {
        const ComScope com(sta);
        EXPECT_EQ(create(CLSID_MadeAtLoad, &object), S_OK);
        std::thread([] {
            IUnknown* refused = nullptr;
            EXPECT_EQ(create(CLSID_MadeAtLoad, &refused), CO_E_NOTINITIALIZED);
        }).join();
    }).join();
    {
        const ComScope com(mta);
        std::thread([&object] { EXPECT_EQ(create(CLSID_MadeAtLoad, &object), S_OK); }).join();
    }
    EXPECT_EQ(create(CLSID_MadeAtLoad, &object), CO_E_NOTINITIALIZED);
}

TEST(CoCreateInstance, SaysWhyThereIsNoObject) {
    const TemporaryRegistry registry;
    const std::string garbage = registry.directory() / "garbage.so";
    std::ofstream(garbage) << "no library";
    Dl_info platform{};
    ASSERT_NE(dladdr(dlsym(RTLD_NEXT, "CoRevokeClassObject"), &platform), 0);
    const ComScope com;
    struct Row {
        const char* name;
        std::string path;
        HRESULT expected;
    };
    const Row rows[] = {
        {"not registered", {}, REGDB_E_CLASSNOTREG},
        {"no such file", "/nonexistent/module.so", CO_E_DLLNOTFOUND},
        {"no library", garbage, CO_E_DLLNOTFOUND},
        {"library that is no server", platform.dli_fname, CO_E_ERRORINDLL},
        {"server of other classes", KV_TEST_SERVER, CLASS_E_CLASSNOTAVAILABLE},
    };
    for (const Row& row : rows) {
        if (!row.path.empty()) {
            registerServer(CLSID_MadeAtLoad, row.path);
        }
        int sentinel = 0;
        void* object = &sentinel;
        EXPECT_EQ(CoCreateInstance(CLSID_MadeAtLoad, nullptr, CLSCTX_INPROC_SERVER, IID_IUnknown, &object),
                  row.expected)
            << row.name;
        EXPECT_EQ(object, nullptr) << row.name;
    }
    IUnknown* object = nullptr;
    EXPECT_EQ(CoCreateInstance(CLSID_MadeAtLoad, nullptr, CLSCTX_INPROC_SERVER, IID_IUnknown, nullptr),
              E_POINTER);
    void* made = nullptr;
    EXPECT_EQ(CoCreateInstance(CLSID_MadeAtLoad, nullptr, 0, IID_IUnknown, &made), E_INVALIDARG);
    registerServer(CLSID_TestServer, KV_TEST_SERVER);
    EXPECT_EQ(create(CLSID_TestServer, &object, unknownInterface), E_NOINTERFACE);
    EXPECT_EQ(object, nullptr);
    CoFreeUnusedLibraries();
    EXPECT_EQ(loadedServer(), nullptr);
}

TEST(CoCreateInstance, AsksRegisteredClassObjectsFirstAndTheNewestOfThem) {
    const TemporaryRegistry registry;
    const ComScope com;
    registerServer(CLSID_TestServer, KV_TEST_SERVER);
    CountingClass older;
    CountingClass newer;
    {
        const Served olderServed(CLSID_TestServer, &older);
        const Served newerServed(CLSID_TestServer, &newer);
        EXPECT_EQ(newer.references(), 1U);
        IUnknown* object = nullptr;
        EXPECT_EQ(create(CLSID_TestServer, &object), S_OK);
        EXPECT_EQ(newer.references(), 2U) << "the registration and the object";
        newer.creationResult = E_FAIL;
        EXPECT_EQ(create(CLSID_TestServer, &object), E_FAIL);
        EXPECT_EQ(object, nullptr);
        EXPECT_EQ(newer.references(), 2U);
        newer.Release();
    }
    EXPECT_EQ(older.creations, 0);
    EXPECT_EQ(newer.creations, 2);
    EXPECT_EQ(older.references(), 0U);
    EXPECT_EQ(newer.references(), 0U);
    EXPECT_EQ(loadedServer(), nullptr);
}

TEST(ClassObject, RegistrationRefusesBadArguments) {
    CountingClass counting;
    DWORD cookie = 5;
    EXPECT_EQ(
        CoRegisterClassObject(CLSID_TestServer, nullptr, CLSCTX_INPROC_SERVER, REGCLS_MULTIPLEUSE, &cookie),
        E_INVALIDARG);
    EXPECT_EQ(cookie, 0U);
    EXPECT_EQ(
        CoRegisterClassObject(CLSID_TestServer, &counting, CLSCTX_INPROC_SERVER, REGCLS_MULTIPLEUSE, nullptr),
        E_POINTER);
    EXPECT_EQ(CoRevokeClassObject(12345), CO_E_OBJNOTREG);
    EXPECT_EQ(counting.references(), 0U);
}

// The test server in a registry of its own, and the calling thread in COM.
class RegisteredServer : public testing::Test {
protected:
    RegisteredServer() { registerServer(CLSID_TestServer, KV_TEST_SERVER); }

private:
    const TemporaryRegistry m_registry;
    const ComScope m_com;
};

TEST_F(RegisteredServer, StaysLoadedWhileAnObjectLives) {
    IUnknown* object = nullptr;
    ASSERT_EQ(create(CLSID_TestServer, &object), S_OK);
    CoFreeUnusedLibraries();
    TestServerState* state = loadedServer();
    ASSERT_NE(state, nullptr);
    EXPECT_EQ(state->objects, 1);
    EXPECT_EQ(state->reason, DLL_PROCESS_ATTACH);
    object->Release();
    EXPECT_NE(loadedServer(), nullptr);
    CoFreeUnusedLibraries();
    EXPECT_EQ(loadedServer(), nullptr);
}

TEST_F(RegisteredServer, IsLoadedOnceByManyThreads) {
    for (int round = 0; round < 10; ++round) {
        IUnknown* objects[4] = {};
        std::vector<std::thread> threads;
        for (IUnknown*& object : objects) {
            threads.emplace_back([&object] {
                EXPECT_EQ(create(CLSID_TestServer, &object), S_OK);
                CoFreeUnusedLibraries();
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        for (IUnknown* object : objects) {
            object->Release();
        }
        CoFreeUnusedLibraries();
        EXPECT_EQ(loadedServer(), nullptr) << "round " << round;
    }
}

TEST_F(RegisteredServer, StaysLoadedWhileACreationIsInsideIt) {
    IUnknown* first = nullptr;
    ASSERT_EQ(create(CLSID_TestServer, &first), S_OK);
    TestServerState* state = loadedServer();
    ASSERT_NE(state, nullptr);
    HANDLE entered = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    HANDLE proceed = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    state->alwaysUnloadable = true;
    state->proceed = proceed;
    state->entered = entered;
    IUnknown* second = nullptr;
    std::thread creating([&second] { EXPECT_EQ(create(CLSID_TestServer, &second), S_OK); });
    EXPECT_EQ(WaitForSingleObject(entered, longWait), WAIT_OBJECT_0);
    CoFreeUnusedLibraries();
    EXPECT_NE(loadedServer(), nullptr);
    SetEvent(proceed);
    creating.join();
    first->Release();
    second->Release();
    CoFreeUnusedLibraries();
    EXPECT_EQ(loadedServer(), nullptr);
    CloseHandle(entered);
    CloseHandle(proceed);
}

TEST(Server, MayCreateObjectsInItsStaticInitialisers) {
    const TemporaryRegistry registry;
    CountingClass counting;
    const Served served(CLSID_MadeAtLoad, &counting);
    std::thread([&counting] {
        HMODULE module = LoadLibraryA(KV_TEST_SERVER);
        ASSERT_NE(module, nullptr);
        EXPECT_EQ(counting.creations, 1);
        EXPECT_EQ(counting.references(), 2U);
        EXPECT_EQ(CoInitializeEx(nullptr, mta), RPC_E_CHANGED_MODE) << "the module entered";
        EXPECT_TRUE(FreeLibrary(module));
        EXPECT_EQ(counting.references(), 1U);
        const ComScope com(mta);
        IUnknown* object = nullptr;
        EXPECT_EQ(create(CLSID_MadeAtLoad, &object), S_OK) << "the module left";
        counting.Release();
    }).join();
}

TEST(Server, MeetsTheFaultsOfTheProgram) {
    const KvTest::PlatformFault fault(KvTest::PlatformCall::CoInitializeEx, {.result = RPC_E_CHANGED_MODE});
    HMODULE module = LoadLibraryA(KV_TEST_SERVER);
    ASSERT_NE(module, nullptr);
    EXPECT_EQ(fault.failed(), 1U);
    EXPECT_TRUE(FreeLibrary(module));
}

// Its destructor runs after main.
class UsedAfterMain {
public:
    ~UsedAfterMain() {
        IUnknown* object = nullptr;
        const bool works =
            CoInitializeEx(nullptr, sta) == S_OK && create(CLSID_TestServer, &object) == REGDB_E_CLASSNOTREG;
        CoUninitialize();
        if (!works) {
            std::_Exit(1);
        }
    }
};
const UsedAfterMain g_usedAfterMain;

} // namespace
