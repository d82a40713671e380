#pragma once

// The loaded module: its handle, its path, loading by name, and the text operations that go with them.
//
// On Windows this is the system's own header. A module's entry point is
//     extern "C" BOOL DllMain(HMODULE module, DWORD reason, void* reserved);
// which Windows calls by itself. Elsewhere a module links the object library kv::module_entry, which calls it
// with DLL_PROCESS_ATTACH when the module is loaded, in no fixed order with its static initialisers, and with
// DLL_PROCESS_DETACH when it is unloaded, before its static destructors. The result is not looked at, and
// `reserved` is null.

#include "PlatformKernel.h"

#ifndef _WIN32

#include "PlatformCompiler.h"

// A loaded module: the address it is loaded at, whether DllMain or LoadLibraryA gave it.
using HMODULE = void*;

inline constexpr DWORD DLL_PROCESS_DETACH = 0;
inline constexpr DWORD DLL_PROCESS_ATTACH = 1;
inline constexpr UINT CP_ACP = 0;

extern "C" {

// Says that the module wants no notice of threads. There are none here; returns nonzero.
BOOL DisableThreadLibraryCalls(HMODULE module);

// Writes the full path of the module's file (of the program's when `module` is null), cut to `capacity` bytes
// with the terminator, and returns the number of characters written; a cut path returns `capacity` and sets
// ERROR_INSUFFICIENT_BUFFER. 0 on failure.
DWORD GetModuleFileNameA(HMODULE module, char* path, DWORD capacity);

// Loads a module by path or name; null on failure (ERROR_MOD_NOT_FOUND). FreeLibrary gives it back.
HMODULE LoadLibraryA(const char* name);
BOOL FreeLibrary(HMODULE module);

// A function that the module itself exports; null when there is none of that name.
void* GetProcAddress(HMODULE module, const char* name);

// Narrow text in the system's encoding (UTF-8 here) to wide text and back; what cannot be converted becomes
// U+FFFD. `length` -1 takes text up to and with its terminator. Capacity 0 asks for the number of characters
// needed. 0 on failure: ERROR_INSUFFICIENT_BUFFER, or ERROR_INVALID_PARAMETER (any flags, code pages but
// CP_ACP and 65001).
int MultiByteToWideChar(UINT codePage, DWORD flags, const char* text, int length, wchar_t* wide,
                        int capacity);
int WideCharToMultiByte(UINT codePage, DWORD flags, const wchar_t* wide, int length, char* text, int capacity,
                        const char* defaultCharacter, BOOL* usedDefault);

// Formats into a buffer of at least 1,024 wide characters: %ls, %s (wide), %d, %u, %x and %%. Output is cut
// at 1,024, terminator included. Returns the number of characters without it.
int wsprintfW(wchar_t* buffer, const wchar_t* format, ...);

// What an in-process server exports: the class object of one of its classes; S_OK when it may be unloaded,
// else S_FALSE; writing its classes to the class registry and removing them. Windows takes the list of
// exports from a module definition file.
KV_EXPORT HRESULT DllGetClassObject(REFCLSID clsid, REFIID iid, void** object);
KV_EXPORT HRESULT DllCanUnloadNow();
KV_EXPORT HRESULT DllRegisterServer();
KV_EXPORT HRESULT DllUnregisterServer();
}

#endif
