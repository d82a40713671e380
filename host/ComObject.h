#pragma once

// What the host's own component objects and references are made of.

#include <atomic>
#include <utility>

#include "PlatformCom.h"

namespace KorvelVideo::Host {

// Holds one reference on a component object.
template <class Interface>
class Reference {
public:
    Reference() noexcept = default;
    // Adds a reference of its own.
    explicit Reference(Interface* object) noexcept : m_object(object) {
        if (m_object != nullptr) {
            m_object->AddRef();
        }
    }
    Reference(const Reference& other) noexcept : Reference(other.m_object) {}
    Reference(Reference&& other) noexcept : m_object(std::exchange(other.m_object, nullptr)) {}
    Reference& operator=(Reference other) noexcept {
        std::swap(m_object, other.m_object);
        return *this;
    }
    ~Reference() { reset(); }

    void reset() noexcept {
        if (Interface* object = std::exchange(m_object, nullptr); object != nullptr) {
            object->Release();
        }
    }
    // For an operation that stores an object with one reference for the caller. Drops what was held.
    [[nodiscard]] Interface** receive() noexcept {
        reset();
        return &m_object;
    }
    [[nodiscard]] void** receiveVoid() noexcept { return reinterpret_cast<void**>(receive()); }
    [[nodiscard]] Interface* get() const noexcept { return m_object; }
    Interface* operator->() const noexcept { return m_object; }
    explicit operator bool() const noexcept { return m_object != nullptr; }

private:
    Interface* m_object = nullptr;
};

// The answer of an object whose one interface, besides IUnknown, is `iid`.
template <class Interface>
HRESULT answerQuery(Interface* self, REFIID asked, REFIID iid, void** object) {
    if (object == nullptr) {
        return E_POINTER;
    }
    if (asked != IID_IUnknown && asked != iid) {
        *object = nullptr;
        return E_NOINTERFACE;
    }
    self->AddRef();
    *object = self;
    return S_OK;
}

// An object that ends with its last reference; born with one.
template <class Interface>
class CountedObject : public Interface {
public:
    CountedObject(const CountedObject&) = delete;
    CountedObject& operator=(const CountedObject&) = delete;

    HRESULT QueryInterface(REFIID iid, void** object) override {
        return answerQuery<Interface>(this, iid, m_iid, object);
    }
    ULONG AddRef() override { return ++m_references; }
    ULONG Release() override {
        const ULONG left = --m_references;
        if (left == 0) {
            delete this;
        }
        return left;
    }

protected:
    explicit CountedObject(REFIID iid) noexcept : m_iid(iid) {}
    virtual ~CountedObject() = default;

private:
    const IID m_iid;
    std::atomic<ULONG> m_references{1};
};

// An object whose life does not depend on references: sinks, callbacks and settings, which the module never
// counts, and class objects, which live as long as the process.
template <class Interface>
class UncountedObject : public Interface {
public:
    UncountedObject(const UncountedObject&) = delete;
    UncountedObject& operator=(const UncountedObject&) = delete;

    HRESULT QueryInterface(REFIID iid, void** object) override {
        return answerQuery<Interface>(this, iid, m_iid, object);
    }
    ULONG AddRef() override { return 1; }
    ULONG Release() override { return 1; }

protected:
    explicit UncountedObject(REFIID iid = IID_IUnknown) noexcept : m_iid(iid) {}
    ~UncountedObject() = default;

private:
    const IID m_iid;
};

// A class object: makes objects of one class by calling a function.
class ClassObject final : public UncountedObject<IClassFactory> {
public:
    using Creator = HRESULT (*)(REFIID iid, void** object);
    explicit ClassObject(Creator creator) noexcept : UncountedObject(IID_IClassFactory), m_creator(creator) {}

    HRESULT CreateInstance(IUnknown* outer, REFIID iid, void** object) override {
        if (object == nullptr) {
            return E_POINTER;
        }
        *object = nullptr;
        return outer != nullptr ? CLASS_E_NOAGGREGATION : m_creator(iid, object);
    }
    HRESULT LockServer(BOOL) override { return S_OK; }

private:
    Creator m_creator;
};

} // namespace KorvelVideo::Host
