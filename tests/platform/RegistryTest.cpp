#include <gtest/gtest.h>

#include <string>

#include "PlatformRegistry.h"
#include "TemporaryRegistry.h"

namespace {

using KvTest::TemporaryRegistry;

TEST(Registry, KeepsAValue) {
    const TemporaryRegistry registry;
    EXPECT_EQ(RegSetValueW(HKEY_CLASSES_ROOT, L"CLSID\\{x}", REG_SZ, L"name", 0), LSTATUS{ERROR_SUCCESS});
    HKEY key = nullptr;
    ASSERT_EQ(RegOpenKeyExW(HKEY_CLASSES_ROOT, L"clsid\\{X}", 0, KEY_READ, &key), LSTATUS{ERROR_SUCCESS});
    wchar_t text[8];
    DWORD bytes = sizeof text;
    EXPECT_EQ(RegQueryValueExW(key, nullptr, nullptr, nullptr, reinterpret_cast<BYTE*>(text), &bytes),
              LSTATUS{ERROR_SUCCESS});
    EXPECT_EQ(std::wstring(text), L"name");
    EXPECT_EQ(bytes, 5 * sizeof(wchar_t));
    EXPECT_EQ(RegCloseKey(key), LSTATUS{ERROR_SUCCESS});
    EXPECT_EQ(RegCloseKey(key), LSTATUS{ERROR_INVALID_HANDLE});
}

} // namespace
