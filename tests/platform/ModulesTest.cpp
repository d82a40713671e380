#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>

#include "TestServer.h"

namespace {

class LoadedServer : public testing::Test {
protected:
    ~LoadedServer() override { EXPECT_TRUE(FreeLibrary(server)); }

    HMODULE server = LoadLibraryA(KV_TEST_SERVER);
};

TEST_F(LoadedServer, FileNameIsCutToTheCapacity) {
    const std::string path = KV_TEST_SERVER;
    const auto length = static_cast<DWORD>(path.size());
    for (const DWORD capacity : {DWORD{1}, DWORD{2}, length - 1, length, length + 1, length + 100}) {
        std::string buffer(capacity, 'x');
        SetLastError(ERROR_SUCCESS);
        EXPECT_EQ(GetModuleFileNameA(server, buffer.data(), capacity), std::min(length, capacity));
        EXPECT_EQ(GetLastError(), length < capacity ? ERROR_SUCCESS : ERROR_INSUFFICIENT_BUFFER) << capacity;
        EXPECT_EQ(buffer.substr(0, buffer.find('\0')), path.substr(0, capacity - 1));
    }
    char program[4096];
    const DWORD written = GetModuleFileNameA(nullptr, program, sizeof program);
    EXPECT_EQ(std::string(program, written), std::filesystem::read_symlink("/proc/self/exe").string());
    EXPECT_EQ(GetModuleFileNameA(nullptr, program, 0), 0U);
    EXPECT_EQ(GetModuleFileNameA(&program, program, sizeof program), 0U);
    EXPECT_EQ(GetLastError(), ERROR_MOD_NOT_FOUND) << "no module";
}

TEST(Module, LoadedByRelativePathKeepsItsAbsoluteOne) {
    const std::filesystem::path before = std::filesystem::current_path();
    const std::filesystem::path module = KV_TEST_SERVER;
    std::filesystem::current_path(module.parent_path());
    HMODULE loaded = LoadLibraryA(("./" + module.filename().string()).c_str());
    std::filesystem::current_path("/");
    char path[4096] = {};
    EXPECT_NE(GetModuleFileNameA(loaded, path, sizeof path), 0U);
    EXPECT_TRUE(std::filesystem::equivalent(path, module)) << path;
    EXPECT_TRUE(FreeLibrary(loaded));
    std::filesystem::current_path(before);
}

TEST_F(LoadedServer, RefusesWhatIsNotThere) {
    EXPECT_EQ(LoadLibraryA("/nonexistent/library.so"), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_MOD_NOT_FOUND);
    EXPECT_EQ(LoadLibraryA(nullptr), nullptr);
    EXPECT_FALSE(FreeLibrary(nullptr));
    EXPECT_EQ(GetProcAddress(nullptr, "DllGetClassObject"), nullptr);
    const auto state = reinterpret_cast<TestServerStateFunction>(GetProcAddress(server, "testServerState"));
    EXPECT_EQ(state()->module, server) << "what DllMain was given";
    EXPECT_TRUE(DisableThreadLibraryCalls(server));
    EXPECT_EQ(GetProcAddress(server, "DllMain"), nullptr) << "hidden";
    EXPECT_EQ(GetProcAddress(server, "CoRevokeClassObject"), nullptr) << "of another module";
}

} // namespace
