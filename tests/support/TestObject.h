#pragma once

#include <atomic>

#include "PlatformCom.h"

// A reference-counted test object: born with one reference, answers IUnknown and `iid` by its first
// interface, deletes itself when the last reference goes.
template <class Interface, class... Others>
class TestObject : public Interface, public Others... {
public:
    explicit TestObject(const IID& iid = IID_IUnknown) : m_iid(iid) {}
    virtual ~TestObject() = default;

    HRESULT QueryInterface(REFIID iid, void** object) override {
        const bool answered = iid == IID_IUnknown || iid == m_iid;
        *object = answered ? static_cast<Interface*>(this) : nullptr;
        return answered ? AddRef(), S_OK : E_NOINTERFACE;
    }
    ULONG AddRef() override { return ++m_references; }
    ULONG Release() override {
        const ULONG left = --m_references;
        if (left == 0) {
            delete this;
        }
        return left;
    }
    [[nodiscard]] ULONG references() const { return m_references; }

private:
    IID m_iid;
    std::atomic<ULONG> m_references{1};
};

// A test object that lives on the stack or in a fixture: counted, never deleted.
template <class... Interfaces>
class StaticTestObject : public Interfaces... {
public:
    virtual ~StaticTestObject() = default;

    HRESULT QueryInterface(REFIID, void** object) override {
        *object = nullptr;
        return E_NOINTERFACE;
    }
    ULONG AddRef() override { return ++m_references; }
    ULONG Release() override { return --m_references; }
    // References that others hold now; the module must never take one on a callback or a sink.
    [[nodiscard]] ULONG references() const { return m_references; }

private:
    std::atomic<ULONG> m_references{0};
};

// A class object whose objects `create` makes, with one reference; null when it cannot.
class TestClass final : public StaticTestObject<IClassFactory> {
public:
    explicit constexpr TestClass(IUnknown* (*create)()) : m_create(create) {}

    HRESULT QueryInterface(REFIID, void** object) override {
        *object = static_cast<IClassFactory*>(this);
        AddRef();
        return S_OK;
    }
    HRESULT CreateInstance(IUnknown*, REFIID iid, void** object) override {
        *object = nullptr;
        IUnknown* const created = m_create();
        if (created == nullptr) {
            return E_OUTOFMEMORY;
        }
        const HRESULT result = created->QueryInterface(iid, object);
        created->Release();
        return result;
    }
    HRESULT LockServer(BOOL) override { return S_OK; }

private:
    IUnknown* (*m_create)();
};
