#pragma once

// An event and a worker thread over the operating system's waitable objects. Every failure of the operating
// system throws an exception of CKvBaseException.h whose message names the class, the operation and what
// failed.

#include <array>
#include <cstdint>

#include "CKvBaseException.h"
#include "PlatformKernel.h"

class CKvSynchronizationObject {
public:
    CKvSynchronizationObject() = default;
    CKvSynchronizationObject(const CKvSynchronizationObject&) = delete;
    CKvSynchronizationObject& operator=(const CKvSynchronizationObject&) = delete;

    virtual ~CKvSynchronizationObject() = default;
    virtual bool Wait(std::uint32_t timeout) = 0;
    virtual void Release() = 0;
};

// Owns one kernel handle. Wait may be called from any thread at the same time.
class CKvHandleSyncObject : public CKvSynchronizationObject {
public:
    ~CKvHandleSyncObject() override;

    // Waits up to `timeout` milliseconds (0xFFFFFFFF: without limit): true when the object became signalled,
    // false when the time passed first.
    [[nodiscard]] bool Wait(std::uint32_t timeout) override;

    // Not a valid operation on an event or a thread: always throws.
    void Release() override;

protected:
    HANDLE m_handle = nullptr;
};

// An unnamed event, initially not signalled.
class CKvEvent : public CKvHandleSyncObject {
public:
    explicit CKvEvent(bool manualReset);

    void Set();
    void Reset();
};

// A worker thread. Create and destruction must not race with each other or with Wait. The owner makes the
// routine end before it destroys the object: the destructor waits for it without limit.
class CKvThread : public CKvHandleSyncObject {
public:
    using Routine = unsigned (*)(void* context);

    CKvThread() = default;
    ~CKvThread() override;

    // Starts `routine(context)`, once; after a failure it may be tried again. `stackSize` in bytes, 0 takes
    // the process default. `nullDaclSecurity` gives every user full access to the thread's handle. A thread
    // created suspended stays so.
    void Create(Routine routine, void* context, bool createSuspended, std::uint32_t stackSize,
                bool nullDaclSecurity);

    // Tells an attached debugger the thread's name; Create calls it.
    virtual void SetThreadName();

    // The operating system's identifier of the thread, 0 until it is started.
    [[nodiscard]] std::uint32_t getThreadId() const noexcept { return m_threadId; }

private:
    // Every worker carries the same name: nothing here has a use for another.
    std::array<char, 128> m_name{"Korvel CKvThread"};
    unsigned m_threadId = 0;
};
