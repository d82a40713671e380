#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "PlatformRegistry.h"
#include "TemporaryRegistry.h"

namespace {

using KvTest::setVariable;
using namespace std::string_literals;
using Names = std::vector<std::wstring>;

constexpr LSTATUS success = ERROR_SUCCESS;
constexpr LSTATUS notFound = ERROR_FILE_NOT_FOUND;
constexpr LSTATUS invalid = ERROR_INVALID_PARAMETER;
constexpr LSTATUS moreData = ERROR_MORE_DATA;
constexpr LSTATUS tooLarge = 223;
constexpr LSTATUS noPath = 3;

LSTATUS create(const std::wstring& path) {
    HKEY key = nullptr;
    const LSTATUS result = RegCreateKeyW(HKEY_CLASSES_ROOT, path.c_str(), &key);
    EXPECT_TRUE(result != success || RegCloseKey(key) == success);
    return result;
}

// An open key that closes itself.
struct Key {
    explicit Key(const wchar_t* path)
        : result(RegOpenKeyExW(HKEY_CLASSES_ROOT, path, 0, MAXIMUM_ALLOWED, &handle)) {}
    ~Key() { EXPECT_TRUE(handle == nullptr || RegCloseKey(handle) == success); }
    Key(const Key&) = delete;
    Key& operator=(const Key&) = delete;

    LSTATUS set(const wchar_t* name, const std::wstring& text) const {
        return RegSetValueExW(handle, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                              static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t)));
    }
    LSTATUS query(const wchar_t* name, wchar_t* text, DWORD& bytes) const {
        return RegQueryValueExW(handle, name, nullptr, nullptr, reinterpret_cast<BYTE*>(text), &bytes);
    }
    // The value, or the error in angle brackets.
    std::wstring value(const wchar_t* name) const {
        wchar_t text[512];
        DWORD bytes = sizeof text;
        const LSTATUS error = query(name, text, bytes);
        return error == success ? std::wstring(text, bytes / sizeof(wchar_t) - 1)
                                : L"<" + std::to_wstring(error) + L">";
    }
    LSTATUS subkey(DWORD index, wchar_t* name, DWORD length) const {
        return RegEnumKeyExW(handle, index, name, &length, nullptr, nullptr, nullptr, nullptr);
    }
    Names subkeys() const {
        Names names;
        wchar_t name[260];
        while (subkey(static_cast<DWORD>(names.size()), name, 260) == success) {
            names.emplace_back(name);
        }
        EXPECT_EQ(subkey(static_cast<DWORD>(names.size()), name, 260), LSTATUS{ERROR_NO_MORE_ITEMS});
        return names;
    }

    HKEY handle = nullptr;
    const LSTATUS result;
};

class Registry : public testing::Test {
protected:
    const KvTest::TemporaryRegistry registry;

    std::string content() const {
        std::ostringstream text;
        text << std::ifstream(registry.file()).rdbuf();
        return text.str();
    }
    void write(const std::string& text) const {
        std::filesystem::create_directories(registry.file().parent_path());
        std::ofstream(registry.file()) << text;
    }
};

TEST_F(Registry, IsAFileThatAPersonCanRead) {
    for (int again = 0; again < 2; ++again) {
        EXPECT_EQ(RegSetValueW(HKEY_CLASSES_ROOT, L"CLSID\\{01}", REG_SZ, L"Receiver Factory", 0), success);
        EXPECT_EQ(create(L"CLSID\\{01}\\InprocServer32"), success);
        const Key server(L"CLSID\\{01}\\InprocServer32");
        EXPECT_EQ(server.set(nullptr, L"/opt/caf\u00E9/module.so"), success);
        EXPECT_EQ(server.set(L"ThreadingModel", L"Both"), success);
        EXPECT_EQ(server.value(nullptr), L"/opt/caf\u00E9/module.so");
    }
    EXPECT_EQ(content().substr(content().find('\n') + 1), "\n[CLSID]\n"
                                                          "\n[CLSID\\{01}]\n(default) = Receiver Factory\n"
                                                          "\n[CLSID\\{01}\\InprocServer32]\n"
                                                          "(default) = /opt/caf\xC3\xA9/module.so\n"
                                                          "ThreadingModel = Both\n");
}

TEST_F(Registry, NamesHaveNoCase) {
    EXPECT_EQ(create(L"CLSID\\{ab}\\Server"), success);
    EXPECT_EQ(create(L"clsid\\{AB}\\SERVER"), success);
    EXPECT_EQ(Key(L"clsid\\{ab}\\server").set(L"Model", L"Both"), success);
    EXPECT_EQ(Key(L"clsid\\{AB}\\SERVER").set(L"MODEL", L"Free"), success);
    EXPECT_EQ(Key(L"CLSID\\{ab}\\Server").value(L"model"), L"Free");
}

TEST_F(Registry, EnumeratesDirectSubkeysOnly) {
    for (const wchar_t* path : {L"A\\one\\deep", L"A\\two", L"A-b", L"AA\\three", L"B"}) {
        EXPECT_EQ(create(path), success);
    }
    EXPECT_EQ(Key(L"A").subkeys(), (Names{L"one", L"two"}));
    EXPECT_EQ(Key(nullptr).subkeys(), (Names{L"A", L"A-b", L"AA", L"B"}));
    wchar_t name[4];
    EXPECT_EQ(Key(L"A").subkey(0, name, 3), moreData);
    EXPECT_EQ(Key(L"A").subkey(0, name, 4), success);
}

TEST_F(Registry, DeletesKeysWithoutSubkeys) {
    EXPECT_EQ(create(L"A\\B\\C"), success);
    const Key open(L"A");
    const std::pair<const wchar_t*, LSTATUS> rows[] = {{L"A", ERROR_ACCESS_DENIED},
                                                       {L"A\\B", ERROR_ACCESS_DENIED},
                                                       {L"A\\x", notFound},
                                                       {L"a\\b\\c", success},
                                                       {L"A\\B\\C", notFound},
                                                       {L"A\\B", success},
                                                       {L"A", success},
                                                       {L"", invalid},
                                                       {nullptr, invalid}};
    for (const auto& [name, expected] : rows) {
        EXPECT_EQ(RegDeleteKeyW(HKEY_CLASSES_ROOT, name), expected);
    }
    EXPECT_EQ(Key(L"A").result, notFound);
    EXPECT_EQ(open.set(L"name", L"text"), notFound) << "deleted while open";
    EXPECT_EQ(open.value(L"name"), L"<2>");
}

TEST_F(Registry, QueryTellsTheSizeAndClosedKeysAreRefused) {
    EXPECT_EQ(RegSetValueW(HKEY_CLASSES_ROOT, L"A", REG_SZ, L"text", 0), success);
    const Key key(L"A");
    HKEY closed = Key(L"A").handle;
    EXPECT_EQ(RegCloseKey(closed), LSTATUS{ERROR_INVALID_HANDLE});
    wchar_t text[5];
    DWORD bytes = 0;
    EXPECT_EQ(key.query(nullptr, nullptr, bytes), success);
    EXPECT_EQ(bytes, sizeof text);
    --bytes;
    EXPECT_EQ(key.query(nullptr, text, bytes), moreData);
    EXPECT_EQ(bytes, sizeof text);
}

TEST_F(Registry, RefusesNamesAndTextsThatTheFileCannotHold) {
    std::wstring deep = L"a";
    for (int depth = 1; depth < 33; ++depth) {
        deep += L"\\a";
    }
    for (const std::wstring& path :
         Names{L"\\A", L"A\\", L"A\\\\B", L"A\nB", L" A", L"A\\B ", std::wstring(1025, L'a'), deep}) {
        EXPECT_EQ(create(path), invalid) << path;
    }
    ASSERT_EQ(create(L"A"), success);
    const Key key(L"A");
    const std::pair<const wchar_t*, const wchar_t*> refused[] = {
        {L"a=b", L"text"}, {L"[name", L"text"}, {L"name", L"two\nlines"}, {L"name", L" outer space"}};
    for (const auto& [name, text] : refused) {
        EXPECT_EQ(key.set(name, text), invalid) << name;
    }
    EXPECT_EQ(RegSetValueW(key.handle, nullptr, 4, L"number", 0), invalid);
    EXPECT_EQ(RegSetValueW(HKEY_CLASSES_ROOT, nullptr, REG_SZ, L"of the root", 0), invalid);
    EXPECT_EQ(key.set(L"name", L"= [text] # 1"), success);
    EXPECT_EQ(key.value(L"name"), L"= [text] # 1");
}

TEST_F(Registry, PassesOverMalformedLines) {
    write("value = before any key\n[\n[]\n[A\n lost = below a malformed key\n]\xFF\xFE\0\x01\n"
          "[A\\\\B]\nlost = 1\n[ C ]\n[Good]\r\n  name=text  \r\nno equals sign\n= no name\n"
          "# comment = 1\n(default) =\nlast = without line feed"s);
    EXPECT_EQ(Key(nullptr).subkeys(), Names{L"Good"});
    const Key key(L"Good");
    EXPECT_EQ(key.value(nullptr), L"");
    EXPECT_EQ(key.value(L"last"), L"without line feed");
    EXPECT_EQ(key.set(L"more", L"text"), success);
    EXPECT_EQ(key.value(L"name"), L"text");
}

TEST_F(Registry, NeitherReadsNorReplacesAFileThatIsTooLarge) {
    const std::string large = "[A]\n#" + std::string(1'048'576, 'x');
    write(large);
    EXPECT_EQ(Key(L"A").result, tooLarge);
    EXPECT_EQ(create(L"B"), tooLarge);
    EXPECT_EQ(content(), large);
}

TEST_F(Registry, SaysThatItHasNoPlace) {
    const std::string file = registry.directory() / "file";
    std::ofstream(file) << "no directory";
    setVariable("HOME", "");
    for (const char* place : {"relative", file.c_str()}) {
        setVariable("XDG_DATA_HOME", place);
        EXPECT_EQ(create(L"A"), noPath) << place;
    }
    setVariable("XDG_DATA_HOME", nullptr);
    setVariable("HOME", registry.directory().c_str());
    EXPECT_EQ(create(L"A"), success);
    EXPECT_TRUE(std::filesystem::exists(registry.directory() / ".local/share/kvnetworkreceiver/classes"));
}

TEST_F(Registry, KeepsTheWritesOfTwoProcesses) {
    constexpr int count = 25;
    const auto addKeys = [](wchar_t letter) {
        LSTATUS result = success;
        for (int i = 0; i < count && result == success; ++i) {
            const std::wstring path = std::wstring(L"Both\\") + letter + std::to_wstring(i);
            result = RegSetValueW(HKEY_CLASSES_ROOT, path.c_str(), REG_SZ, L"text", 0);
        }
        return result;
    };
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        _exit(addKeys(L'c') == success ? 0 : 1);
    }
    EXPECT_EQ(addKeys(L'p'), success);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(Key(L"Both").subkeys().size(), 2U * count);
    EXPECT_FALSE(std::filesystem::exists(registry.file().string() + ".new"));
}

} // namespace
