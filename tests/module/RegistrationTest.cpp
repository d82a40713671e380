#include "ModuleFixture.h"
#include "PlatformFaults.h"
#include "PlatformRegistry.h"

namespace {

using KvTest::PlatformCall;
using KvTest::PlatformFault;

std::wstring keyOf(REFCLSID clsid) {
    wchar_t text[39];
    StringFromGUID2(clsid, text, 39);
    return std::wstring(L"CLSID\\") + text;
}

// A value of a key below the class root; empty when there is no such key or value.
std::string valueOf(const std::wstring& key, const wchar_t* name = nullptr) {
    HKEY handle = nullptr;
    if (RegOpenKeyExW(HKEY_CLASSES_ROOT, key.c_str(), 0, KEY_READ, &handle) != ERROR_SUCCESS) {
        return "";
    }
    wchar_t text[1024]{};
    DWORD bytes = sizeof(text);
    RegQueryValueExW(handle, name, nullptr, nullptr, reinterpret_cast<BYTE*>(text), &bytes);
    RegCloseKey(handle);
    return {std::begin(text), std::begin(text) + std::wcslen(text)};
}

void addKey(const std::wstring& key) {
    ASSERT_EQ(RegSetValueW(HKEY_CLASSES_ROOT, key.c_str(), REG_SZ, L"x", 0), ERROR_SUCCESS);
}

class Registration : public ModuleFixture {
protected:
    static void expectRegistered(bool registered) {
        for (const ServedClass& served : kServedClasses) {
            const std::wstring key = keyOf(served.clsid);
            EXPECT_EQ(valueOf(key), registered ? served.displayName : "");
            EXPECT_EQ(valueOf(key + L"\\InprocServer32"), registered ? KV_MODULE : "");
            EXPECT_EQ(valueOf(key + L"\\InprocServer32", L"ThreadingModel"), registered ? "Both" : "");
        }
    }
    HRESULT registerServer() { return m_module.call("DllRegisterServer"); }
    HRESULT unregisterServer() { return m_module.call("DllUnregisterServer"); }

    const LoadedModule m_module;
};

TEST_F(Registration, WritesTheKeysOfEachClassAndRemovesThem) {
    EXPECT_EQ(unregisterServer(), S_OK) << "nothing was registered";
    EXPECT_EQ(registerServer(), S_OK);
    EXPECT_EQ(registerServer(), S_OK);
    expectRegistered(true);
    // What others wrote below a class goes with it; what is beside it stays.
    addKey(keyOf(CLSID_RtspReceiverFactory) + L"\\Other\\Deep\\Deeper");
    addKey(L"CLSID\\Neighbour");
    EXPECT_EQ(unregisterServer(), S_OK);
    expectRegistered(false);
    EXPECT_EQ(valueOf(L"CLSID\\Neighbour"), "x");
}

TEST_F(Registration, TheFirstFailingCallEndsItWithItsCode) {
    struct Row {
        PlatformCall call;
        std::int64_t error;
        unsigned calls; // in one registration of all four classes
        std::uint64_t notOpened;
    };
    for (const Row& row : {Row{PlatformCall::RegCreateKeyW, 5, 8, 1},
                           {PlatformCall::RegSetValueW, 0x12345, 8, 0},
                           {PlatformCall::RegSetValueExW, 14, 4, 0}}) {
        for (unsigned after = 0; after < row.calls; ++after) {
            const std::uint64_t opened = KvTest::platformCalls(PlatformCall::RegCreateKeyW);
            const std::uint64_t closed = KvTest::platformCalls(PlatformCall::RegCloseKey);
            const PlatformFault fault(row.call, {.result = row.error, .after = after});
            EXPECT_EQ(registerServer(), static_cast<HRESULT>((row.error & 0xFFFF) | 0x80070000));
            EXPECT_EQ(KvTest::platformCalls(PlatformCall::RegCreateKeyW) - opened - row.notOpened,
                      KvTest::platformCalls(PlatformCall::RegCloseKey) - closed);
        }
    }
}

} // namespace
