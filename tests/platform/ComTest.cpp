#include <gtest/gtest.h>

#include <dlfcn.h>

#include <latch>
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

bool isServerLoaded() {
    void* const library = dlopen(KV_TEST_SERVER, RTLD_LAZY | RTLD_NOLOAD);
    return library != nullptr && dlclose(library) == 0;
}

TEST(Apartment, IsCountedForEachThread) {
    // M and A enter a multithreaded or single-threaded apartment, - leaves; what the entries say.
    const std::pair<std::string, std::vector<HRESULT>> rows[] = {
        {"MM--", {S_OK, S_FALSE}},
        {"MA-A-", {S_OK, RPC_E_CHANGED_MODE, S_OK}},
        {"-AA-M-M-", {S_OK, S_FALSE, RPC_E_CHANGED_MODE, S_OK}}};
    for (const auto& row : rows) {
        std::thread([&row] {
            std::vector<HRESULT> entered;
            for (const char call : row.first) {
                if (call == '-') {
                    CoUninitialize();
                } else {
                    entered.push_back(CoInitializeEx(nullptr, call == 'M' ? mta : sta));
                }
            }
            EXPECT_EQ(entered, row.second) << row.first;
        }).join();
    }
}

TEST(Apartment, MultithreadedOneServesEveryThread) {
    const TemporaryRegistry registry;
    const auto expectOnAnotherThread = [](HRESULT expected) {
        IUnknown* object = nullptr;
        std::thread([&] { EXPECT_EQ(create(CLSID_TestServer, &object), expected); }).join();
    };
    expectOnAnotherThread(CO_E_NOTINITIALIZED);
    for (const DWORD model : {sta, mta}) {
        const ComScope com(model);
        expectOnAnotherThread(model == mta ? REGDB_E_CLASSNOTREG : CO_E_NOTINITIALIZED);
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
    Dl_info platform{};
    ASSERT_NE(dladdr(dlsym(RTLD_NEXT, "CoRevokeClassObject"), &platform), 0);
    EXPECT_EQ(create(c_otherClass, &object), REGDB_E_CLASSNOTREG);
    for (const auto& [path, expected] :
         {std::pair<std::string, HRESULT>{"/nonexistent/module.so", CO_E_DLLNOTFOUND},
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
    TestClass older([]() -> IUnknown* { return nullptr; });
    TestClass newer([]() -> IUnknown* { return new TestObject<IUnknown>; });
    DWORD cookies[2];
    for (const int index : {0, 1}) {
        EXPECT_EQ(CoRegisterClassObject(CLSID_TestServer, index == 0 ? &older : &newer, CLSCTX_INPROC_SERVER,
                                        REGCLS_MULTIPLEUSE, &cookies[index]),
                  S_OK);
    }
    ASSERT_EQ(create(CLSID_TestServer, &object), S_OK);
    EXPECT_EQ(object->Release(), 0U);
    EXPECT_EQ(CoRevokeClassObject(cookies[1]), S_OK);
    EXPECT_EQ(create(CLSID_TestServer, &object), E_OUTOFMEMORY) << "its failure is final";
    EXPECT_EQ(CoRevokeClassObject(cookies[0]), S_OK);
    EXPECT_EQ(CoRevokeClassObject(cookies[0]), CO_E_OBJNOTREG);
    EXPECT_EQ(older.references() + newer.references(), 0U);
    EXPECT_FALSE(isServerLoaded());
}

TEST_F(CreateInstance, LoadsOnceForManyThreadsAndUnloadsWhenNoObjectLives) {
    registerServer(CLSID_TestServer, KV_TEST_SERVER);
    for (int round = 0; round < 20; ++round) {
        IUnknown* objects[4] = {};
        std::latch begin(5);
        std::vector<std::thread> threads;
        for (IUnknown*& made : objects) {
            threads.emplace_back([&made, &begin] {
                begin.arrive_and_wait();
                EXPECT_EQ(create(CLSID_TestServer, &made), S_OK);
                CoFreeUnusedLibraries();
            });
        }
        begin.arrive_and_wait();
        for (std::thread& thread : threads) {
            CoFreeUnusedLibraries();
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

} // namespace
