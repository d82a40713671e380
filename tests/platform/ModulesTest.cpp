#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "TestServer.h"

namespace {

class LoadedServer {
public:
    LoadedServer() : m_module(LoadLibraryA(KV_TEST_SERVER)) {}
    ~LoadedServer() { EXPECT_TRUE(FreeLibrary(m_module)); }
    LoadedServer(const LoadedServer&) = delete;
    LoadedServer& operator=(const LoadedServer&) = delete;

    HMODULE module() const noexcept { return m_module; }
    TestServerState* state() const {
        const auto function =
            reinterpret_cast<TestServerStateFunction>(GetProcAddress(m_module, "testServerState"));
        return function != nullptr ? function() : nullptr;
    }

private:
    HMODULE m_module;
};

TEST(Module, DllMainReceivesTheHandleThatLoadLibraryGives) {
    const LoadedServer server;
    ASSERT_NE(server.state(), nullptr);
    EXPECT_EQ(server.state()->module, server.module());
    EXPECT_EQ(server.state()->reason, DLL_PROCESS_ATTACH);
    EXPECT_TRUE(DisableThreadLibraryCalls(server.module()));
}

TEST(Module, FileNameIsCutToTheCapacity) {
    const LoadedServer server;
    const std::string path = KV_TEST_SERVER;
    const auto length = static_cast<DWORD>(path.size());
    for (const DWORD capacity : {DWORD{1}, DWORD{2}, length - 1, length, length + 1, length + 100}) {
        std::vector<char> buffer(capacity, 'x');
        SetLastError(ERROR_SUCCESS);
        const DWORD written = GetModuleFileNameA(server.module(), buffer.data(), capacity);
        const bool fits = length < capacity;
        EXPECT_EQ(written, std::min(length, capacity));
        EXPECT_EQ(GetLastError(), fits ? ERROR_SUCCESS : ERROR_INSUFFICIENT_BUFFER) << capacity;
        EXPECT_EQ(std::string(buffer.data()), path.substr(0, capacity - 1));
    }
}

TEST(Module, FileNameOfTheProgramAndOfNoModule) {
    char path[4096];
    const DWORD length = GetModuleFileNameA(nullptr, path, sizeof path);
    EXPECT_EQ(std::string(path, length), std::filesystem::read_symlink("/proc/self/exe").string());
    EXPECT_EQ(GetModuleFileNameA(nullptr, path, 0), 0U);
    int notAModule = 0;
    EXPECT_EQ(GetModuleFileNameA(&notAModule, path, sizeof path), 0U);
    EXPECT_EQ(GetLastError(), ERROR_MOD_NOT_FOUND);
}

TEST(Module, LoadedByRelativePathKeepsItsAbsoluteOne) {
    const std::filesystem::path before = std::filesystem::current_path();
    const std::filesystem::path module = KV_TEST_SERVER;
    std::filesystem::current_path(module.parent_path());
    HMODULE loaded = LoadLibraryA(("./" + module.filename().string()).c_str());
    std::filesystem::current_path("/");
    ASSERT_NE(loaded, nullptr);
    char path[4096];
    EXPECT_NE(GetModuleFileNameA(loaded, path, sizeof path), 0U);
    EXPECT_TRUE(std::filesystem::equivalent(path, module)) << path;
    EXPECT_TRUE(FreeLibrary(loaded));
    std::filesystem::current_path(before);
}

TEST(Module, RefusesWhatIsNotThere) {
    EXPECT_EQ(LoadLibraryA("/nonexistent/library.so"), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_MOD_NOT_FOUND);
    EXPECT_EQ(LoadLibraryA(nullptr), nullptr);
    EXPECT_FALSE(FreeLibrary(nullptr));
    EXPECT_EQ(GetProcAddress(nullptr, "DllGetClassObject"), nullptr);
    const LoadedServer server;
    EXPECT_NE(GetProcAddress(server.module(), "DllGetClassObject"), nullptr);
    EXPECT_EQ(GetProcAddress(server.module(), "DllMain"), nullptr) << "hidden";
    EXPECT_EQ(GetProcAddress(server.module(), "CoRevokeClassObject"), nullptr) << "of another module";
}

} // namespace
