#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>

#include "PlatformKernel.h"

namespace Platform {

// What a handle designates: an object that threads wait for. It lives while a handle, a running thread or an
// operation under way refers to it, so that a thread woken by an operation may close the handle at once.
class KernelObject {
public:
    KernelObject() = default;
    KernelObject(const KernelObject&) = delete;
    KernelObject& operator=(const KernelObject&) = delete;

    void addReference() noexcept;
    void release() noexcept;

    // True when the object became signalled, false when the time passed first.
    bool wait(DWORD milliseconds);

    HANDLE handle() noexcept { return this; }

protected:
    virtual ~KernelObject() = default;

    std::mutex m_mutex;
    std::condition_variable m_changed;

private:
    // Both are called with the mutex held.
    virtual bool isSignalled() const noexcept = 0;
    virtual void takeSignal() noexcept {}

    std::atomic<ULONG> m_references{1};
};

// Holds a reference for the length of one operation on a handle. Empty when the handle is null or designates
// an object of another kind; the last error is then ERROR_INVALID_HANDLE.
template <typename Object>
class HandleUse {
public:
    explicit HandleUse(HANDLE handle);
    ~HandleUse() {
        if (m_object != nullptr) {
            m_object->release();
        }
    }
    HandleUse(const HandleUse&) = delete;
    HandleUse& operator=(const HandleUse&) = delete;

    explicit operator bool() const noexcept { return m_object != nullptr; }
    Object* operator->() const noexcept { return m_object; }

private:
    Object* m_object;
};

} // namespace Platform

#include "LastError.h"

template <typename Object>
Platform::HandleUse<Object>::HandleUse(HANDLE handle)
    : m_object(dynamic_cast<Object*>(static_cast<KernelObject*>(handle))) {
    if (m_object != nullptr) {
        m_object->addReference();
    } else {
        setLastError(ERROR_INVALID_HANDLE);
    }
}
