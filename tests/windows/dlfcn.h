#pragma once

// As much of the POSIX header as the replacements of system calls need: the system's own call by its name.

#include <initializer_list>

#include "PlatformModule.h"

#define RTLD_NEXT nullptr

inline void* dlsym(void* /*after*/, const char* name) {
    for (const char* library : {"kernel32.dll", "ole32.dll", "advapi32.dll", "msvcrt.dll"}) {
        if (const FARPROC call = GetProcAddress(GetModuleHandleA(library), name)) {
            return reinterpret_cast<void*>(call);
        }
    }
    return nullptr;
}
