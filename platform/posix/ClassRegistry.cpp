#include "ClassRegistry.h"

#include <cwchar>
#include <map>
#include <mutex>
#include <optional>
#include <string>

#include "RegistryFile.h"
#include "Text.h"

namespace Platform {

namespace {

// Open keys by handle. A handle that is not there is refused, so closing one twice does no harm.
struct OpenKeys {
    std::mutex mutex;
    std::map<HKEY, std::string> paths;
    std::uintptr_t last = 0;
};

// Never destroyed: static destructors of other modules may still call.
OpenKeys& openKeys() {
    static auto* const keys = new OpenKeys;
    return *keys;
}

HKEY openKey(const std::string& path) {
    OpenKeys& keys = openKeys();
    const std::lock_guard lock(keys.mutex);
    HKEY key = reinterpret_cast<HKEY>(keys.last += 16);
    if (key == HKEY_CLASSES_ROOT) {
        key = reinterpret_cast<HKEY>(keys.last += 16);
    }
    keys.paths.emplace(key, path);
    return key;
}

// The path of an open key with, when it is given, the path of a key below it.
struct KeyPath {
    LSTATUS error = ERROR_SUCCESS;
    std::string text;
};

KeyPath keyPath(HKEY key, const wchar_t* below = nullptr) {
    KeyPath path;
    if (key != HKEY_CLASSES_ROOT) {
        OpenKeys& keys = openKeys();
        const std::lock_guard lock(keys.mutex);
        const auto found = keys.paths.find(key);
        if (found == keys.paths.end()) {
            path.error = ERROR_INVALID_HANDLE;
            return path;
        }
        path.text = found->second;
    }
    if (below != nullptr && *below != L'\0') {
        path.text += path.text.empty() ? "" : "\\";
        path.text += narrow(below);
        if (!RegistryTree::isKeyPath(path.text)) {
            path.error = ERROR_INVALID_PARAMETER;
        }
    }
    return path;
}

LSTATUS setValue(const KeyPath& key, bool create, const std::string& name, const std::string& text) {
    if (key.error != ERROR_SUCCESS) {
        return key.error;
    }
    if (key.text.empty() || !RegistryTree::isValueName(name) || !RegistryTree::isValueText(text)) {
        return ERROR_INVALID_PARAMETER;
    }
    return changeRegistry([&](RegistryTree& tree) -> LSTATUS {
        if (create) {
            tree.add(key.text);
        } else if (!tree.contains(key.text)) {
            return ERROR_FILE_NOT_FOUND;
        }
        tree.setValue(key.text, name, text);
        return ERROR_SUCCESS;
    });
}

} // namespace

std::string inprocServerPath(REFCLSID clsid) {
    wchar_t text[39];
    StringFromGUID2(clsid, text, 39);
    RegistryTree tree;
    if (readRegistry(tree) != ERROR_SUCCESS) {
        return {};
    }
    return tree.value("CLSID\\" + narrow(text) + "\\InprocServer32", "").value_or(std::string());
}

} // namespace Platform

using Platform::KeyPath;
using Platform::keyPath;
using Platform::narrow;
using Platform::RegistryTree;

extern "C" {

LSTATUS RegCreateKeyW(HKEY parent, const wchar_t* name, HKEY* key) {
    if (key == nullptr) {
        return ERROR_INVALID_PARAMETER;
    }
    *key = nullptr;
    const KeyPath path = keyPath(parent, name);
    if (path.error != ERROR_SUCCESS) {
        return path.error;
    }
    RegistryTree tree;
    LSTATUS result = Platform::readRegistry(tree);
    if (result != ERROR_SUCCESS || !tree.contains(path.text)) {
        result = Platform::changeRegistry([&path](RegistryTree& current) -> LSTATUS {
            current.add(path.text);
            return ERROR_SUCCESS;
        });
    }
    if (result == ERROR_SUCCESS) {
        *key = Platform::openKey(path.text);
    }
    return result;
}

LSTATUS RegOpenKeyExW(HKEY parent, const wchar_t* name, DWORD /*options*/, REGSAM /*access*/, HKEY* key) {
    if (key == nullptr) {
        return ERROR_INVALID_PARAMETER;
    }
    *key = nullptr;
    const KeyPath path = keyPath(parent, name);
    if (path.error != ERROR_SUCCESS) {
        return path.error;
    }
    RegistryTree tree;
    const LSTATUS result = Platform::readRegistry(tree);
    if (result != ERROR_SUCCESS) {
        return result;
    }
    if (!tree.contains(path.text)) {
        return ERROR_FILE_NOT_FOUND;
    }
    *key = Platform::openKey(path.text);
    return ERROR_SUCCESS;
}

LSTATUS RegSetValueW(HKEY key, const wchar_t* name, DWORD type, const wchar_t* text, DWORD /*bytes*/) {
    if (type != REG_SZ || text == nullptr) {
        return ERROR_INVALID_PARAMETER;
    }
    return Platform::setValue(keyPath(key, name), true, std::string(), narrow(text));
}

LSTATUS RegSetValueExW(HKEY key, const wchar_t* name, DWORD /*reserved*/, DWORD type, const BYTE* data,
                       DWORD bytes) {
    if (type != REG_SZ || data == nullptr || bytes / sizeof(wchar_t) > RegistryTree::longestFile) {
        return ERROR_INVALID_PARAMETER;
    }
    std::wstring text(bytes / sizeof(wchar_t), L'\0');
    std::memcpy(text.data(), data, text.size() * sizeof(wchar_t));
    text.resize(std::wcslen(text.c_str()));
    return Platform::setValue(keyPath(key), false, name != nullptr ? narrow(name) : std::string(),
                              narrow(text));
}

LSTATUS RegQueryValueExW(HKEY key, const wchar_t* name, DWORD* /*reserved*/, DWORD* type, BYTE* data,
                         DWORD* bytes) {
    if (data != nullptr && bytes == nullptr) {
        return ERROR_INVALID_PARAMETER;
    }
    const KeyPath path = keyPath(key);
    if (path.error != ERROR_SUCCESS) {
        return path.error;
    }
    RegistryTree tree;
    const LSTATUS result = Platform::readRegistry(tree);
    if (result != ERROR_SUCCESS) {
        return result;
    }
    const auto value = tree.value(path.text, name != nullptr ? narrow(name) : std::string());
    if (!value) {
        return ERROR_FILE_NOT_FOUND;
    }
    if (type != nullptr) {
        *type = REG_SZ;
    }
    if (bytes == nullptr) {
        return ERROR_SUCCESS;
    }
    const std::wstring text = Platform::widen(*value);
    const auto needed = static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t));
    const DWORD capacity = *bytes;
    *bytes = needed;
    if (data == nullptr) {
        return ERROR_SUCCESS;
    }
    if (capacity < needed) {
        return ERROR_MORE_DATA;
    }
    std::memcpy(data, text.c_str(), needed);
    return ERROR_SUCCESS;
}

LSTATUS RegEnumKeyExW(HKEY key, DWORD index, wchar_t* name, DWORD* characters, DWORD* /*reserved*/,
                      wchar_t* /*className*/, DWORD* /*classCharacters*/, FILETIME* /*lastWrite*/) {
    if (name == nullptr || characters == nullptr) {
        return ERROR_INVALID_PARAMETER;
    }
    const KeyPath path = keyPath(key);
    if (path.error != ERROR_SUCCESS) {
        return path.error;
    }
    RegistryTree tree;
    const LSTATUS result = Platform::readRegistry(tree);
    if (result != ERROR_SUCCESS) {
        return result;
    }
    if (!tree.contains(path.text)) {
        return ERROR_FILE_NOT_FOUND;
    }
    const auto subkey = tree.subkey(path.text, index);
    if (!subkey) {
        return ERROR_NO_MORE_ITEMS;
    }
    const std::wstring text = Platform::widen(*subkey);
    if (*characters <= text.size()) {
        return ERROR_MORE_DATA;
    }
    std::memcpy(name, text.c_str(), (text.size() + 1) * sizeof(wchar_t));
    *characters = static_cast<DWORD>(text.size());
    return ERROR_SUCCESS;
}

LSTATUS RegDeleteKeyW(HKEY parent, const wchar_t* name) {
    if (name == nullptr || *name == L'\0') {
        return ERROR_INVALID_PARAMETER;
    }
    const KeyPath path = keyPath(parent, name);
    if (path.error != ERROR_SUCCESS) {
        return path.error;
    }
    return Platform::changeRegistry([&path](RegistryTree& tree) -> LSTATUS {
        if (!tree.contains(path.text)) {
            return ERROR_FILE_NOT_FOUND;
        }
        if (tree.subkey(path.text, 0)) {
            return ERROR_ACCESS_DENIED;
        }
        tree.remove(path.text);
        return ERROR_SUCCESS;
    });
}

LSTATUS RegCloseKey(HKEY key) {
    if (key == HKEY_CLASSES_ROOT) {
        return ERROR_SUCCESS;
    }
    Platform::OpenKeys& keys = Platform::openKeys();
    const std::lock_guard lock(keys.mutex);
    return keys.paths.erase(key) != 0 ? LSTATUS{ERROR_SUCCESS} : LSTATUS{ERROR_INVALID_HANDLE};
}
}
