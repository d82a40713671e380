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
using KvTest::TemporaryRegistry;
using namespace std::string_literals;

constexpr LSTATUS success = ERROR_SUCCESS;
constexpr LSTATUS notFound = ERROR_FILE_NOT_FOUND;
constexpr LSTATUS invalid = ERROR_INVALID_PARAMETER;

// An open key that closes itself.
class Key {
public:
    static Key open(const wchar_t* path) { return {path, false}; }
    static Key create(const wchar_t* path) { return {path, true}; }
    ~Key() {
        if (m_key != nullptr) {
            EXPECT_EQ(RegCloseKey(m_key), success);
        }
    }
    Key(const Key&) = delete;
    Key& operator=(const Key&) = delete;

    HKEY handle() const noexcept { return m_key; }
    LSTATUS result() const noexcept { return m_result; }

    LSTATUS set(const wchar_t* name, const std::wstring& text) const {
        return RegSetValueExW(m_key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                              static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t)));
    }

    // The value, or the error in angle brackets.
    std::wstring value(const wchar_t* name) const {
        wchar_t text[512];
        DWORD type = 0;
        DWORD bytes = sizeof text;
        const LSTATUS error =
            RegQueryValueExW(m_key, name, nullptr, &type, reinterpret_cast<BYTE*>(text), &bytes);
        if (error != success) {
            return L"<" + std::to_wstring(error) + L">";
        }
        EXPECT_EQ(type, REG_SZ);
        EXPECT_EQ(bytes, (std::wcslen(text) + 1) * sizeof(wchar_t));
        return text;
    }

    std::vector<std::wstring> subkeys() const {
        std::vector<std::wstring> names;
        for (DWORD index = 0;; ++index) {
            wchar_t name[260];
            DWORD length = 260;
            const LSTATUS error =
                RegEnumKeyExW(m_key, index, name, &length, nullptr, nullptr, nullptr, nullptr);
            if (error != success) {
                EXPECT_EQ(error, LSTATUS{ERROR_NO_MORE_ITEMS});
                return names;
            }
            EXPECT_EQ(length, std::wcslen(name));
            names.emplace_back(name);
        }
    }

private:
    Key(const wchar_t* path, bool create)
        : m_result(create ? RegCreateKeyW(HKEY_CLASSES_ROOT, path, &m_key)
                          : RegOpenKeyExW(HKEY_CLASSES_ROOT, path, 0, MAXIMUM_ALLOWED, &m_key)) {}

    HKEY m_key = nullptr;
    LSTATUS m_result;
};

std::string contentOf(const std::filesystem::path& file) {
    std::ostringstream content;
    content << std::ifstream(file).rdbuf();
    return content.str();
}

void writeFile(const TemporaryRegistry& registry, const std::string& content) {
    std::filesystem::create_directories(registry.file().parent_path());
    std::ofstream(registry.file()) << content;
}

TEST(Registry, IsAFileThatAPersonCanRead) {
    const TemporaryRegistry registry;
    EXPECT_EQ(RegSetValueW(HKEY_CLASSES_ROOT, L"CLSID\\{01}", REG_SZ, L"Receiver Factory", 0), success);
    const Key server = Key::create(L"CLSID\\{01}\\InprocServer32");
    EXPECT_EQ(server.set(nullptr, L"/opt/caf\u00E9/module.so"), success);
    EXPECT_EQ(server.set(L"ThreadingModel", L"Both"), success);
    const std::string content = contentOf(registry.file());
    EXPECT_EQ(content.substr(content.find('\n') + 1),
              "\n[CLSID]\n"
              "\n[CLSID\\{01}]\n(default) = Receiver Factory\n"
              "\n[CLSID\\{01}\\InprocServer32]\n"
              "(default) = /opt/caf\xC3\xA9/module.so\nThreadingModel = Both\n");
    EXPECT_EQ(server.value(nullptr), L"/opt/caf\u00E9/module.so");
}

TEST(Registry, NamesHaveNoCase) {
    const TemporaryRegistry registry;
    const Key first = Key::create(L"CLSID\\{ab}\\Server");
    EXPECT_EQ(first.set(L"Model", L"Both"), success);
    const Key second = Key::create(L"clsid\\{AB}\\SERVER");
    EXPECT_EQ(second.set(L"MODEL", L"Free"), success);
    EXPECT_EQ(first.value(L"model"), L"Free");
    EXPECT_EQ(Key::open(L"cLsId").subkeys(), std::vector<std::wstring>{L"{ab}"});
}

TEST(Registry, SettingTwiceKeepsOneValue) {
    const TemporaryRegistry registry;
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(RegSetValueW(HKEY_CLASSES_ROOT, L"A\\B", REG_SZ, L"text", 1), success);
    }
    const std::string content = contentOf(registry.file());
    EXPECT_EQ(content.find("(default)"), content.rfind("(default)"));
}

TEST(Registry, EnumeratesDirectSubkeysOnly) {
    const TemporaryRegistry registry;
    for (const wchar_t* path : {L"A\\one\\deep", L"A\\two", L"A-b", L"AA\\three", L"B"}) {
        EXPECT_EQ(Key::create(path).result(), success);
    }
    EXPECT_EQ(Key::open(L"A").subkeys(), (std::vector<std::wstring>{L"one", L"two"}));
    EXPECT_EQ(Key::open(nullptr).subkeys(), (std::vector<std::wstring>{L"A", L"A-b", L"AA", L"B"}));
    const Key key = Key::open(L"A");
    wchar_t name[4];
    DWORD length = 3;
    EXPECT_EQ(RegEnumKeyExW(key.handle(), 0, name, &length, nullptr, nullptr, nullptr, nullptr),
              LSTATUS{ERROR_MORE_DATA});
    length = 4;
    EXPECT_EQ(RegEnumKeyExW(key.handle(), 0, name, &length, nullptr, nullptr, nullptr, nullptr), success);
}

TEST(Registry, DeletesKeysWithoutSubkeys) {
    const TemporaryRegistry registry;
    EXPECT_EQ(Key::create(L"A\\B\\C").result(), success);
    struct Row {
        const wchar_t* name;
        LSTATUS expected;
    };
    for (const Row& row :
         {Row{L"A", ERROR_ACCESS_DENIED}, Row{L"A\\B", ERROR_ACCESS_DENIED}, Row{L"A\\x", notFound},
          Row{L"a\\b\\c", success}, Row{L"A\\B\\C", notFound}, Row{L"A\\B", success}, Row{L"A", success},
          Row{L"", invalid}, Row{nullptr, invalid}}) {
        EXPECT_EQ(RegDeleteKeyW(HKEY_CLASSES_ROOT, row.name), row.expected);
    }
    EXPECT_EQ(Key::open(L"A").result(), notFound);
}

TEST(Registry, KeyDeletedWhileOpenIsGone) {
    const TemporaryRegistry registry;
    const Key key = Key::create(L"A");
    EXPECT_EQ(RegDeleteKeyW(HKEY_CLASSES_ROOT, L"A"), success);
    EXPECT_EQ(key.set(L"name", L"text"), notFound);
    EXPECT_EQ(key.value(L"name"), L"<2>");
}

TEST(Registry, QueryTellsTheSize) {
    const TemporaryRegistry registry;
    const Key key = Key::create(L"A");
    EXPECT_EQ(key.set(L"name", L"text"), success);
    const DWORD whole = 5 * sizeof(wchar_t);
    DWORD bytes = 0;
    EXPECT_EQ(RegQueryValueExW(key.handle(), L"name", nullptr, nullptr, nullptr, &bytes), success);
    EXPECT_EQ(bytes, whole);
    wchar_t text[5];
    bytes = whole - 1;
    EXPECT_EQ(
        RegQueryValueExW(key.handle(), L"name", nullptr, nullptr, reinterpret_cast<BYTE*>(text), &bytes),
        LSTATUS{ERROR_MORE_DATA});
    EXPECT_EQ(bytes, whole);
    EXPECT_EQ(key.value(L"other"), L"<2>");
}

TEST(Registry, RefusesNamesAndTextsThatTheFileCannotHold) {
    const TemporaryRegistry registry;
    for (const wchar_t* path : {L"\\A", L"A\\", L"A\\\\B", L"A\nB", L" A", L"A\\B "}) {
        EXPECT_EQ(Key::create(path).result(), invalid) << path;
    }
    EXPECT_EQ(Key::create(std::wstring(1025, L'a').c_str()).result(), invalid);
    std::wstring deep = L"a";
    for (int depth = 1; depth < 33; ++depth) {
        deep += L"\\a";
    }
    EXPECT_EQ(Key::create(deep.c_str()).result(), invalid);
    const Key key = Key::create(L"A");
    EXPECT_EQ(key.set(L"a=b", L"text"), invalid);
    EXPECT_EQ(key.set(L"[name", L"text"), invalid);
    EXPECT_EQ(key.set(L"name", L"two\nlines"), invalid);
    EXPECT_EQ(key.set(L"name", L" outer space"), invalid);
    EXPECT_EQ(RegSetValueW(key.handle(), nullptr, 4, L"number", 0), invalid);
    EXPECT_EQ(RegSetValueW(HKEY_CLASSES_ROOT, nullptr, REG_SZ, L"of the root", 0), invalid);
    EXPECT_EQ(key.set(L"name", L"= [text] # 1"), success);
    EXPECT_EQ(key.value(L"name"), L"= [text] # 1");
}

TEST(Registry, RefusesHandlesThatAreNotOpen) {
    const TemporaryRegistry registry;
    HKEY key = nullptr;
    ASSERT_EQ(RegCreateKeyW(HKEY_CLASSES_ROOT, L"A", &key), success);
    EXPECT_EQ(RegCloseKey(key), success);
    EXPECT_EQ(RegCloseKey(key), LSTATUS{ERROR_INVALID_HANDLE});
    HKEY other = nullptr;
    EXPECT_EQ(RegOpenKeyExW(key, L"B", 0, KEY_READ, &other), LSTATUS{ERROR_INVALID_HANDLE});
    EXPECT_EQ(RegCloseKey(HKEY_CLASSES_ROOT), success);
}

TEST(Registry, PassesOverMalformedLines) {
    const TemporaryRegistry registry;
    writeFile(registry, "value = before any key\n[\n[]\n[A\n lost = below a malformed key\n]\xFF\xFE\0\x01\n"
                        "[A\\\\B]\nlost = 1\n[ C ]\n[Good]\r\n  name=text  \r\nno equals sign\n= no name\n"
                        "# comment = 1\n(default) =\nlast = without line feed"s);
    EXPECT_EQ(Key::open(nullptr).subkeys(), std::vector<std::wstring>{L"Good"});
    const Key key = Key::open(L"Good");
    EXPECT_EQ(key.value(L"name"), L"text");
    EXPECT_EQ(key.value(nullptr), L"");
    EXPECT_EQ(key.value(L"last"), L"without line feed");
    EXPECT_EQ(key.set(L"more", L"text"), success);
    EXPECT_EQ(key.value(L"name"), L"text");
}

TEST(Registry, NeitherReadsNorReplacesAFileThatIsTooLarge) {
    const TemporaryRegistry registry;
    const std::string large = "[A]\n#" + std::string(1'048'576, 'x');
    writeFile(registry, large);
    EXPECT_EQ(Key::open(L"A").result(), 223);
    EXPECT_EQ(Key::create(L"B").result(), 223);
    EXPECT_EQ(contentOf(registry.file()), large);
}

TEST(Registry, SaysThatItHasNoPlace) {
    const TemporaryRegistry registry;
    std::ofstream(registry.directory() / "file") << "no directory";
    for (const std::string& place : {std::string("relative"), (registry.directory() / "file").string()}) {
        setVariable("XDG_DATA_HOME", place.c_str());
        setVariable("HOME", "");
        EXPECT_EQ(Key::create(L"A").result(), 3) << place;
    }
    setVariable("XDG_DATA_HOME", nullptr);
    setVariable("HOME", registry.directory().c_str());
    EXPECT_EQ(Key::create(L"A").result(), success);
    EXPECT_TRUE(std::filesystem::exists(registry.directory() / ".local/share/kvnetworkreceiver/classes"));
}

bool addKeys(wchar_t letter, int count) {
    for (int i = 0; i < count; ++i) {
        const std::wstring path = std::wstring(L"Both\\") + letter + std::to_wstring(i);
        if (RegSetValueW(HKEY_CLASSES_ROOT, path.c_str(), REG_SZ, L"text", 0) != success) {
            return false;
        }
    }
    return true;
}

TEST(Registry, KeepsTheWritesOfTwoProcesses) {
    const TemporaryRegistry registry;
    constexpr int count = 25;
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        _exit(addKeys(L'c', count) ? 0 : 1);
    }
    EXPECT_TRUE(addKeys(L'p', count));
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(Key::open(L"Both").subkeys().size(), 2U * count);
    EXPECT_FALSE(std::filesystem::exists(registry.file().string() + ".new"));
}

} // namespace
