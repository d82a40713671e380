#pragma once

// COM types and run time.
//
// On Windows this is the system's own header. Elsewhere it declares the part of COM that the module and its
// hosts call, under the same names and with the same contracts. All operations may be called from any thread.
//
// Differences from the system's COM, all of them refusals: there is no marshalling (an object is always used
// directly, so only classes that are safe on any thread may be registered), no remote or local server, and no
// class registration beyond in-process servers.

#ifdef _WIN32

#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>

#include <objbase.h>
#include <unknwn.h>

#else

#include <cstdint>
#include <cstring>

// Result codes: negative is failure.
using HRESULT = std::int32_t;
using ULONG = std::uint32_t;
using DWORD = std::uint32_t;
using BOOL = std::int32_t;
using LONG = std::int32_t;
using UINT = std::uint32_t;
using WCHAR = wchar_t;

inline constexpr BOOL TRUE = 1;
inline constexpr BOOL FALSE = 0;

inline constexpr HRESULT S_OK = 0;
inline constexpr HRESULT S_FALSE = 1;
inline constexpr HRESULT E_NOTIMPL = static_cast<HRESULT>(0x80004001);
inline constexpr HRESULT E_NOINTERFACE = static_cast<HRESULT>(0x80004002);
inline constexpr HRESULT E_POINTER = static_cast<HRESULT>(0x80004003);
inline constexpr HRESULT E_FAIL = static_cast<HRESULT>(0x80004005);
inline constexpr HRESULT E_OUTOFMEMORY = static_cast<HRESULT>(0x8007000E);
inline constexpr HRESULT E_INVALIDARG = static_cast<HRESULT>(0x80070057);
inline constexpr HRESULT CLASS_E_NOAGGREGATION = static_cast<HRESULT>(0x80040110);
inline constexpr HRESULT CLASS_E_CLASSNOTAVAILABLE = static_cast<HRESULT>(0x80040111);
inline constexpr HRESULT REGDB_E_CLASSNOTREG = static_cast<HRESULT>(0x80040154);
inline constexpr HRESULT CO_E_NOTINITIALIZED = static_cast<HRESULT>(0x800401F0);
inline constexpr HRESULT CO_E_CLASSSTRING = static_cast<HRESULT>(0x800401F3);
inline constexpr HRESULT CO_E_DLLNOTFOUND = static_cast<HRESULT>(0x800401F8);
inline constexpr HRESULT CO_E_ERRORINDLL = static_cast<HRESULT>(0x800401F9);
inline constexpr HRESULT CO_E_OBJNOTREG = static_cast<HRESULT>(0x800401FC);
inline constexpr HRESULT RPC_E_CHANGED_MODE = static_cast<HRESULT>(0x80010106);

constexpr bool SUCCEEDED(HRESULT result) noexcept { return result >= 0; }
constexpr bool FAILED(HRESULT result) noexcept { return result < 0; }

struct GUID {
    std::uint32_t Data1;
    std::uint16_t Data2;
    std::uint16_t Data3;
    std::uint8_t Data4[8];

    friend bool operator==(const GUID& left, const GUID& right) noexcept {
        return std::memcmp(&left, &right, sizeof(GUID)) == 0;
    }
};
static_assert(sizeof(GUID) == 16);

using IID = GUID;
using CLSID = GUID;
using REFGUID = const GUID&;
using REFIID = const IID&;
using REFCLSID = const CLSID&;

// {00000000-0000-0000-C000-000000000046}
inline constexpr IID IID_IUnknown{0x00000000, 0x0000, 0x0000, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
// {00000001-0000-0000-C000-000000000046}
inline constexpr IID IID_IClassFactory{0x00000001, 0x0000, 0x0000, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};

// Identity and lifetime of every component object. A caller owns each reference that QueryInterface or AddRef
// gave it and returns it with Release; the object ends with its last reference.
struct IUnknown {
    // Stores the interface `iid` in *object with one reference and returns S_OK, or stores null and returns
    // E_NOINTERFACE.
    virtual HRESULT QueryInterface(REFIID iid, void** object) = 0;
    // Both return the count after the call, for diagnostics only.
    virtual ULONG AddRef() = 0;
    virtual ULONG Release() = 0;

protected:
    ~IUnknown() = default;
};

// Makes objects of one class.
struct IClassFactory : IUnknown {
    virtual HRESULT CreateInstance(IUnknown* outer, REFIID iid, void** object) = 0;
    // Keeps the server loaded while the lock count is above 0.
    virtual HRESULT LockServer(BOOL lock) = 0;

protected:
    ~IClassFactory() = default;
};

inline constexpr DWORD COINIT_MULTITHREADED = 0x0;
inline constexpr DWORD COINIT_APARTMENTTHREADED = 0x2;
inline constexpr DWORD CLSCTX_INPROC_SERVER = 0x1;
inline constexpr DWORD REGCLS_MULTIPLEUSE = 1;

extern "C" {

// Enters an apartment on the calling thread; counted. S_OK on the first call of the thread, S_FALSE on a
// further one with the same model, RPC_E_CHANGED_MODE (nothing counted) with the other model. `reserved` must
// be null, else E_INVALIDARG.
HRESULT CoInitializeEx(void* reserved, DWORD model);

// Undoes one successful CoInitializeEx of the calling thread; without one it does nothing.
void CoUninitialize();

// Makes an object of class `clsid`: asks the class object registered in this process, else the in-process
// server that the class registry names, which is loaded once. *object is null on failure.
// CO_E_NOTINITIALIZED when the thread is in no apartment and the process has no multithreaded one;
// REGDB_E_CLASSNOTREG, CO_E_DLLNOTFOUND (module cannot be loaded), CO_E_ERRORINDLL (module has no
// DllGetClassObject), or what the class object returned. `context` must contain CLSCTX_INPROC_SERVER.
HRESULT CoCreateInstance(REFCLSID clsid, IUnknown* outer, DWORD context, REFIID iid, void** object);

// Registers a class object for this process (one reference is held until it is revoked); *cookie names the
// registration. Of several for one class the newest is asked. CoRevokeClassObject returns CO_E_OBJNOTREG for
// an unknown cookie; a creation under way ends with its own reference.
HRESULT CoRegisterClassObject(REFCLSID clsid, IUnknown* classObject, DWORD context, DWORD flags,
                              DWORD* cookie);
HRESULT CoRevokeClassObject(DWORD cookie);

// Unloads every module that CoCreateInstance loaded and whose DllCanUnloadNow returns S_OK, unless a
// CoCreateInstance is inside it. At once: the caller sees to it that no other thread is still returning from
// the last Release of one of the module's objects.
void CoFreeUnusedLibraries();

// Writes the braces form (38 characters and the terminator, capital hexadecimal digits) and returns 39, or
// returns 0 when `capacity` is smaller than 39 characters.
int StringFromGUID2(REFGUID guid, wchar_t* text, int capacity);

// Reads the braces form; CO_E_CLASSSTRING when the text is anything else (*clsid is then all zero).
HRESULT CLSIDFromString(const wchar_t* text, CLSID* clsid);
}

#endif
