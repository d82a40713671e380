#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
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

// A logger made by the class object.
class Logger {
public:
    Logger() {
        void* object = nullptr;
        EXPECT_EQ(ModuleLogger::loggerClassObject()->CreateInstance(nullptr, IID_IModuleLogger, &object),
                  S_OK);
        m_logger = static_cast<IModuleLogger*>(object);
    }
    ~Logger() { EXPECT_EQ(m_logger->Release(), 0U); }
    Logger(const Logger&) = delete;
    Logger& operator=(const Logger&) = delete;

    IModuleLogger* operator->() const noexcept { return m_logger; }

    // What a call of the logger writes.
    template <typename Call>
    std::string written(Call call) const {
        CaptureStderr();
        EXPECT_EQ(call(m_logger), S_OK);
        return GetCapturedStderr();
    }
    std::string message(std::uint32_t level, const char* text) const {
        return written([&](IModuleLogger* logger) {
            return logger->LogMessage(7, 3, level, "src/File", "void f()", 12, text);
        });
    }

private:
    IModuleLogger* m_logger = nullptr;
};

// The line behind its time, which must be well formed.
std::string withoutTime(const std::string& line) {
    static const std::regex time(R"(^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z )");
    EXPECT_TRUE(std::regex_search(line, time)) << line;
    return line.substr(std::min<std::size_t>(line.size(), 25));
}

TEST(Logger, WritesOneLineForAMessage) {
    setVariable("KV_LOG_LEVEL", "0");
    const Logger logger;
    struct Row {
        std::uint32_t level;
        const char* word;
    };
    for (const Row& row : {Row{0, "trace  "}, Row{1, "info   "}, Row{2, "notice "}, Row{3, "warning"},
                           Row{4, "error  "}, Row{5, "error  "}, Row{0xFFFFFFFF, "error  "}}) {
        EXPECT_EQ(withoutTime(logger.message(row.level, "Error enabling receiver.")),
                  std::string(row.word) + " module 7 src/File:12 Error enabling receiver.\n");
    }
    EXPECT_EQ(withoutTime(logger.written([](IModuleLogger* bare) {
                  return bare->LogMessage(0xFFFFFFFF, 0, 4, nullptr, nullptr, 0, nullptr);
              })),
              "error   module 4294967295 (none):0 (none)\n");
}

TEST(Logger, WritesOneLineForAnException) {
    setVariable("KV_LOG_LEVEL", "4");
    const Logger logger;
    const CKvVaneException exception("src/BaseReceiver", "void g(const char*)", 120, "m_client->Init(\"x\")",
                                     static_cast<HRESULT>(0x89998290));
    EXPECT_EQ(withoutTime(logger.written(
                  [&exception](IModuleLogger* bare) { return bare->LogException(7, &exception); })),
              "error   module 7 src/BaseReceiver:120 0x89998290 \"m_client->Init(\"x\")\" in void g(const "
              "char*)\n");
    EXPECT_EQ(logger->LogException(7, nullptr), E_POINTER);
}

TEST(Logger, SkipsLinesBelowItsLevel) {
    struct Row {
        const char* variable;
        std::uint32_t firstWritten;
    };
    for (const Row& row : {Row{nullptr, 2}, Row{"0", 0}, Row{"1", 1}, Row{"4", 4}, Row{"5", 2}, Row{"", 2},
                           Row{"-1", 2}, Row{"1x", 2}}) {
        setVariable("KV_LOG_LEVEL", row.variable);
        const Logger logger;
        setVariable("KV_LOG_LEVEL", "0"); // is read at creation only
        for (std::uint32_t level = 0; level <= 4; ++level) {
            EXPECT_EQ(logger.message(level, "text").empty(), level < row.firstWritten)
                << (row.variable != nullptr ? row.variable : "unset") << ", level " << level;
        }
    }
}

TEST(Logger, TextsCannotForgeLinesOrSteerATerminal) {
    struct Row {
        std::string text;
        std::string written;
    };
    const Row rows[] = {
        {"two\nlines\r", R"(two\x0Alines\x0D)"},
        {"\x1B[2J\x7F\x01", R"(\x1B[2J\x7F\x01)"},
        {"\xC2\x9B"
         "2J",
         "\\xC2\x9B"
         "2J"},
        {"caf\xC3\xA9 \xE2\x82\xAC \xC2\xA0", "caf\xC3\xA9 \xE2\x82\xAC \xC2\xA0"},
        {"100% %s %n", "100% %s %n"},
        {"", ""},
    };
    const Logger logger;
    for (const Row& row : rows) {
        EXPECT_EQ(withoutTime(logger.message(4, row.text.c_str())),
                  "error   module 7 src/File:12 " + row.written + "\n");
    }
}

TEST(Logger, CutsALineThatIsTooLong) {
    const Logger logger;
    for (const char filler : {'x', '\n'}) {
        const std::string line = logger.message(4, std::string(10'000, filler).c_str());
        EXPECT_EQ(line.size(), 4096U);
        EXPECT_EQ(line.find('\n'), line.size() - 1);
    }
}

TEST(Logger, LinesOfManyThreadsDoNotMix) {
    constexpr int threadCount = 4;
    constexpr int linesEach = 200;
    const Logger logger;
    CaptureStderr();
    std::vector<std::thread> threads;
    threads.reserve(threadCount);
    for (int i = 0; i < threadCount; ++i) {
        threads.emplace_back([&logger, i] {
            const std::string text(static_cast<std::size_t>(100 + i), static_cast<char>('a' + i));
            for (int line = 0; line < linesEach; ++line) {
                logger->LogMessage(7, 3, 4, "src/File", "void f()", 12, text.c_str());
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    std::istringstream lines(GetCapturedStderr());
    int counts[threadCount] = {};
    for (std::string line; std::getline(lines, line);) {
        const int i = line.back() - 'a';
        ASSERT_TRUE(i >= 0 && i < threadCount) << line;
        EXPECT_EQ(withoutTime(line),
                  "error   module 7 src/File:12 " +
                      std::string(static_cast<std::size_t>(100 + i), static_cast<char>('a' + i)));
        ++counts[i];
    }
    EXPECT_TRUE(
        std::all_of(std::begin(counts), std::end(counts), [](int count) { return count == linesEach; }));
}

TEST(LoggerClassObject, RefusesWhatItIsNot) {
    IClassFactory* classObject = ModuleLogger::loggerClassObject();
    int sentinel = 0;
    void* object = &sentinel;
    EXPECT_EQ(classObject->QueryInterface(IID_IModuleLogger, &object), E_NOINTERFACE);
    EXPECT_EQ(object, nullptr);
    object = &sentinel;
    EXPECT_EQ(classObject->CreateInstance(nullptr, IID_IClassFactory, &object), E_NOINTERFACE);
    EXPECT_EQ(object, nullptr);
    EXPECT_EQ(classObject->CreateInstance(classObject, IID_IUnknown, &object), CLASS_E_NOAGGREGATION);
    EXPECT_EQ(classObject->CreateInstance(nullptr, IID_IUnknown, nullptr), E_POINTER);
    EXPECT_EQ(ModuleLogger::loggerUseCount(), 0U);
}

TEST(LoggerClassObject, ServesModulesOfAHostThatRegistersIt) {
    ASSERT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
    DWORD cookie = 0;
    ASSERT_EQ(CoRegisterClassObject(CLSID_ModuleLogger, ModuleLogger::loggerClassObject(),
                                    CLSCTX_INPROC_SERVER, REGCLS_MULTIPLEUSE, &cookie),
              S_OK);
    void* object = nullptr;
    EXPECT_EQ(CoCreateInstance(CLSID_ModuleLogger, nullptr, CLSCTX_INPROC_SERVER, IID_IModuleLogger, &object),
              S_OK);
    EXPECT_EQ(ModuleLogger::loggerUseCount(), 2U) << "the registration and the logger";
    static_cast<IModuleLogger*>(object)->Release();
    EXPECT_EQ(CoRevokeClassObject(cookie), S_OK);
    EXPECT_EQ(ModuleLogger::loggerUseCount(), 0U);
    CoUninitialize();
}

// The shared library, loaded as a host's registration tool loads it.
class LoggerServer {
public:
    LoggerServer() : m_module(LoadLibraryA(KV_LOGGER_MODULE)) {}
    ~LoggerServer() { EXPECT_TRUE(FreeLibrary(m_module)); }
    LoggerServer(const LoggerServer&) = delete;
    LoggerServer& operator=(const LoggerServer&) = delete;

    HRESULT call(const char* entryPoint) const {
        const auto function = reinterpret_cast<HRESULT (*)()>(GetProcAddress(m_module, entryPoint));
        return function != nullptr ? function() : E_NOTIMPL;
    }
    HRESULT getClassObject(REFCLSID clsid, REFIID iid, void** object) const {
        const auto function = reinterpret_cast<HRESULT (*)(REFCLSID, REFIID, void**)>(
            GetProcAddress(m_module, "DllGetClassObject"));
        return function != nullptr ? function(clsid, iid, object) : E_NOTIMPL;
    }

private:
    HMODULE m_module;
};

HRESULT createRegistered(void** object) {
    return CoCreateInstance(CLSID_ModuleLogger, nullptr, CLSCTX_INPROC_SERVER, IID_IModuleLogger, object);
}

TEST(LoggerServer, RegistersAndUnregistersItself) {
    const KvTest::TemporaryRegistry registry;
    ASSERT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
    void* object = nullptr;
    {
        const LoggerServer server;
        EXPECT_EQ(server.call("DllUnregisterServer"), S_OK) << "not registered yet";
        EXPECT_EQ(server.call("DllRegisterServer"), S_OK);
        EXPECT_EQ(server.call("DllRegisterServer"), S_OK) << "again";
    }
    ASSERT_EQ(createRegistered(&object), S_OK);
    auto* logger = static_cast<IModuleLogger*>(object);
    CaptureStderr();
    EXPECT_EQ(logger->LogMessage(7, 0, 4, "src/File", "void f()", 12, "text"), S_OK);
    EXPECT_EQ(withoutTime(GetCapturedStderr()), "error   module 7 src/File:12 text\n");
    logger->Release();
    CoFreeUnusedLibraries();
    EXPECT_EQ(LoggerServer().call("DllUnregisterServer"), S_OK);
    EXPECT_EQ(createRegistered(&object), REGDB_E_CLASSNOTREG);
    HKEY key = nullptr;
    ASSERT_EQ(RegOpenKeyExW(HKEY_CLASSES_ROOT, L"CLSID", 0, KEY_READ, &key), LSTATUS{ERROR_SUCCESS});
    wchar_t name[64];
    DWORD length = 64;
    EXPECT_EQ(RegEnumKeyExW(key, 0, name, &length, nullptr, nullptr, nullptr, nullptr),
              LSTATUS{ERROR_NO_MORE_ITEMS});
    RegCloseKey(key);
    CoUninitialize();
}

TEST(LoggerServer, IsInUseWhileSomethingOfItIsHeld) {
    const LoggerServer server;
    void* object = nullptr;
    EXPECT_EQ(server.getClassObject(IID_IUnknown, IID_IClassFactory, &object), CLASS_E_CLASSNOTAVAILABLE);
    EXPECT_EQ(server.getClassObject(CLSID_ModuleLogger, IID_IModuleLogger, &object), E_NOINTERFACE);
    EXPECT_EQ(server.call("DllCanUnloadNow"), S_OK);
    ASSERT_EQ(server.getClassObject(CLSID_ModuleLogger, IID_IClassFactory, &object), S_OK);
    auto* factory = static_cast<IClassFactory*>(object);
    EXPECT_EQ(server.call("DllCanUnloadNow"), S_FALSE) << "the class object";
    EXPECT_EQ(factory->LockServer(TRUE), S_OK);
    factory->Release();
    EXPECT_EQ(server.call("DllCanUnloadNow"), S_FALSE) << "a lock";
    void* logger = nullptr;
    EXPECT_EQ(factory->CreateInstance(nullptr, IID_IUnknown, &logger), S_OK);
    EXPECT_EQ(factory->LockServer(FALSE), S_OK);
    EXPECT_EQ(server.call("DllCanUnloadNow"), S_FALSE) << "a logger";
    static_cast<IUnknown*>(logger)->Release();
    EXPECT_EQ(server.call("DllCanUnloadNow"), S_OK);
}

TEST(LoggerServer, SaysWhyItIsNotRegistered) {
    const KvTest::TemporaryRegistry registry;
    setVariable("XDG_DATA_HOME", "relative");
    setVariable("HOME", "");
    EXPECT_EQ(LoggerServer().call("DllRegisterServer"), static_cast<HRESULT>(0x80070003));
}

} // namespace
