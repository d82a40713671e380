#pragma once

#include "CKvBaseException.h"

// Holds one reference to an interface (any T that derives from IUnknown) and refuses misuse by throwing
// CKvSmartPointerException. No lock: one instance must not be changed from two threads at once.
template <class T>
class TKvSmartPtr {
public:
    TKvSmartPtr() noexcept = default;

    // Adds a reference when `pointer` is not null.
    TKvSmartPtr(T* pointer) : m_pointer(pointer) { addReference(m_pointer); }
    TKvSmartPtr(const TKvSmartPtr& other) : m_pointer(other.m_pointer) { addReference(m_pointer); }

    virtual ~TKvSmartPtr() {
        if (m_pointer != nullptr) {
            m_pointer->Release();
        }
        m_pointer = nullptr;
    }

    // The held pointer, null included; no reference is added.
    virtual operator T*() const noexcept { return m_pointer; }

    virtual T& operator*() const {
        if (m_pointer == nullptr) {
            throw CKvSmartPointerException("TKvSmartPtr::operator* -> Internal pointer is NULL!");
        }
        return *m_pointer;
    }

    // The out-parameter of a call that stores a new reference; only while nothing is held.
    virtual T** operator&() {
        if (m_pointer != nullptr) {
            throw CKvSmartPointerException("TKvSmartPtr::operator& -> Internal pointer will be overriden!");
        }
        return &m_pointer;
    }

    virtual T* operator->() const {
        if (m_pointer == nullptr) {
            throw CKvSmartPointerException("TKvSmartPtr::operator-> -> Internal pointer is NULL!");
        }
        return m_pointer;
    }

    // The reference is added before the old one is released, so assigning the held pointer is safe.
    virtual T* operator=(T* pointer) { // NOLINT(misc-unconventional-assign-operator): its contract
        addReference(pointer);
        if (m_pointer != nullptr) {
            m_pointer->Release();
        }
        m_pointer = pointer;
        return pointer;
    }

    virtual bool operator!() const noexcept { return m_pointer == nullptr; }

    virtual bool operator==(T* pointer) const noexcept { return m_pointer == pointer; }

    // NOLINTNEXTLINE(bugprone-unhandled-self-assignment): the assignment above handles it
    TKvSmartPtr& operator=(const TKvSmartPtr& other) {
        *this = other.m_pointer;
        return *this;
    }

private:
    static void addReference(T* pointer) {
        if (pointer != nullptr) {
            pointer->AddRef();
        }
    }

    T* m_pointer = nullptr;
};
