#include <gtest/gtest.h>

#include <string>

#include "ModuleLoggerComponent.h"
#include "PlatformModule.h"
#include "TemporaryRegistry.h"

namespace {

using ModuleLogger::IModuleLogger;
using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

TEST(Logger, RegisteredServerIsCreatedAndUnloaded) {
    const KvTest::TemporaryRegistry registry;
    HMODULE module = LoadLibraryA(KV_LOGGER_MODULE);
    ASSERT_NE(module, nullptr);
    const auto registerServer = reinterpret_cast<HRESULT (*)()>(GetProcAddress(module, "DllRegisterServer"));
    ASSERT_NE(registerServer, nullptr);
    EXPECT_EQ(registerServer(), S_OK);
    EXPECT_TRUE(FreeLibrary(module));

    ASSERT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
    void* object = nullptr;
    ASSERT_EQ(CoCreateInstance(CLSID_ModuleLogger, nullptr, CLSCTX_INPROC_SERVER, IID_IModuleLogger, &object),
              S_OK);
    auto* logger = static_cast<IModuleLogger*>(object);
    CaptureStderr();
    EXPECT_EQ(logger->LogMessage(7, 0, 4, "src/File", "void f()", 12, "text\nforged"), S_OK);
    const std::string line = GetCapturedStderr();
    EXPECT_EQ(line.substr(24), " error   module 7 src/File:12 text\\x0Aforged\n");
    logger->Release();
    CoFreeUnusedLibraries();
    CoUninitialize();
}

} // namespace
