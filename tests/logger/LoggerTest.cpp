#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "ModuleLoggerComponent.h"
#include "PlatformModule.h"
#include "TemporaryRegistry.h"

namespace {

using KvTest::setVariable;
using ModuleLogger::IModuleLogger;
using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

// What a call of a logger writes to the log.
template <typename Call>
std::string written(Call call) {
    void* logger = nullptr;
    EXPECT_EQ(ModuleLogger::loggerClassObject()->CreateInstance(nullptr, IID_IModuleLogger, &logger), S_OK);
    CaptureStderr();
    EXPECT_EQ(call(static_cast<IModuleLogger*>(logger)), S_OK);
    EXPECT_EQ(static_cast<IModuleLogger*>(logger)->Release(), 0U);
    return GetCapturedStderr();
}

std::string message(std::uint32_t level, const std::string& text) {
    return written([&](IModuleLogger* logger) {
        return logger->LogMessage(7, 3, level, "src/File", "void f()", 12, text.c_str());
    });
}

// The line behind its time, which must be well formed.
std::string withoutTime(const std::string& line) {
    static const std::regex time(R"(^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z )");
    EXPECT_TRUE(std::regex_search(line, time)) << line;
    return std::regex_replace(line, time, "");
}

TEST(Logger, WritesOneLineForAMessageOrAnException) {
    setVariable("KV_LOG_LEVEL", "0");
    const char* const words[] = {"trace  ", "info   ", "notice ", "warning", "error  ", "error  "};
    for (std::uint32_t level = 0; level < std::size(words); ++level) {
        EXPECT_EQ(withoutTime(message(level, "Error.")),
                  words[level] + std::string(" module 7 src/File:12 Error.\n"));
    }
    const CKvVaneException exception("src/BaseReceiver", "void g()", 120, "init(\"x\")",
                                     static_cast<HRESULT>(0x89998290));
    EXPECT_EQ(withoutTime(written([&](IModuleLogger* logger) {
                  EXPECT_EQ(logger->LogException(7, nullptr), E_POINTER);
                  return logger->LogException(7, &exception);
              })),
              "error   module 7 src/BaseReceiver:120 0x89998290 \"init(\"x\")\" in void g()\n");
}

TEST(Logger, SkipsLinesBelowItsLevel) {
    const std::pair<const char*, std::uint32_t> variables[] = {{nullptr, 2}, {"0", 0},  {"4", 4}, {"5", 2},
                                                               {"", 2},      {"-1", 2}, {"1x", 2}};
    for (const auto& [variable, firstWritten] : variables) {
        setVariable("KV_LOG_LEVEL", variable);
        for (std::uint32_t level = 0; level <= 4; ++level) {
            EXPECT_EQ(message(level, "text").empty(), level < firstWritten) << firstWritten << " " << level;
        }
    }
}

TEST(Logger, TextsCannotForgeLinesOrSteerATerminal) {
    const std::pair<std::string, std::string> texts[] = {
        {"two\nlines\r", R"(two\x0Alines\x0D)"},
        {"\x1B[2J\x7F\x01", R"(\x1B[2J\x7F\x01)"},
        {"\xC2\x9B[2J", "\\xC2\x9B[2J"}, // a control character of two bytes
        {"caf\xC3\xA9 \xE2\x82\xAC \xC2\xA0 %s", "caf\xC3\xA9 \xE2\x82\xAC \xC2\xA0 %s"}};
    for (const auto& [text, line] : texts) {
        EXPECT_EQ(withoutTime(message(4, text)), "error   module 7 src/File:12 " + line + "\n");
    }
    for (const char filler : {'x', '\n'}) {
        const std::string line = message(4, std::string(10'000, filler));
        EXPECT_EQ(line.size(), 4096U) << "cut";
        EXPECT_EQ(line.find('\n'), line.size() - 1);
    }
}

TEST(Logger, LinesOfManyThreadsDoNotMix) {
    const std::string log = written([](IModuleLogger* logger) {
        std::vector<std::thread> threads(4);
        for (std::thread& thread : threads) {
            thread = std::thread([logger] {
                for (int line = 0; line < 200; ++line) {
                    logger->LogMessage(7, 3, 4, "src/File", "", 12, std::string(100, 'x').c_str());
                }
            });
        }
        std::for_each(threads.begin(), threads.end(), [](std::thread& thread) { thread.join(); });
        return S_OK;
    });
    const std::regex line("Z error   module 7 src/File:12 x{100}\n");
    EXPECT_EQ(std::distance(std::sregex_iterator(log.begin(), log.end(), line), {}), 4 * 200);
}

// The shared library, loaded as a host's registration tool loads it.
TEST(LoggerServer, RegistersItselfAndIsInUseWhileSomethingOfItIsHeld) {
    const KvTest::TemporaryRegistry registry;
    HMODULE module = LoadLibraryA(KV_LOGGER_MODULE);
    const auto call = [module](const char* entryPoint) {
        return reinterpret_cast<HRESULT (*)()>(GetProcAddress(module, entryPoint))();
    };
    const auto getClassObject =
        reinterpret_cast<HRESULT (*)(REFCLSID, REFIID, void**)>(GetProcAddress(module, "DllGetClassObject"));
    void* object = nullptr;
    const auto create = [&object] {
        return CoCreateInstance(CLSID_ModuleLogger, nullptr, CLSCTX_INPROC_SERVER, IID_IModuleLogger,
                                &object);
    };
    ASSERT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
    EXPECT_EQ(call("DllUnregisterServer"), S_OK) << "not registered yet";
    EXPECT_EQ(call("DllRegisterServer"), S_OK);
    EXPECT_EQ(call("DllRegisterServer"), S_OK) << "again";
    ASSERT_EQ(create(), S_OK);
    static_cast<IUnknown*>(object)->Release();
    EXPECT_EQ(call("DllUnregisterServer"), S_OK);
    EXPECT_EQ(create(), REGDB_E_CLASSNOTREG);
    std::ifstream classes(registry.file());
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(classes), {}).find("CLSID\\{"), std::string::npos);
    CoUninitialize();

    EXPECT_EQ(getClassObject(IID_IUnknown, IID_IClassFactory, &object), CLASS_E_CLASSNOTAVAILABLE);
    EXPECT_EQ(getClassObject(CLSID_ModuleLogger, IID_IModuleLogger, &object), E_NOINTERFACE);
    EXPECT_EQ(call("DllCanUnloadNow"), S_OK);
    ASSERT_EQ(getClassObject(CLSID_ModuleLogger, IID_IClassFactory, &object), S_OK);
    auto* factory = static_cast<IClassFactory*>(object);
    EXPECT_EQ(call("DllCanUnloadNow"), S_FALSE) << "the class object";
    EXPECT_EQ(factory->CreateInstance(nullptr, IID_IClassFactory, &object), E_NOINTERFACE);
    EXPECT_EQ(object, nullptr);
    EXPECT_EQ(factory->CreateInstance(factory, IID_IUnknown, &object), CLASS_E_NOAGGREGATION);
    EXPECT_EQ(factory->LockServer(TRUE), S_OK);
    factory->Release();
    EXPECT_EQ(call("DllCanUnloadNow"), S_FALSE) << "a lock";
    EXPECT_EQ(factory->CreateInstance(nullptr, IID_IUnknown, &object), S_OK);
    EXPECT_EQ(factory->LockServer(FALSE), S_OK);
    EXPECT_EQ(call("DllCanUnloadNow"), S_FALSE) << "a logger";
    static_cast<IUnknown*>(object)->Release();
    EXPECT_EQ(call("DllCanUnloadNow"), S_OK);
    EXPECT_TRUE(FreeLibrary(module));
}

} // namespace
