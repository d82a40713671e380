#include "ClassRegistration.h"

#include <array>
#include <cwchar>

#include "PlatformModule.h"

namespace {

// An open key, closed at its end.
class RegistryKey {
public:
    RegistryKey() = default;
    RegistryKey(const RegistryKey&) = delete;
    RegistryKey& operator=(const RegistryKey&) = delete;
    ~RegistryKey() {
        if (m_key != nullptr) {
            RegCloseKey(m_key);
        }
    }
    [[nodiscard]] LSTATUS create(HKEY parent, const wchar_t* name) {
        return RegCreateKeyW(parent, name, &m_key);
    }
    [[nodiscard]] LSTATUS open(HKEY parent, const wchar_t* name) {
        return RegOpenKeyExW(parent, name, 0, MAXIMUM_ALLOWED, &m_key);
    }
    [[nodiscard]] HKEY get() const noexcept { return m_key; }

private:
    HKEY m_key = nullptr;
};

// Room for the longest path and name; what wsprintfW may write.
using Text = std::array<wchar_t, 1024>;

constexpr std::size_t kBracesTextLength = 39; // with the terminator

Text formatted(const wchar_t* format, const wchar_t* argument) {
    Text text{};
    wsprintfW(text.data(), format, argument);
    return text;
}

DWORD sizeInBytes(const Text& text) {
    return static_cast<DWORD>((std::wcslen(text.data()) + 1) * sizeof(wchar_t));
}

// "CLSID\{...}", or an empty text.
Text classKey(REFCLSID clsid) {
    std::array<wchar_t, kBracesTextLength> braces{};
    if (StringFromGUID2(clsid, braces.data(), static_cast<int>(braces.size())) == 0) {
        return {};
    }
    return formatted(L"CLSID\\%ls", braces.data());
}

LSTATUS writeServerKeys(const Text& key, const wchar_t* name, const wchar_t* path,
                        const wchar_t* threadingModel, const wchar_t* serverType) {
    constexpr DWORD ignoredSize = 520; // a default value's text ends with its terminator
    RegistryKey classKey;
    if (const LSTATUS error = classKey.create(HKEY_CLASSES_ROOT, key.data()); error != ERROR_SUCCESS) {
        return error;
    }
    const Text nameText = formatted(L"%ls", name);
    if (const LSTATUS error = RegSetValueW(classKey.get(), nullptr, REG_SZ, nameText.data(), ignoredSize);
        error != ERROR_SUCCESS) {
        return error;
    }
    RegistryKey serverKey;
    if (const LSTATUS error = serverKey.create(classKey.get(), formatted(L"%ls", serverType).data());
        error != ERROR_SUCCESS) {
        return error;
    }
    const Text pathText = formatted(L"%ls", path);
    if (const LSTATUS error =
            RegSetValueW(serverKey.get(), nullptr, REG_SZ, pathText.data(), sizeInBytes(pathText));
        error != ERROR_SUCCESS) {
        return error;
    }
    const Text modelText = formatted(L"%ls", threadingModel);
    return RegSetValueExW(serverKey.get(), L"ThreadingModel", 0, REG_SZ,
                          reinterpret_cast<const BYTE*>(modelText.data()), sizeInBytes(modelText));
}

} // namespace

HRESULT resultOfPlatformError(std::int64_t code) noexcept {
    return static_cast<HRESULT>(code > 0 ? (code & 0xFFFF) | 0x80070000 : code);
}

HRESULT registerServerClass(REFCLSID clsid, const wchar_t* name, const wchar_t* path,
                            const wchar_t* threadingModel, const wchar_t* serverType) {
    const Text key = classKey(clsid);
    if (key[0] == L'\0') {
        return E_FAIL;
    }
    return resultOfPlatformError(writeServerKeys(key, name, path, threadingModel, serverType));
}

HRESULT unregisterServerClass(REFCLSID clsid) {
    const Text key = classKey(clsid);
    deleteRegistryTree(HKEY_CLASSES_ROOT, key.data());
    return S_OK;
}

HRESULT deleteRegistryTree(HKEY parent, const wchar_t* name) {
    if (*name == L'\0') {
        return E_FAIL;
    }
    {
        RegistryKey key;
        if (key.open(parent, name) != ERROR_SUCCESS) {
            return S_OK;
        }
        std::array<wchar_t, 260> last{};
        for (DWORD index = 0;;) {
            std::array<wchar_t, 260> subkey{};
            auto characters = static_cast<DWORD>(subkey.size());
            if (RegEnumKeyExW(key.get(), index, subkey.data(), &characters, nullptr, nullptr, nullptr,
                              nullptr) != ERROR_SUCCESS) {
                break;
            }
            if (subkey == last) { // it is still there: leave it, go on with the next
                ++index;
                continue;
            }
            deleteRegistryTree(key.get(), subkey.data());
            last = subkey;
        }
    }
    RegDeleteKeyW(parent, name);
    return S_OK;
}
