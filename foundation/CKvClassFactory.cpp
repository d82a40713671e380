#include "CKvClassFactory.h"

namespace {

std::atomic<std::int32_t> g_serverLocks{0};

HRESULT refuse(HRESULT result, void** ppv) noexcept {
    *ppv = nullptr;
    return result;
}

} // namespace

std::int32_t getServerLockCount() noexcept { return g_serverLocks.load(); }

CKvClassFactory::CKvClassFactory(const CKvFactoryTemplate& factoryTemplate) noexcept
    : m_template(factoryTemplate) {
    addLiveObject();
}

CKvClassFactory::~CKvClassFactory() { removeLiveObject(); }

HRESULT CKvClassFactory::QueryInterface(REFIID riid, void** ppv) {
    if (ppv == nullptr) {
        return E_POINTER;
    }
    if (riid != IID_IUnknown && riid != IID_IClassFactory) {
        return refuse(E_NOINTERFACE, ppv);
    }
    *ppv = static_cast<IClassFactory*>(this);
    AddRef();
    return S_OK;
}

ULONG CKvClassFactory::AddRef() { return static_cast<ULONG>(m_referenceCount.fetch_add(1) + 1); }

ULONG CKvClassFactory::Release() {
    const std::int32_t count = m_referenceCount.fetch_sub(1) - 1;
    if (count == 0) {
        delete this;
        return 0;
    }
    return static_cast<ULONG>(count);
}

HRESULT CKvClassFactory::CreateInstance(IUnknown* outer, REFIID riid, void** ppv) {
    if (ppv == nullptr) {
        return E_POINTER;
    }
    if (outer != nullptr && riid != IID_IUnknown) {
        return refuse(E_NOINTERFACE, ppv);
    }
    HRESULT result = S_OK;
    CKvUnknown* const object = m_template.m_creator(outer, &result);
    if (object == nullptr) {
        return refuse(result < 0 ? result : E_OUTOFMEMORY, ppv);
    }
    if (result < 0) {
        delete object;
        return refuse(result, ppv);
    }
    object->NonDelegatingAddRef();
    result = object->NonDelegatingQueryInterface(riid, ppv);
    object->NonDelegatingRelease();
    return result;
}

HRESULT CKvClassFactory::LockServer(BOOL lock) {
    g_serverLocks.fetch_add(lock != FALSE ? 1 : -1);
    return S_OK;
}
