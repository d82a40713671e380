#include "KernelObjects.h"

#include <chrono>
#include <ctime>
#include <new>

#include "LastError.h"

namespace Platform {

namespace {

thread_local DWORD t_lastError = ERROR_SUCCESS;

class Event final : public KernelObject {
public:
    Event(bool manualReset, bool signalled) noexcept : m_manualReset(manualReset), m_signalled(signalled) {}

    void set() {
        const std::lock_guard lock(m_mutex);
        m_signalled = true;
        if (m_manualReset) {
            m_changed.notify_all();
        } else {
            m_changed.notify_one();
        }
    }

    void reset() {
        const std::lock_guard lock(m_mutex);
        m_signalled = false;
    }

private:
    bool isSignalled() const noexcept override { return m_signalled; }
    void takeSignal() noexcept override { m_signalled = m_manualReset; }

    const bool m_manualReset;
    bool m_signalled;
};

BOOL fail(DWORD error) noexcept {
    setLastError(error);
    return FALSE;
}

constexpr std::int64_t ticksPerSecond = 1'000'000'000;

} // namespace

void setLastError(DWORD error) noexcept { t_lastError = error; }

void KernelObject::addReference() noexcept { m_references.fetch_add(1, std::memory_order_relaxed); }

void KernelObject::release() noexcept {
    if (m_references.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        delete this;
    }
}

bool KernelObject::wait(DWORD milliseconds) {
    std::unique_lock lock(m_mutex);
    const auto signalled = [this] { return isSignalled(); };
    if (milliseconds == INFINITE) {
        m_changed.wait(lock, signalled);
    } else {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
        if (!m_changed.wait_until(lock, deadline, signalled)) {
            return false;
        }
    }
    takeSignal();
    return true;
}

} // namespace Platform

using Platform::Event;
using Platform::fail;
using Platform::HandleUse;
using Platform::KernelObject;

extern "C" {

DWORD GetLastError() { return Platform::t_lastError; }

void SetLastError(DWORD error) { Platform::setLastError(error); }

HANDLE CreateEventA(SECURITY_ATTRIBUTES* /*attributes*/, BOOL manualReset, BOOL initialState,
                    const char* name) {
    if (name != nullptr) {
        Platform::setLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    auto* event = new (std::nothrow) Event(manualReset != FALSE, initialState != FALSE);
    if (event == nullptr) {
        Platform::setLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    return event->handle();
}

BOOL SetEvent(HANDLE handle) {
    const HandleUse<Event> event(handle);
    if (!event) {
        return FALSE;
    }
    event->set();
    return TRUE;
}

BOOL ResetEvent(HANDLE handle) {
    const HandleUse<Event> event(handle);
    if (!event) {
        return FALSE;
    }
    event->reset();
    return TRUE;
}

DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds) {
    const HandleUse<KernelObject> object(handle);
    if (!object) {
        return WAIT_FAILED;
    }
    return object->wait(milliseconds) ? WAIT_OBJECT_0 : WAIT_TIMEOUT;
}

BOOL CloseHandle(HANDLE handle) {
    if (handle == nullptr) {
        return fail(ERROR_INVALID_HANDLE);
    }
    static_cast<KernelObject*>(handle)->release();
    return TRUE;
}

BOOL InitializeSecurityDescriptor(SECURITY_DESCRIPTOR* descriptor, DWORD revision) {
    if (descriptor == nullptr || revision != SECURITY_DESCRIPTOR_REVISION) {
        return fail(ERROR_INVALID_PARAMETER);
    }
    *descriptor = SECURITY_DESCRIPTOR{};
    descriptor->Revision = static_cast<std::uint8_t>(revision);
    return TRUE;
}

BOOL SetSecurityDescriptorDacl(SECURITY_DESCRIPTOR* descriptor, BOOL present, ACL* dacl, BOOL defaulted) {
    if (descriptor == nullptr || descriptor->Revision != SECURITY_DESCRIPTOR_REVISION) {
        return fail(ERROR_INVALID_PARAMETER);
    }
    descriptor->DaclPresent = present;
    descriptor->DaclDefaulted = defaulted;
    descriptor->Dacl = dacl;
    return TRUE;
}

BOOL QueryPerformanceCounter(LARGE_INTEGER* counter) {
    if (counter == nullptr) {
        return fail(ERROR_INVALID_PARAMETER);
    }
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    counter->QuadPart = static_cast<std::int64_t>(now.tv_sec) * Platform::ticksPerSecond + now.tv_nsec;
    return TRUE;
}

BOOL QueryPerformanceFrequency(LARGE_INTEGER* frequency) {
    if (frequency == nullptr) {
        return fail(ERROR_INVALID_PARAMETER);
    }
    frequency->QuadPart = Platform::ticksPerSecond;
    return TRUE;
}
}
