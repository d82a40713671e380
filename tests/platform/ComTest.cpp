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

// Serves a class by the objects that `make` makes while it lives.
class Served {
public:
    Served(REFCLSID clsid, IUnknown* (*make)()) : m_class(make) {
        EXPECT_EQ(CoRegisterClassObject(clsid, &m_class, CLSCTX_INPROC_SERVER, REGCLS_MULTIPLEUSE, &m_cookie),
                  S_OK);
    }
    ~Served() {
        EXPECT_EQ(CoRevokeClassObject(m_cookie), S_OK);
        EXPECT_EQ(m_class.references(), 0U);
    }
    Served(const Served&) = delete;
    Served& operator=(const Served&) = delete;

private:
    TestClass m_class;
    DWORD m_cookie = 0;
};

IUnknown* makeObject() { return new TestObject<IUnknown>; }

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

bool isServerLoaded() {
    void* const library = dlopen(KV_TEST_SERVER, RTLD_LAZY | RTLD_NOLOAD);
    return library != nullptr && dlclose(library) == 0;
}

TEST(Apartment, IsCountedForEachThread) {
    // M and A enter a multithreaded or single-threaded apartment (0 done, 1 again, x refused), - leaves
    for (const auto& [calls, expected] : {std::pair<std::string, std::string>{"MM", "01"},
                                          {"MA-A", "0x-0"},
                                          {"AA-M-M", "01-x-0"},
                                          {"-M", "-0"}}) {
        std::thread([calls = calls, expected = expected] {
            std::string entered;
            for (const char call : calls + "------") { // leaving too often does no harm
                if (call == '-') {
                    CoUninitialize();
                    entered += '-';
                } else {
                    const HRESULT result = CoInitializeEx(nullptr, call == 'M' ? mta : sta);
                    entered += result == S_OK                 ? '0'
                               : result == S_FALSE            ? '1'
                               : result == RPC_E_CHANGED_MODE ? 'x'
                                                              : '?';
                }
            }
            EXPECT_EQ(entered, expected + "------");
        }).join();
    }
}

TEST(Apartment, MultithreadedOneServesEveryThread) {
    const Served served(c_otherClass, makeObject);
    const auto expectOnAnotherThread = [](HRESULT expected) {
        std::thread([expected] {
            IUnknown* object = nullptr;
            EXPECT_EQ(create(c_otherClass, &object), expected);
            EXPECT_TRUE(object == nullptr || object->Release() == 0);
        }).join();
    };
    expectOnAnotherThread(CO_E_NOTINITIALIZED);
    for (const DWORD model : {sta, mta}) {
        const ComScope com(model);
        expectOnAnotherThread(model == mta ? S_OK : CO_E_NOTINITIALIZED);
    }
    expectOnAnotherThread(CO_E_NOTINITIALIZED);
}

class CreateInstance : public testing::Test {
protected:
    const TemporaryRegistry registry;
    const ComScope com;
    IUnknown* object = nullptr;
};

TEST_F(CreateInstance, SaysWhyThereIsNoObject) {
    const std::string garbage = registry.directory() / "garbage.so";
    std::ofstream(garbage) << "no library";
    Dl_info platform{};
    ASSERT_NE(dladdr(dlsym(RTLD_NEXT, "CoRevokeClassObject"), &platform), 0);
    EXPECT_EQ(create(c_otherClass, &object), REGDB_E_CLASSNOTREG);
    for (const auto& [path, expected] :
         {std::pair<std::string, HRESULT>{"/nonexistent/module.so", CO_E_DLLNOTFOUND},
          {garbage, CO_E_DLLNOTFOUND},
          {platform.dli_fname, CO_E_ERRORINDLL},
          {KV_TEST_SERVER, CLASS_E_CLASSNOTAVAILABLE}}) {
        registerServer(c_otherClass, path);
        EXPECT_EQ(create(c_otherClass, &object), expected) << path;
    }
    registerServer(CLSID_TestServer, KV_TEST_SERVER);
    EXPECT_EQ(create(CLSID_TestServer, &object, c_otherClass), E_NOINTERFACE);
    CoFreeUnusedLibraries();
    EXPECT_FALSE(isServerLoaded());
}

TEST_F(CreateInstance, AsksRegisteredClassObjectsFirstAndTheNewestOfThem) {
    registerServer(CLSID_TestServer, KV_TEST_SERVER);
    const Served older(CLSID_TestServer, [] { return static_cast<IUnknown*>(nullptr); });
    {
        const Served newer(CLSID_TestServer, makeObject);
        ASSERT_EQ(create(CLSID_TestServer, &object), S_OK);
        EXPECT_EQ(object->Release(), 0U);
    }
    EXPECT_EQ(create(CLSID_TestServer, &object), E_OUTOFMEMORY) << "its failure is final";
    EXPECT_FALSE(isServerLoaded());
    EXPECT_EQ(CoRevokeClassObject(12345), CO_E_OBJNOTREG);
}

TEST_F(CreateInstance, LoadsOnceForManyThreadsAndUnloadsWhenNoObjectLives) {
    registerServer(CLSID_TestServer, KV_TEST_SERVER);
    for (int round = 0; round < 20; ++round) {
        IUnknown* objects[4] = {};
        std::vector<std::thread> threads;
        for (IUnknown*& made : objects) {
            threads.emplace_back([&made] {
                EXPECT_EQ(create(CLSID_TestServer, &made), S_OK);
                CoFreeUnusedLibraries();
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        for (IUnknown* made : objects) {
            CoFreeUnusedLibraries();
            ASSERT_TRUE(isServerLoaded());
            made->Release();
        }
        CoFreeUnusedLibraries();
        EXPECT_FALSE(isServerLoaded()) << "round " << round;
    }
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
