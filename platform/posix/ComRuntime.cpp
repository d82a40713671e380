#include <algorithm>
#include <atomic>
#include <map>
#include <memory>
#include <mutex>

#include "ClassRegistry.h"
#include "PlatformCom.h"
#include "ServerModules.h"

namespace Platform {

namespace {

// The calling thread's apartment. A thread that ends without leaving a multithreaded one leaves it alive.
struct Apartment {
    ULONG entries;
    DWORD model;
};
thread_local Apartment t_apartment{};

std::atomic<ULONG> g_multithreadedMembers{0};

bool isInApartment() noexcept { return t_apartment.entries != 0 || g_multithreadedMembers != 0; }

// A class object that a program registered, with the reference that the registration holds. Creations under
// way share it, so that it outlives its revocation until they are done.
class Registration {
public:
    Registration(REFCLSID clsid, IUnknown* classObject) : m_clsid(clsid), m_classObject(classObject) {
        m_classObject->AddRef();
    }
    ~Registration() { m_classObject->Release(); }
    Registration(const Registration&) = delete;
    Registration& operator=(const Registration&) = delete;

    REFCLSID clsid() const noexcept { return m_clsid; }
    IUnknown* classObject() const noexcept { return m_classObject; }

private:
    const CLSID m_clsid;
    IUnknown* const m_classObject;
};

struct Registrations {
    std::mutex mutex;
    std::map<DWORD, std::shared_ptr<const Registration>> byCookie;
    DWORD lastCookie = 0;
};

// Never destroyed: static destructors of other modules may still call.
Registrations& registrations() {
    static auto* const instance = new Registrations;
    return *instance;
}

// The newest registration of the class; empty when there is none.
std::shared_ptr<const Registration> findRegistration(REFCLSID clsid) {
    Registrations& all = registrations();
    const std::lock_guard lock(all.mutex);
    const auto entry =
        std::find_if(all.byCookie.rbegin(), all.byCookie.rend(),
                     [&clsid](const auto& candidate) { return candidate.second->clsid() == clsid; });
    return entry != all.byCookie.rend() ? entry->second : nullptr;
}

// Makes the object and ends the caller's reference to the factory.
HRESULT createAndRelease(IClassFactory* factory, IUnknown* outer, REFIID iid, void** object) {
    const HRESULT result = factory->CreateInstance(outer, iid, object);
    factory->Release();
    if (FAILED(result)) {
        *object = nullptr;
    }
    return result;
}

HRESULT createFromRegistration(const Registration& registration, IUnknown* outer, REFIID iid, void** object) {
    void* factory = nullptr;
    const HRESULT result = registration.classObject()->QueryInterface(IID_IClassFactory, &factory);
    if (FAILED(result) || factory == nullptr) {
        return FAILED(result) ? result : E_NOINTERFACE;
    }
    return createAndRelease(static_cast<IClassFactory*>(factory), outer, iid, object);
}

HRESULT createFromServer(REFCLSID clsid, IUnknown* outer, REFIID iid, void** object) {
    const std::string path = inprocServerPath(clsid);
    if (path.empty()) {
        return REGDB_E_CLASSNOTREG;
    }
    const ServerUse server(path);
    IClassFactory* factory = nullptr;
    const HRESULT result = server.getClassObject(clsid, &factory);
    return FAILED(result) ? result : createAndRelease(factory, outer, iid, object);
}

} // namespace

} // namespace Platform

extern "C" {

HRESULT CoInitializeEx(void* reserved, DWORD model) {
    if (reserved != nullptr) {
        return E_INVALIDARG;
    }
    Platform::Apartment& apartment = Platform::t_apartment;
    const DWORD threading = model & COINIT_APARTMENTTHREADED;
    if (apartment.entries != 0 && apartment.model != threading) {
        return RPC_E_CHANGED_MODE;
    }
    apartment.model = threading;
    if (++apartment.entries != 1) {
        return S_FALSE;
    }
    if (threading == COINIT_MULTITHREADED) {
        ++Platform::g_multithreadedMembers;
    }
    return S_OK;
}

void CoUninitialize() {
    Platform::Apartment& apartment = Platform::t_apartment;
    if (apartment.entries == 0 || --apartment.entries != 0) {
        return;
    }
    if (apartment.model == COINIT_MULTITHREADED) {
        --Platform::g_multithreadedMembers;
    }
}

HRESULT CoCreateInstance(REFCLSID clsid, IUnknown* outer, DWORD context, REFIID iid, void** object) {
    if (object == nullptr) {
        return E_POINTER;
    }
    *object = nullptr;
    if ((context & CLSCTX_INPROC_SERVER) == 0) {
        return E_INVALIDARG;
    }
    if (!Platform::isInApartment()) {
        return CO_E_NOTINITIALIZED;
    }
    if (const auto registration = Platform::findRegistration(clsid)) {
        return Platform::createFromRegistration(*registration, outer, iid, object);
    }
    return Platform::createFromServer(clsid, outer, iid, object);
}

HRESULT CoRegisterClassObject(REFCLSID clsid, IUnknown* classObject, DWORD context, DWORD flags,
                              DWORD* cookie) {
    if (cookie == nullptr) {
        return E_POINTER;
    }
    *cookie = 0;
    if (classObject == nullptr || (context & CLSCTX_INPROC_SERVER) == 0 || flags != REGCLS_MULTIPLEUSE) {
        return E_INVALIDARG;
    }
    auto registration = std::make_shared<const Platform::Registration>(clsid, classObject);
    Platform::Registrations& all = Platform::registrations();
    const std::lock_guard lock(all.mutex);
    *cookie = ++all.lastCookie;
    all.byCookie.emplace(*cookie, std::move(registration));
    return S_OK;
}

HRESULT CoRevokeClassObject(DWORD cookie) {
    Platform::Registrations& all = Platform::registrations();
    std::shared_ptr<const Platform::Registration> revoked; // ends after the lock
    const std::lock_guard lock(all.mutex);
    const auto entry = all.byCookie.find(cookie);
    if (entry == all.byCookie.end()) {
        return CO_E_OBJNOTREG;
    }
    revoked = std::move(entry->second);
    all.byCookie.erase(entry);
    return S_OK;
}
}
