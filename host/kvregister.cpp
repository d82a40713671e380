// kvregister: writes the classes of an in-process server into the class registry, or removes them.

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "PlatformCom.h"
#include "PlatformModule.h"
#include "PlatformRegistry.h"

namespace {

constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;

constexpr const char* kUsage =
    "usage: kvregister [--unregister] <module>...\n"
    "Registers the classes of each module for the current user, so that a host can\n"
    "create them by class identifier; --unregister removes them.\n";

std::string narrow(const wchar_t* text) {
    std::array<char, 4096> bytes{};
    const int length = WideCharToMultiByte(CP_ACP, 0, text, -1, bytes.data(), static_cast<int>(bytes.size()),
                                           nullptr, nullptr);
    return length > 0 ? bytes.data() : std::string();
}

// The default value of a key, empty when there is none.
std::string readDefaultValue(HKEY parent, const std::wstring& name) {
    HKEY key = nullptr;
    if (RegOpenKeyExW(parent, name.c_str(), 0, KEY_READ, &key) != ERROR_SUCCESS) {
        return {};
    }
    std::array<wchar_t, 1024> text{};
    auto bytes = static_cast<DWORD>(sizeof(text) - sizeof(wchar_t));
    const LSTATUS error =
        RegQueryValueExW(key, nullptr, nullptr, nullptr, reinterpret_cast<BYTE*>(text.data()), &bytes);
    RegCloseKey(key);
    return error == ERROR_SUCCESS ? narrow(text.data()) : std::string();
}

// The classes that the registry says `path` serves, as "{identifier}  name".
std::vector<std::string> registeredClasses(const std::string& path) {
    std::vector<std::string> classes;
    HKEY root = nullptr;
    if (RegOpenKeyExW(HKEY_CLASSES_ROOT, L"CLSID", 0, KEY_READ, &root) != ERROR_SUCCESS) {
        return classes;
    }
    std::array<wchar_t, 260> name{};
    for (DWORD index = 0;; ++index) {
        auto characters = static_cast<DWORD>(name.size());
        if (RegEnumKeyExW(root, index, name.data(), &characters, nullptr, nullptr, nullptr, nullptr) !=
            ERROR_SUCCESS) {
            break;
        }
        const std::wstring identifier(name.data());
        if (readDefaultValue(root, identifier + L"\\InprocServer32") == path) {
            classes.push_back(narrow(name.data()) + "  " + readDefaultValue(root, identifier));
        }
    }
    RegCloseKey(root);
    return classes;
}

void print(const std::vector<std::string>& classes) {
    for (const std::string& line : classes) {
        std::printf("  %s\n", line.c_str());
    }
}

// Calls the module's entry point; says what failed and returns false.
bool callEntryPoint(HMODULE module, const char* name, const std::string& path) {
    using EntryPoint = HRESULT (*)();
    const auto entryPoint =
        reinterpret_cast<EntryPoint>(reinterpret_cast<void*>(GetProcAddress(module, name)));
    if (entryPoint == nullptr) {
        std::fprintf(stderr, "kvregister: %s has no %s: it is not an in-process server\n", path.c_str(),
                     name);
        return false;
    }
    if (const HRESULT result = entryPoint(); result < 0) {
        std::fprintf(stderr, "kvregister: %s of %s failed with 0x%08X\n", name, path.c_str(),
                     static_cast<unsigned>(result));
        return false;
    }
    return true;
}

bool registerModule(HMODULE module, const std::string& path) {
    if (!callEntryPoint(module, "DllRegisterServer", path)) {
        return false;
    }
    std::printf("registered %s\n", path.c_str());
    print(registeredClasses(path));
    return true;
}

bool unregisterModule(HMODULE module, const std::string& path) {
    const std::vector<std::string> before = registeredClasses(path);
    if (!callEntryPoint(module, "DllUnregisterServer", path)) {
        return false;
    }
    // The entry point passes over keys that it cannot remove.
    const std::vector<std::string> left = registeredClasses(path);
    if (!left.empty()) {
        std::fprintf(stderr, "kvregister: these classes of %s could not be removed:\n", path.c_str());
        for (const std::string& line : left) {
            std::fprintf(stderr, "  %s\n", line.c_str());
        }
        return false;
    }
    std::printf(before.empty() ? "%s was not registered\n" : "unregistered %s\n", path.c_str());
    print(before);
    return true;
}

bool processModule(const char* name, bool (*process)(HMODULE module, const std::string& path)) {
    // Without a folder the system would search its own; a person means the file that is here.
    const bool hasFolder = std::strpbrk(name, "/\\") != nullptr;
    const std::string path = hasFolder ? name : std::string("./") + name;
    HMODULE module = LoadLibraryA(path.c_str());
    if (module == nullptr) {
        std::fprintf(stderr,
                     "kvregister: cannot load %s (error %u): there is no such module, or a library that it "
                     "needs is missing\n",
                     path.c_str(), static_cast<unsigned>(GetLastError()));
        return false;
    }
    std::array<char, 4096> fullPath{};
    GetModuleFileNameA(module, fullPath.data(), static_cast<DWORD>(fullPath.size()));
    const bool processed = process(module, fullPath.data());
    FreeLibrary(module);
    return processed;
}

} // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    bool unregisters = false;
    std::vector<std::string> modules;
    for (const std::string& argument : arguments) {
        if (argument == "--help" || argument == "-h") {
            std::fputs(kUsage, stdout);
            return 0;
        }
        if (argument == "--unregister" || argument == "-u") {
            unregisters = true;
        } else if (argument.rfind('-', 0) == 0) {
            std::fprintf(stderr, "kvregister: unknown option %s\n%s", argument.c_str(), kUsage);
            return kExitUsage;
        } else {
            modules.push_back(argument);
        }
    }
    if (modules.empty()) {
        std::fputs(kUsage, stderr);
        return kExitUsage;
    }
    bool succeeded = true;
    for (const std::string& module : modules) {
        succeeded =
            processModule(module.c_str(), unregisters ? unregisterModule : registerModule) && succeeded;
    }
    return succeeded ? 0 : kExitFailure;
}
