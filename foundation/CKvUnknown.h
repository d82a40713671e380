#pragma once

#include <atomic>
#include <cstdint>

#include "PlatformCom.h"

// Live objects of this module: it may be unloaded when there are none.
void addLiveObject() noexcept;
void removeLiveObject() noexcept;
[[nodiscard]] std::int32_t getLiveObjectCount() noexcept;

// The identity of an object as opposed to its owner's: laid out as an IUnknown, so that it can be handed out
// as one.
struct INonDelegatingUnknown {
    virtual HRESULT NonDelegatingQueryInterface(REFIID iid, void** object) = 0;
    virtual ULONG NonDelegatingAddRef() = 0;
    virtual ULONG NonDelegatingRelease() = 0;

protected:
    ~INonDelegatingUnknown() = default;
};

// The base of every object handed to the host: identity, reference count, aggregation. An object is born with
// count 0, its creator takes the first reference, and the release that brings the count to 0 destroys it.
class CKvUnknown : public INonDelegatingUnknown {
public:
    // `name` is for diagnostics and not kept. All public interfaces delegate to `outer`, or to this object
    // when it is null; no reference is taken on it.
    CKvUnknown(const wchar_t* name, IUnknown* outer) noexcept;
    CKvUnknown(const CKvUnknown&) = delete;
    CKvUnknown& operator=(const CKvUnknown&) = delete;

    // Answers IUnknown with this object's non-delegating part; stores null and returns E_NOINTERFACE for
    // anything else. Returns E_POINTER for a null out-pointer, since there is nowhere to store either.
    HRESULT NonDelegatingQueryInterface(REFIID iid, void** object) override;
    ULONG NonDelegatingAddRef() override;
    ULONG NonDelegatingRelease() override;

    virtual ~CKvUnknown();

    [[nodiscard]] IUnknown* GetOwner() const noexcept { return m_owner; }

protected:
    // Hands out one of this object's own interfaces: stores it, adds a reference through it, returns S_OK.
    static HRESULT GetInterface(IUnknown* interfacePointer, void** object);

private:
    // Called once, by the release that brings the count to 0: destroys the object, at once or when that can
    // be done.
    virtual void endLife() noexcept;

    IUnknown* m_owner;
    std::atomic<std::int32_t> m_referenceCount{0};
};

// A CKvUnknown with one public interface, whose QueryInterface, AddRef and Release go to the owner.
template <class Interface>
class TKvObject : public CKvUnknown, public Interface {
public:
    using CKvUnknown::CKvUnknown;

    HRESULT QueryInterface(REFIID iid, void** object) override {
        return GetOwner()->QueryInterface(iid, object);
    }
    ULONG AddRef() override { return GetOwner()->AddRef(); }
    ULONG Release() override { return GetOwner()->Release(); }
};
