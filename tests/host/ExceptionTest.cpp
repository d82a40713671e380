#include <gtest/gtest.h>

#include <string>

#include "KvResultCodes.h"
#include "KvVaneException.h"
#include "PlatformModule.h"

// The module and its host are built apart and share no symbols; what one throws the other must still catch.
TEST(Exception, ThrownInAModuleIsCaughtByItsHost) {
    HMODULE module = LoadLibraryA(KV_THROWING_MODULE);
    ASSERT_NE(module, nullptr);
    const auto throwIt = reinterpret_cast<void (*)()>(GetProcAddress(module, "throwVaneException"));
    ASSERT_NE(throwIt, nullptr);
    HRESULT caught = S_OK;
    try {
        throwIt();
    } catch (const CKvVaneException& exception) {
        caught = exception.m_result;
    }
    EXPECT_EQ(caught, KV_E_INVALID_PROTOCOL);
    FreeLibrary(module);
}
