#include <gtest/gtest.h>

#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "ModuleLoggerComponent.h"
#include "PlatformModule.h"
#include "PlatformRegistry.h"
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
    const std::pair<std::uint32_t, const char*> levels[] = {{0, "trace  "}, {1, "info   "},
                                                            {2, "notice "}, {3, "warning"},
                                                            {4, "error  "}, {0xFFFFFFFF, "error  "}};
    for (const auto& [level, word] : levels) {
        EXPECT_EQ(withoutTime(message(level, "Error.")),
                  word + std::string(" module 7 src/File:12 Error.\n"));
    }
    EXPECT_EQ(withoutTime(written([](IModuleLogger* logger) {
                  return logger->LogMessage(0xFFFFFFFF, 0, 4, nullptr, nullptr, 0, nullptr);
              })),
              "error   module 4294967295 (none):0 (none)\n");
    const CKvVaneException exception("src/BaseReceiver", "void g()", 120, "init(\"x\")",
                                     static_cast<HRESULT>(0x89998290));
    EXPECT_EQ(withoutTime(written([&](IModuleLogger* logger) {
                  EXPECT_EQ(logger->LogException(7, nullptr), E_POINTER);
                  return logger->LogException(7, &exception);
              })),
              "error   module 7 src/BaseReceiver:120 0x89998290 \"init(\"x\")\" in void g()\n");
}

TEST(Logger, SkipsLinesBelowItsLevel) {
    const std::pair<const char*, std::uint32_t> variables[] = {{nullptr, 2}, {"0", 0}, {"1", 1},  {"4", 4},
                                                               {"5", 2},     {"", 2},  {"-1", 2}, {"1x", 2}};
    for (const auto& [variable, firstWritten] : variables) {
        setVariable("KV_LOG_LEVEL", variable);
        for (std::uint32_t level = 0; level <= 4; ++level) {
            EXPECT_EQ(message(level, "text").empty(), level < firstWritten)
                << (variable != nullptr ? variable : "unset") << ", level " << level;
        }
    }
}

TEST(Logger, TextsCannotForgeLinesOrSteerATerminal) {
    const std::pair<std::string, std::string> texts[] = {
        {"two\nlines\r", R"(two\x0Alines\x0D)"},
        {"\x1B[2J\x7F\x01", R"(\x1B[2J\x7F\x01)"},
        {"\xC2\x9B[2J", "\\xC2\x9B[2J"}, // a control character of two bytes
        {"caf\xC3\xA9 \xE2\x82\xAC \xC2\xA0", "caf\xC3\xA9 \xE2\x82\xAC \xC2\xA0"},
        {"100% %s %n", "100% %s %n"},
        {"", ""},
    };
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
    constexpr std::size_t linesEach = 200;
    const std::string letters = "abcd";
    std::istringstream lines(written([&](IModuleLogger* logger) {
        std::vector<std::thread> threads;
        for (const char letter : letters) {
            threads.emplace_back([logger, letter] {
                for (std::size_t line = 0; line < linesEach; ++line) {
                    logger->LogMessage(7, 3, 4, "src/File", "", 12, std::string(100, letter).c_str());
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        return S_OK;
    }));
    std::string last;
    for (std::string line; std::getline(lines, line); last += line.back()) {
        EXPECT_EQ(withoutTime(line), "error   module 7 src/File:12 " + std::string(100, line.back()));
    }
    for (const char letter : letters) {
        EXPECT_EQ(std::count(last.begin(), last.end(), letter), linesEach);
    }
}

// The shared library, loaded as a host's registration tool loads it.
class LoggerServer : public testing::Test {
protected:
    ~LoggerServer() override { EXPECT_TRUE(FreeLibrary(m_module)); }

    template <typename... Arguments>
    HRESULT call(const char* entryPoint, Arguments... arguments) const {
        return reinterpret_cast<HRESULT (*)(Arguments...)>(GetProcAddress(m_module, entryPoint))(
            arguments...);
    }
    HRESULT getClassObject(const CLSID& clsid, const IID& iid, void** object) const {
        return call<REFCLSID, REFIID, void**>("DllGetClassObject", clsid, iid, object);
    }

    const KvTest::TemporaryRegistry registry;

private:
    HMODULE m_module = LoadLibraryA(KV_LOGGER_MODULE);
};

TEST_F(LoggerServer, RegistersAndUnregistersItself) {
    ASSERT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
    const auto create = [](void** object) {
        return CoCreateInstance(CLSID_ModuleLogger, nullptr, CLSCTX_INPROC_SERVER, IID_IModuleLogger, object);
    };
    EXPECT_EQ(call("DllUnregisterServer"), S_OK) << "not registered yet";
    EXPECT_EQ(call("DllRegisterServer"), S_OK);
    EXPECT_EQ(call("DllRegisterServer"), S_OK) << "again";
    void* logger = nullptr;
    ASSERT_EQ(create(&logger), S_OK);
    static_cast<IUnknown*>(logger)->Release();
    EXPECT_EQ(call("DllUnregisterServer"), S_OK);
    EXPECT_EQ(create(&logger), REGDB_E_CLASSNOTREG);
    HKEY key = nullptr;
    ASSERT_EQ(RegOpenKeyExW(HKEY_CLASSES_ROOT, L"CLSID", 0, KEY_READ, &key), LSTATUS{ERROR_SUCCESS});
    wchar_t name[64];
    DWORD length = 64;
    EXPECT_EQ(RegEnumKeyExW(key, 0, name, &length, nullptr, nullptr, nullptr, nullptr),
              LSTATUS{ERROR_NO_MORE_ITEMS});
    RegCloseKey(key);
    CoUninitialize();
    setVariable("XDG_DATA_HOME", "relative");
    setVariable("HOME", "");
    EXPECT_EQ(call("DllRegisterServer"), static_cast<HRESULT>(0x80070003)) << "no place to register";
}

TEST_F(LoggerServer, IsInUseWhileSomethingOfItIsHeld) {
    void* object = nullptr;
    EXPECT_EQ(getClassObject(IID_IUnknown, IID_IClassFactory, &object), CLASS_E_CLASSNOTAVAILABLE);
    EXPECT_EQ(getClassObject(CLSID_ModuleLogger, IID_IModuleLogger, &object), E_NOINTERFACE);
    EXPECT_EQ(call("DllCanUnloadNow"), S_OK);
    ASSERT_EQ(getClassObject(CLSID_ModuleLogger, IID_IClassFactory, &object), S_OK);
    auto* factory = static_cast<IClassFactory*>(object);
    EXPECT_EQ(call("DllCanUnloadNow"), S_FALSE) << "the class object";
    EXPECT_EQ(factory->CreateInstance(nullptr, IID_IClassFactory, &object), E_NOINTERFACE);
    EXPECT_EQ(object, nullptr);
    EXPECT_EQ(factory->CreateInstance(factory, IID_IUnknown, &object), CLASS_E_NOAGGREGATION);
    EXPECT_EQ(factory->CreateInstance(nullptr, IID_IUnknown, nullptr), E_POINTER);
    EXPECT_EQ(factory->LockServer(TRUE), S_OK);
    factory->Release();
    EXPECT_EQ(call("DllCanUnloadNow"), S_FALSE) << "a lock";
    EXPECT_EQ(factory->CreateInstance(nullptr, IID_IUnknown, &object), S_OK);
    EXPECT_EQ(factory->LockServer(FALSE), S_OK);
    EXPECT_EQ(call("DllCanUnloadNow"), S_FALSE) << "a logger";
    static_cast<IUnknown*>(object)->Release();
    EXPECT_EQ(call("DllCanUnloadNow"), S_OK);
}

} // namespace
