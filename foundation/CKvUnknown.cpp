#include "CKvUnknown.h"

namespace {
std::atomic<std::int32_t> g_liveObjects{0};
} // namespace

void addLiveObject() noexcept { g_liveObjects.fetch_add(1); }

void removeLiveObject() noexcept { g_liveObjects.fetch_sub(1); }

std::int32_t getLiveObjectCount() noexcept { return g_liveObjects.load(); }

CKvUnknown::CKvUnknown(const wchar_t* /*name*/, IUnknown* outer) noexcept
    : m_owner(outer != nullptr ? outer
                               : reinterpret_cast<IUnknown*>(static_cast<INonDelegatingUnknown*>(this))) {
    addLiveObject();
}

CKvUnknown::~CKvUnknown() { removeLiveObject(); }

HRESULT CKvUnknown::NonDelegatingQueryInterface(REFIID iid, void** object) {
    if (object == nullptr) {
        return E_POINTER;
    }
    if (iid == IID_IUnknown) {
        *object = static_cast<INonDelegatingUnknown*>(this);
        NonDelegatingAddRef();
        return S_OK;
    }
    *object = nullptr;
    return E_NOINTERFACE;
}

ULONG CKvUnknown::NonDelegatingAddRef() {
    const std::int32_t count = m_referenceCount.fetch_add(1) + 1;
    return count < 1 ? 1 : static_cast<ULONG>(count);
}

ULONG CKvUnknown::NonDelegatingRelease() {
    const std::int32_t count = m_referenceCount.fetch_sub(1) - 1;
    if (count == 0) {
        // References taken and dropped while the object is being destroyed must not destroy it again.
        m_referenceCount.fetch_add(1);
        endLife();
        return 0;
    }
    return count < 1 ? 1 : static_cast<ULONG>(count);
}

void CKvUnknown::endLife() noexcept { delete this; }

HRESULT CKvUnknown::GetInterface(IUnknown* interfacePointer, void** object) {
    if (object == nullptr) {
        return E_POINTER;
    }
    *object = interfacePointer;
    interfacePointer->AddRef();
    return S_OK;
}
