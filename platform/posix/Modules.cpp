#include "Modules.h"

#include <dlfcn.h>
#include <link.h>
#include <sys/auxv.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <system_error>

#include "LastError.h"

namespace Platform {

namespace {

struct LibraryClose {
    void operator()(void* library) const noexcept { dlclose(library); }
};
using Library = std::unique_ptr<void, LibraryClose>;

// The load address of the module that contains `address`; null when no module does.
HMODULE moduleAt(const void* address) noexcept {
    Dl_info info{};
    return dladdr(address, &info) != 0 ? info.dli_fbase : nullptr;
}

// The loader wrote its record under its own lock, which the thread sanitizer does not see.
__attribute__((no_sanitize("thread"))) HMODULE loadAddress(void* library) noexcept {
    link_map* map = nullptr;
    return dlinfo(library, RTLD_DI_LINKMAP, &map) == 0 ? moduleAt(map->l_ld) : nullptr;
}

// The loaded module's library with a reference of its own; empty when `module` is no loaded module.
Library libraryOf(HMODULE module) noexcept {
    Dl_info info{};
    if (module == nullptr || dladdr(module, &info) == 0 || info.dli_fbase != module) {
        return nullptr;
    }
    return Library(dlopen(info.dli_fname, RTLD_LAZY | RTLD_NOLOAD));
}

std::string programPath() {
    char path[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", path, sizeof path);
    return length > 0 ? std::string(path, static_cast<std::size_t>(length)) : std::string();
}

// Empty when `module` is no loaded module.
std::string modulePath(HMODULE module) {
    Dl_info info{};
    if (module == nullptr || moduleAt(module) == moduleAt(reinterpret_cast<void*>(getauxval(AT_ENTRY)))) {
        return programPath();
    }
    if (dladdr(module, &info) == 0) {
        return {};
    }
    if (info.dli_fname[0] == '/') {
        return info.dli_fname;
    }
    const std::unique_ptr<char, decltype(&std::free)> path(realpath(info.dli_fname, nullptr), &std::free);
    return path != nullptr ? path.get() : std::string();
}

} // namespace

HMODULE loadModule(const std::string& name) {
    std::string path = name;
    if (name.find('/') != std::string::npos) { // absolute, so that the module's path outlives a chdir
        std::error_code ignored;
        path = std::filesystem::absolute(name, ignored).string();
    }
    Library library(dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL));
    HMODULE module = library != nullptr ? loadAddress(library.get()) : nullptr;
    if (module != nullptr) {
        static_cast<void>(library.release()); // the caller's now
    }
    return module;
}

bool freeModule(HMODULE module) noexcept {
    const Library library = libraryOf(module);
    return library != nullptr && dlclose(library.get()) == 0;
}

void* findSymbol(HMODULE module, const char* name) noexcept {
    const Library library = libraryOf(module);
    void* symbol = library != nullptr && name != nullptr ? dlsym(library.get(), name) : nullptr;
    return symbol != nullptr && moduleAt(symbol) == module ? symbol : nullptr;
}

} // namespace Platform

extern "C" {

BOOL DisableThreadLibraryCalls(HMODULE /*module*/) { return TRUE; }

DWORD GetModuleFileNameA(HMODULE module, char* path, DWORD capacity) {
    if (path == nullptr || capacity == 0) {
        Platform::setLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    const std::string whole = Platform::modulePath(module);
    path[0] = '\0';
    if (whole.empty()) {
        Platform::setLastError(ERROR_MOD_NOT_FOUND);
        return 0;
    }
    if (whole.size() < capacity) {
        std::memcpy(path, whole.c_str(), whole.size() + 1);
        return static_cast<DWORD>(whole.size());
    }
    std::memcpy(path, whole.data(), capacity - 1);
    path[capacity - 1] = '\0';
    Platform::setLastError(ERROR_INSUFFICIENT_BUFFER);
    return capacity;
}

HMODULE LoadLibraryA(const char* name) {
    HMODULE module = name != nullptr ? Platform::loadModule(name) : nullptr;
    if (module == nullptr) {
        Platform::setLastError(ERROR_MOD_NOT_FOUND);
    }
    return module;
}

BOOL FreeLibrary(HMODULE module) {
    if (!Platform::freeModule(module)) {
        Platform::setLastError(ERROR_MOD_NOT_FOUND);
        return FALSE;
    }
    return TRUE;
}

void* GetProcAddress(HMODULE module, const char* name) {
    void* symbol = Platform::findSymbol(module, name);
    if (symbol == nullptr) {
        Platform::setLastError(ERROR_MOD_NOT_FOUND);
    }
    return symbol;
}
}
