#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>

#include "PlatformRegistry.h"
#include "TemporaryRegistry.h"

namespace {

using namespace std::string_literals;

constexpr LSTATUS success = ERROR_SUCCESS;
constexpr LSTATUS notFound = ERROR_FILE_NOT_FOUND;
constexpr LSTATUS invalid = ERROR_INVALID_PARAMETER;
constexpr LSTATUS tooLarge = 223;

LSTATUS create(const std::wstring& path) {
    HKEY key = nullptr;
    const LSTATUS result = RegCreateKeyW(HKEY_CLASSES_ROOT, path.c_str(), &key);
    EXPECT_EQ(RegCloseKey(key), result == success ? success : LSTATUS{ERROR_INVALID_HANDLE});
    return result;
}

// What the call says of the open key, or why it is not open.
LSTATUS withKey(const wchar_t* path, const std::function<LSTATUS(HKEY)>& call) {
    HKEY key = nullptr;
    LSTATUS result = RegOpenKeyExW(HKEY_CLASSES_ROOT, path, 0, MAXIMUM_ALLOWED, &key);
    if (result == success) {
        result = call(key);
        EXPECT_EQ(RegCloseKey(key), success);
    }
    return result;
}

LSTATUS set(const wchar_t* path, const wchar_t* name, const std::wstring& text) {
    return withKey(path, [&](HKEY key) {
        return RegSetValueExW(key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                              static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t)));
    });
}

std::wstring value(const wchar_t* path, const wchar_t* name) {
    wchar_t text[64] = {};
    DWORD bytes = sizeof text;
    const auto query = [&](HKEY key) {
        return RegQueryValueExW(key, name, nullptr, nullptr, reinterpret_cast<BYTE*>(text), &bytes);
    };
    EXPECT_EQ(withKey(path, query), success);
    EXPECT_EQ(bytes, (std::wcslen(text) + 1) * sizeof(wchar_t));
    return text;
}

class Registry : public testing::Test {
protected:
    const KvTest::TemporaryRegistry registry;

    std::string content() const { // without its heading
        std::ostringstream text;
        text << std::ifstream(registry.file()).rdbuf();
        return text.str().substr(text.str().find('\n') + 1);
    }
    void write(const std::string& text) const {
        std::filesystem::create_directories(registry.file().parent_path());
        std::ofstream(registry.file()) << text;
    }
};

TEST_F(Registry, IsAFileThatAPersonCanRead) {
    for (const wchar_t* path : {L"CLSID\\{ab}", L"clsid\\{AB}"}) { // names have no case
        EXPECT_EQ(RegSetValueW(HKEY_CLASSES_ROOT, path, REG_SZ, L"Receiver Factory", 0), success);
        EXPECT_EQ(create(std::wstring(path) + L"\\InprocServer32"), success);
        constexpr const wchar_t* server = L"CLSID\\{ab}\\INPROCSERVER32";
        EXPECT_EQ(set(server, nullptr, L"/opt/caf\u00E9/module.so"), success);
        EXPECT_EQ(set(server, L"ThreadingModel", L"= [Both] # 1"), success);
        EXPECT_EQ(value(server, nullptr), L"/opt/caf\u00E9/module.so");
        EXPECT_EQ(value(server, L"THREADINGMODEL"), L"= [Both] # 1");
    }
    EXPECT_EQ(content(), "\n[CLSID]\n\n[CLSID\\{ab}]\n(default) = Receiver Factory\n"
                         "\n[CLSID\\{ab}\\InprocServer32]\n(default) = /opt/caf\xC3\xA9/module.so\n"
                         "ThreadingModel = = [Both] # 1\n");
}

TEST_F(Registry, EnumeratesDirectSubkeysAndDeletesKeysWithoutAny) {
    for (const wchar_t* path : {L"A\\one\\deep", L"A\\two", L"A-b", L"AA\\three"}) {
        EXPECT_EQ(create(path), success);
    }
    std::wstring names;
    const auto list = [&names](HKEY key) {
        LSTATUS result = success;
        for (DWORD index = 0; result == success; ++index) {
            wchar_t name[8] = {};
            DWORD length = 8;
            result = RegEnumKeyExW(key, index, name, &length, nullptr, nullptr, nullptr, nullptr);
            names += std::wstring(name) + L" ";
        }
        return result;
    };
    EXPECT_EQ(withKey(L"A", list) + withKey(L"", list), 2 * LSTATUS{ERROR_NO_MORE_ITEMS});
    EXPECT_EQ(names, L"one two  A A-b AA  ");
    const auto remove = [](const wchar_t* name) { return RegDeleteKeyW(HKEY_CLASSES_ROOT, name); };
    EXPECT_EQ(remove(L"AA"), LSTATUS{ERROR_ACCESS_DENIED});
    EXPECT_EQ(remove(L"aa\\Three"), success);
    EXPECT_EQ(remove(L"AA\\three"), notFound);
    EXPECT_EQ(remove(L""), invalid);
    EXPECT_EQ(remove(L"AA"), success);
    EXPECT_EQ(set(L"AA", nullptr, L""), notFound);
}

TEST_F(Registry, RefusesNamesAndTextsThatTheFileCannotHold) {
    std::wstring deep = L"a";
    while (deep.size() < 65) { // 33 keys
        deep += L"\\a";
    }
    for (const std::wstring& path :
         {L"\\A"s, L"A\\"s, L"A\\\\B"s, L"A\nB"s, L" A"s, L"A\\B "s, std::wstring(1025, L'a'), deep}) {
        EXPECT_EQ(create(path), invalid) << path;
    }
    ASSERT_EQ(create(L"A"), success);
    EXPECT_EQ(set(L"A", L"a=b", L"text"), invalid);
    EXPECT_EQ(set(L"A", L"[name", L"text"), invalid);
    EXPECT_EQ(set(L"A", L"name", L"two\nlines"), invalid);
    EXPECT_EQ(set(L"A", L"name", L" outer space"), invalid);
    EXPECT_EQ(RegSetValueW(HKEY_CLASSES_ROOT, nullptr, REG_SZ, L"of the root", 0), invalid);
}

TEST_F(Registry, PassesOverMalformedLinesAndReplacesNoFileThatIsTooLarge) {
    write("value = before any key\n[\n[]\n[A\n lost = below a malformed key\n]\xFF\xFE\0\x01\n"
          "[A\\\\B]\nlost = 1\n[ C ]\n[Good]\r\n  name=text  \r\nno equals sign\n= no name\n"
          "# comment = 1\n(default) =\nlast = without line feed"s);
    EXPECT_EQ(set(L"Good", L"more", L"text"), success);
    EXPECT_EQ(content(), "\n[Good]\n(default) = \nlast = without line feed\nmore = text\nname = text\n");
    const std::string large = "\n#" + std::string(1'048'576, 'x');
    write(large);
    EXPECT_EQ(set(L"A", L"name", L"text"), tooLarge);
    EXPECT_EQ(create(L"B"), tooLarge);
    EXPECT_EQ(content(), large.substr(1));
}

TEST_F(Registry, KeepsTheWritesOfTwoProcesses) {
    const auto addKeys = [](wchar_t letter) {
        LSTATUS result = success;
        for (int i = 0; i < 25 && result == success; ++i) {
            result = create(letter + std::to_wstring(i));
        }
        return result;
    };
    const pid_t child = fork();
    if (child == 0) {
        _exit(static_cast<int>(addKeys(L'c')));
    }
    EXPECT_EQ(addKeys(L'p'), success);
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    const std::string keys = content();
    EXPECT_EQ(std::count(keys.begin(), keys.end(), '['), 50);
    EXPECT_FALSE(std::filesystem::exists(registry.file().string() + ".new"));
}

} // namespace
