#pragma once

#include <atomic>
#include <cstdint>

#include "CKvUnknown.h"

// One class that the module serves.
struct CKvFactoryTemplate {
    const wchar_t* m_displayName;
    const CLSID* m_classIdentifier;
    // Makes an object of the class, with count 0, or returns null with a code in *result.
    CKvUnknown* (*m_creator)(IUnknown* outer, HRESULT* result);
};

// Locks that hosts hold on the module, see IClassFactory::LockServer.
[[nodiscard]] std::int32_t getServerLockCount() noexcept;

// The class object of one class. Born with count 0; the release that brings the count to 0 destroys it. The
// count is atomic: the classes are registered for use from any thread.
class CKvClassFactory final : public IClassFactory {
public:
    // `factoryTemplate` outlives the factory.
    explicit CKvClassFactory(const CKvFactoryTemplate& factoryTemplate) noexcept;
    ~CKvClassFactory();
    CKvClassFactory(const CKvClassFactory&) = delete;
    CKvClassFactory& operator=(const CKvClassFactory&) = delete;

    HRESULT QueryInterface(REFIID riid, void** ppv) override;
    ULONG AddRef() override;
    ULONG Release() override;
    HRESULT CreateInstance(IUnknown* outer, REFIID riid, void** ppv) override;
    HRESULT LockServer(BOOL lock) override;

private:
    const CKvFactoryTemplate& m_template;
    std::atomic<std::int32_t> m_referenceCount{0};
};
