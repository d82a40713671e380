#include <string>

#include "ModuleLoggerComponent.h"
#include "PlatformCompiler.h"
#include "PlatformModule.h"
#include "PlatformRegistry.h"

namespace {

constexpr wchar_t displayName[] = L"Module Logger";
constexpr DWORD longestPath = 4096;

HMODULE g_module = nullptr;

HRESULT resultOf(LSTATUS error) noexcept {
    constexpr std::uint32_t platformFailure = 0x80070000;
    return error == ERROR_SUCCESS
               ? S_OK
               : static_cast<HRESULT>(platformFailure | (static_cast<std::uint32_t>(error) & 0xFFFF));
}

std::wstring classKey() {
    wchar_t clsid[39];
    StringFromGUID2(CLSID_ModuleLogger, clsid, 39);
    return std::wstring(L"CLSID\\") + clsid;
}

LSTATUS setThreadingModel(const std::wstring& serverKey) {
    static constexpr wchar_t both[] = L"Both";
    HKEY key = nullptr;
    LSTATUS error = RegCreateKeyW(HKEY_CLASSES_ROOT, serverKey.c_str(), &key);
    if (error == ERROR_SUCCESS) {
        error = RegSetValueExW(key, L"ThreadingModel", 0, REG_SZ, reinterpret_cast<const BYTE*>(both),
                               sizeof both);
        RegCloseKey(key);
    }
    return error;
}

} // namespace

extern "C" {

BOOL DllMain(HMODULE module, DWORD reason, void* /*reserved*/) {
    if (reason == DLL_PROCESS_ATTACH) {
        DisableThreadLibraryCalls(module);
        g_module = module;
    }
    return TRUE;
}

KV_EXPORT HRESULT DllGetClassObject(REFCLSID clsid, REFIID iid, void** object) {
    if (object == nullptr) {
        return E_POINTER;
    }
    *object = nullptr;
    if (clsid != CLSID_ModuleLogger) {
        return CLASS_E_CLASSNOTAVAILABLE;
    }
    return ModuleLogger::loggerClassObject()->QueryInterface(iid, object);
}

KV_EXPORT HRESULT DllCanUnloadNow() { return ModuleLogger::loggerUseCount() == 0 ? S_OK : S_FALSE; }

KV_EXPORT HRESULT DllRegisterServer() {
    char path[longestPath];
    wchar_t widePath[longestPath];
    const DWORD length = GetModuleFileNameA(g_module, path, longestPath);
    if (length == 0 || length == longestPath ||
        MultiByteToWideChar(CP_ACP, 0, path, -1, widePath, longestPath) == 0) {
        return resultOf(static_cast<LSTATUS>(GetLastError()));
    }
    const std::wstring key = classKey();
    const std::wstring serverKey = key + L"\\InprocServer32";
    LSTATUS error = RegSetValueW(HKEY_CLASSES_ROOT, key.c_str(), REG_SZ, displayName, 0);
    if (error == ERROR_SUCCESS) {
        error = RegSetValueW(HKEY_CLASSES_ROOT, serverKey.c_str(), REG_SZ, widePath, 0);
    }
    return resultOf(error == ERROR_SUCCESS ? setThreadingModel(serverKey) : error);
}

// What is not registered is no failure to remove.
KV_EXPORT HRESULT DllUnregisterServer() {
    const std::wstring key = classKey();
    for (const std::wstring& name : {key + L"\\InprocServer32", key}) {
        const LSTATUS error = RegDeleteKeyW(HKEY_CLASSES_ROOT, name.c_str());
        if (error != ERROR_SUCCESS && error != ERROR_FILE_NOT_FOUND) {
            return resultOf(error);
        }
    }
    return S_OK;
}
}
