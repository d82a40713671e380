#include <gtest/gtest.h>

#include <dlfcn.h>

#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "PlatformRegistry.h"
#include "TemporaryRegistry.h"
#include "TestObject.h"
#include "TestServer.h"

namespace {

using KvTest::TemporaryRegistry;

constexpr CLSID c_otherClass{1, 2, 3, {}};
constexpr DWORD mta = COINIT_MULTITHREADED;
constexpr DWORD sta = COINIT_APARTMENTTHREADED;

class ComScope {
public:
    explicit ComScope(DWORD model = mta) { EXPECT_EQ(CoInitializeEx(nullptr, model), S_OK); }
    ~ComScope() { CoUninitialize(); }
    ComScope(const ComScope&) = delete;
    ComScope& operator=(const ComScope&) = delete;
};

IUnknown* makeObject() { return new TestObject<IUnknown>; }
IUnknown* makeNothing() { return nullptr; }

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
    void* made = &made; // which a failure clears
    const HRESULT result = CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, iid, &made);
    EXPECT_EQ(made == nullptr, FAILED(result));
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

TEST(Apartment, IsCountedForEachThread) {
    struct Row {
        const char* calls; // M and A enter a multithreaded or single-threaded apartment, - leaves
        std::vector<HRESULT> entered;
    };
    const Row rows[] = {{"MM", {S_OK, S_FALSE}},
                        {"AMA", {S_OK, RPC_E_CHANGED_MODE, S_FALSE}},
                        {"MA-A", {S_OK, RPC_E_CHANGED_MODE, S_OK}}, // a refused entry is not counted
                        {"AA-M-M", {S_OK, S_FALSE, RPC_E_CHANGED_MODE, S_OK}},
                        {"-M", {S_OK}}};
    for (const Row& row : rows) {
        std::thread([&row] {
            std::vector<HRESULT> entered;
            for (const char call : std::string(row.calls)) {
                if (call == '-') {
                    CoUninitialize();
                } else {
                    entered.push_back(CoInitializeEx(nullptr, call == 'M' ? mta : sta));
                }
            }
            EXPECT_EQ(entered, row.entered) << row.calls;
            for (std::size_t i = 0; i < entered.size(); ++i) {
                CoUninitialize(); // too often does no harm
            }
        }).join();
    }
}

TEST(Apartment, MultithreadedOneServesEveryThread) {
    TestClass objects(makeObject);
    const Served served(c_otherClass, &objects);
    const auto expectCreation = [](HRESULT expected) {
        IUnknown* object = nullptr;
        EXPECT_EQ(create(c_otherClass, &object), expected);
        EXPECT_TRUE(object == nullptr || object->Release() == 0);
    };
    const auto onAnotherThread = [&](HRESULT expected) { std::thread(expectCreation, expected).join(); };
    onAnotherThread(CO_E_NOTINITIALIZED);
    {
        const ComScope com(sta);
        expectCreation(S_OK);
        onAnotherThread(CO_E_NOTINITIALIZED);
    }
    {
        const ComScope com(mta);
        onAnotherThread(S_OK);
    }
    expectCreation(CO_E_NOTINITIALIZED);
}

TEST(CoCreateInstance, SaysWhyThereIsNoObject) {
    const TemporaryRegistry registry;
    const std::string garbage = registry.directory() / "garbage.so";
    std::ofstream(garbage) << "no library";
    Dl_info platform{};
    ASSERT_NE(dladdr(dlsym(RTLD_NEXT, "CoRevokeClassObject"), &platform), 0);
    const ComScope com;
    IUnknown* object = nullptr;
    EXPECT_EQ(create(c_otherClass, &object), REGDB_E_CLASSNOTREG);
    const std::pair<std::string, HRESULT> servers[] = {{"/nonexistent/module.so", CO_E_DLLNOTFOUND},
                                                       {garbage, CO_E_DLLNOTFOUND},
                                                       {platform.dli_fname, CO_E_ERRORINDLL},
                                                       {KV_TEST_SERVER, CLASS_E_CLASSNOTAVAILABLE}};
    for (const auto& [path, expected] : servers) {
        registerServer(c_otherClass, path);
        EXPECT_EQ(create(c_otherClass, &object), expected) << path;
    }
    registerServer(CLSID_TestServer, KV_TEST_SERVER);
    EXPECT_EQ(create(CLSID_TestServer, &object, c_otherClass), E_NOINTERFACE);
    CoFreeUnusedLibraries();
    EXPECT_EQ(loadedServer(), nullptr);
}

TEST(CoCreateInstance, AsksRegisteredClassObjectsFirstAndTheNewestOfThem) {
    const TemporaryRegistry registry;
    const ComScope com;
    registerServer(CLSID_TestServer, KV_TEST_SERVER);
    TestClass older(makeNothing);
    TestClass newer(makeObject);
    {
        const Served olderServed(CLSID_TestServer, &older);
        IUnknown* object = nullptr;
        {
            const Served newerServed(CLSID_TestServer, &newer);
            ASSERT_EQ(create(CLSID_TestServer, &object), S_OK);
            EXPECT_EQ(object->Release(), 0U);
            EXPECT_EQ(newer.references(), 1U);
        }
        EXPECT_EQ(create(CLSID_TestServer, &object), E_OUTOFMEMORY) << "its failure is final";
        EXPECT_EQ(older.references(), 1U);
    }
    EXPECT_EQ(older.references() + newer.references(), 0U);
    EXPECT_EQ(loadedServer(), nullptr);
    EXPECT_EQ(CoRevokeClassObject(12345), CO_E_OBJNOTREG);
}

// The test server in a registry of its own, and the calling thread in COM.
class RegisteredServer : public testing::Test {
protected:
    RegisteredServer() { registerServer(CLSID_TestServer, KV_TEST_SERVER); }

private:
    const TemporaryRegistry m_registry;
    const ComScope m_com;
};

TEST_F(RegisteredServer, IsLoadedOnceByManyThreadsAndStaysWhileAnObjectLives) {
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
            ASSERT_NE(loadedServer(), nullptr);
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

// Its destructor runs after main.
class UsedAfterMain {
public:
    ~UsedAfterMain() {
        IUnknown* object = nullptr;
        if (CoInitializeEx(nullptr, sta) != S_OK ||
            create(CLSID_TestServer, &object) != REGDB_E_CLASSNOTREG) {
            std::_Exit(1);
        }
        CoUninitialize();
    }
};
const UsedAfterMain g_usedAfterMain;

} // namespace
