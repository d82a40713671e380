#include "ServerModules.h"

#include <list>
#include <mutex>
#include <vector>

#include "Modules.h"

namespace Platform {

using GetClassObject = HRESULT (*)(REFCLSID, REFIID, void**);
using CanUnloadNow = HRESULT (*)();

struct Module {
    std::string path;
    HMODULE handle;
    GetClassObject getClassObject;
    CanUnloadNow canUnloadNow;
    // Threads inside a use, and the number of uses so far.
    std::uint64_t users;
    std::uint64_t uses;
};

namespace {

struct Modules {
    std::mutex mutex;
    std::list<Module> loaded;
};

// Never destroyed: static destructors of other modules may still call.
Modules& modules() {
    static auto* const instance = new Modules;
    return *instance;
}

// The loaded server with one user more; null when it is not loaded. Called with the lock held.
Module* enterLoaded(Modules& all, const std::string& path) {
    for (Module& module : all.loaded) {
        if (module.path == path) {
            ++module.users;
            ++module.uses;
            return &module;
        }
    }
    return nullptr;
}

// Nothing is locked while a module is loaded: its static initialisers call back into this library, and the
// loader's own lock would be taken in the other order by another thread.
HRESULT enter(const std::string& path, Module*& module) {
    Modules& all = modules();
    {
        const std::lock_guard lock(all.mutex);
        module = enterLoaded(all, path);
    }
    if (module != nullptr) {
        return S_OK;
    }
    HMODULE handle = loadModule(path);
    if (handle == nullptr) {
        return CO_E_DLLNOTFOUND;
    }
    const auto getClassObject = reinterpret_cast<GetClassObject>(findSymbol(handle, "DllGetClassObject"));
    const auto canUnloadNow = reinterpret_cast<CanUnloadNow>(findSymbol(handle, "DllCanUnloadNow"));
    bool isExtraLoad = true;
    if (getClassObject != nullptr) {
        const std::lock_guard lock(all.mutex);
        module = enterLoaded(all, path);
        if (module == nullptr) {
            module = &all.loaded.emplace_back(Module{path, handle, getClassObject, canUnloadNow, 1, 1});
            isExtraLoad = false;
        }
    }
    if (isExtraLoad) {
        freeModule(handle);
    }
    return module != nullptr ? S_OK : CO_E_ERRORINDLL;
}

void leave(Module& module) {
    const std::lock_guard lock(modules().mutex);
    --module.users;
}

// Unloads the server unless it has been used since `uses` was read. The caller is one of its users.
void unloadUnused(Module& module, std::uint64_t uses) {
    Modules& all = modules();
    HMODULE handle = nullptr;
    {
        const std::lock_guard lock(all.mutex);
        --module.users;
        if (module.users == 0 && module.uses == uses) {
            handle = module.handle;
            all.loaded.remove_if([&module](const Module& other) { return &other == &module; });
        }
    }
    if (handle != nullptr) {
        freeModule(handle);
    }
}

} // namespace

ServerUse::ServerUse(const std::string& path) : m_result(enter(path, m_module)) {}

ServerUse::~ServerUse() {
    if (m_module != nullptr) {
        leave(*m_module);
    }
}

HRESULT ServerUse::getClassObject(REFCLSID clsid, IClassFactory** factory) const {
    if (m_module == nullptr) {
        return m_result;
    }
    void* object = nullptr;
    const HRESULT result = m_module->getClassObject(clsid, IID_IClassFactory, &object);
    if (SUCCEEDED(result) && object == nullptr) {
        return E_FAIL;
    }
    *factory = static_cast<IClassFactory*>(object);
    return result;
}

} // namespace Platform

extern "C" void CoFreeUnusedLibraries() {
    struct Candidate {
        Platform::Module* module;
        std::uint64_t uses;
    };
    std::vector<Candidate> candidates;
    Platform::Modules& all = Platform::modules();
    {
        const std::lock_guard lock(all.mutex);
        for (Platform::Module& module : all.loaded) {
            if (module.users == 0 && module.canUnloadNow != nullptr) {
                ++module.users;
                candidates.push_back({&module, module.uses});
            }
        }
    }
    for (const Candidate& candidate : candidates) {
        if (candidate.module->canUnloadNow() == S_OK) {
            Platform::unloadUnused(*candidate.module, candidate.uses);
        } else {
            Platform::leave(*candidate.module);
        }
    }
}
