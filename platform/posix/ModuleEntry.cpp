#include <dlfcn.h>

#include "PlatformModule.h"

// Each module's own entry point.
extern "C" BOOL DllMain(HMODULE module, DWORD reason, void* reserved);

namespace {

HMODULE ownModule() noexcept {
    Dl_info info{};
    return dladdr(reinterpret_cast<const void*>(&DllMain), &info) != 0 ? info.dli_fbase : nullptr;
}

__attribute__((constructor)) void attach() { DllMain(ownModule(), DLL_PROCESS_ATTACH, nullptr); }

__attribute__((destructor)) void detach() { DllMain(ownModule(), DLL_PROCESS_DETACH, nullptr); }

} // namespace
