#include <fstream>
#include <sstream>

#include "ModuleFixture.h"
#include "PlatformFaults.h"
#include "PlatformRegistry.h"

namespace {

using KvTest::Fault;
using KvTest::PlatformCall;
using KvTest::PlatformFault;

std::wstring keyOf(REFCLSID clsid) {
    wchar_t text[39];
    StringFromGUID2(clsid, text, 39);
    return std::wstring(L"CLSID\\") + text;
}

// A value of a key below the class root; "(none)" when there is no such key or value.
std::string valueOf(const std::wstring& key, const wchar_t* name) {
    HKEY handle = nullptr;
    if (RegOpenKeyExW(HKEY_CLASSES_ROOT, key.c_str(), 0, KEY_READ, &handle) != ERROR_SUCCESS) {
        return "(none)";
    }
    wchar_t text[1024]{};
    DWORD bytes = sizeof(text);
    const LSTATUS error =
        RegQueryValueExW(handle, name, nullptr, nullptr, reinterpret_cast<BYTE*>(text), &bytes);
    RegCloseKey(handle);
    return error == ERROR_SUCCESS ? std::string(std::begin(text), std::begin(text) + std::wcslen(text))
                                  : "(none)";
}

class Registration : public ModuleFixture {
protected:
    void expectRegistered(const std::string& path) {
        for (const ServedClass& served : kServedClasses) {
            const std::wstring key = keyOf(served.clsid);
            EXPECT_EQ(valueOf(key, nullptr), path.empty() ? "(none)" : served.displayName);
            EXPECT_EQ(valueOf(key + L"\\InprocServer32", nullptr), path.empty() ? "(none)" : path);
            EXPECT_EQ(valueOf(key + L"\\InprocServer32", L"ThreadingModel"),
                      path.empty() ? "(none)" : "Both");
        }
    }
    std::string registryText() {
        std::ostringstream text;
        text << std::ifstream(m_registry.file()).rdbuf();
        return text.str();
    }
};

TEST_F(Registration, WritesTheKeysOfEachClassAndRemovesThem) {
    const LoadedModule module;
    EXPECT_EQ(module.unregisterServer(), S_OK) << "nothing was registered";
    EXPECT_EQ(module.registerServer(), S_OK);
    expectRegistered(KV_MODULE);
    const std::string once = registryText();
    EXPECT_EQ(module.registerServer(), S_OK);
    EXPECT_EQ(registryText(), once);
    // What others wrote below a class goes with it; what is beside it stays.
    HKEY key = nullptr;
    ASSERT_EQ(RegCreateKeyW(HKEY_CLASSES_ROOT,
                            (keyOf(CLSID_RtspReceiverFactory) + L"\\Other\\Deep\\Deeper").c_str(), &key),
              ERROR_SUCCESS);
    RegCloseKey(key);
    ASSERT_EQ(RegSetValueW(HKEY_CLASSES_ROOT, L"CLSID\\Neighbour", REG_SZ, L"stays", 0), ERROR_SUCCESS);
    EXPECT_EQ(module.unregisterServer(), S_OK);
    expectRegistered("");
    EXPECT_EQ(valueOf(L"CLSID\\Neighbour", nullptr), "stays");
}

TEST_F(Registration, TheFirstFailingCallEndsItWithItsCode) {
    const LoadedModule module;
    struct Row {
        PlatformCall call;
        std::int64_t result;
        unsigned calls; // in one registration of all four classes
    };
    for (const Row& row :
         {Row{PlatformCall::RegCreateKeyW, 5, 8}, Row{PlatformCall::RegSetValueW, 0x12345, 8},
          Row{PlatformCall::RegSetValueExW, 14, 4}}) {
        for (unsigned after = 0; after < row.calls; ++after) {
            const std::uint64_t opened = KvTest::platformCalls(PlatformCall::RegCreateKeyW);
            const std::uint64_t closed = KvTest::platformCalls(PlatformCall::RegCloseKey);
            unsigned notOpened = 0;
            {
                const PlatformFault fault(row.call, Fault{row.result, after, 1, 0});
                EXPECT_EQ(module.registerServer(), static_cast<HRESULT>((row.result & 0xFFFF) | 0x80070000));
                EXPECT_EQ(fault.failed(), 1U);
                notOpened = row.call == PlatformCall::RegCreateKeyW ? 1 : 0;
            }
            EXPECT_EQ(KvTest::platformCalls(PlatformCall::RegCreateKeyW) - opened - notOpened,
                      KvTest::platformCalls(PlatformCall::RegCloseKey) - closed);
        }
    }
}

TEST_F(Registration, APathThatCannotBeReadIsThePlatformsError) {
    const LoadedModule module;
    for (const std::int64_t length : {0, 260}) { // none, or cut
        const PlatformFault fault(PlatformCall::GetModuleFileNameA,
                                  Fault{length, 0, 1, ERROR_INSUFFICIENT_BUFFER});
        EXPECT_EQ(module.registerServer(), kvResult(0x8007007A));
    }
    const PlatformFault fault(PlatformCall::GetModuleFileNameA, Fault{0, 0, 1, ERROR_MOD_NOT_FOUND});
    EXPECT_EQ(module.unregisterServer(), kvResult(0x8007007E));
    expectRegistered("");
}

// A key that cannot be removed is passed over: the removal ends, and takes the rest.
TEST_F(Registration, AKeyThatCannotBeRemovedDoesNotHoldUpTheOthers) {
    const LoadedModule module;
    ASSERT_EQ(module.registerServer(), S_OK);
    for (const wchar_t* name : {L"\\A", L"\\B", L"\\C"}) {
        ASSERT_EQ(RegSetValueW(HKEY_CLASSES_ROOT, (keyOf(CLSID_RtspReceiverFactory) + name).c_str(), REG_SZ,
                               L"x", 0),
                  ERROR_SUCCESS);
    }
    {
        const PlatformFault fault(PlatformCall::RegDeleteKeyW, Fault{ERROR_ACCESS_DENIED, 1, 1, 0});
        EXPECT_EQ(module.unregisterServer(), S_OK);
    }
    EXPECT_EQ(valueOf(keyOf(CLSID_RtspReceiverFactory) + L"\\A", nullptr), "(none)");
    EXPECT_EQ(valueOf(keyOf(CLSID_RtspReceiverFactory) + L"\\B", nullptr), "x");
    EXPECT_EQ(valueOf(keyOf(CLSID_RtspReceiverFactory) + L"\\C", nullptr), "(none)");
    EXPECT_EQ(valueOf(keyOf(CLSID_RtmpReceiverFactory), nullptr), "(none)");
    {
        const PlatformFault fault(PlatformCall::RegDeleteKeyW, Fault{ERROR_ACCESS_DENIED, 0, 1000, 0});
        EXPECT_EQ(module.unregisterServer(), S_OK);
    }
    EXPECT_EQ(module.unregisterServer(), S_OK);
    expectRegistered("");
}

} // namespace
