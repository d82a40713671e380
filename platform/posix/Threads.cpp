#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <new>

#include "KernelObjects.h"
#include "LastError.h"

namespace Platform {

namespace {

using ThreadRoutine = unsigned (*)(void*);

// Less than this leaves no room for thread-local data and the C library's own frames.
constexpr std::size_t smallestStack = 131'072;

class Thread final : public KernelObject {
public:
    Thread(ThreadRoutine routine, void* context, bool suspended, unsigned* threadId) noexcept
        : m_routine(routine), m_context(context), m_threadId(threadId), m_suspendCount(suspended ? 1 : 0) {}

    // Starts the thread and returns when its identifier is known; a platform error code.
    DWORD start(std::size_t stackSize);

    // The suspend count before the call.
    DWORD resume();

private:
    static void* enter(void* thread);
    void run();
    bool isSignalled() const noexcept override { return m_finished; }

    const ThreadRoutine m_routine;
    void* const m_context;
    unsigned* const m_threadId;
    DWORD m_suspendCount;
    bool m_started = false;
    bool m_finished = false;
};

DWORD Thread::start(std::size_t stackSize) {
    pthread_attr_t attributes;
    if (pthread_attr_init(&attributes) != 0) {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    int error = 0;
    if (stackSize != 0) {
        const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
        const std::size_t whole = (std::max(stackSize, smallestStack) + page - 1) / page * page;
        error = pthread_attr_setstacksize(&attributes, whole);
    }
    if (error == 0) {
        addReference(); // the running thread's own
        pthread_t thread{};
        error = pthread_create(&thread, &attributes, &Thread::enter, this);
        if (error != 0) {
            release();
        }
    }
    pthread_attr_destroy(&attributes);
    if (error != 0) {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
    std::unique_lock lock(m_mutex);
    m_changed.wait(lock, [this] { return m_started; });
    return ERROR_SUCCESS;
}

DWORD Thread::resume() {
    const std::lock_guard lock(m_mutex);
    const DWORD before = m_suspendCount;
    if (before != 0) {
        --m_suspendCount;
        m_changed.notify_all();
    }
    return before;
}

void* Thread::enter(void* thread) {
    auto* self = static_cast<Thread*>(thread);
    self->run();
    self->release();
    return nullptr;
}

void Thread::run() {
    {
        std::unique_lock lock(m_mutex);
        if (m_threadId != nullptr) {
            *m_threadId = static_cast<unsigned>(gettid());
        }
        m_started = true;
        m_changed.notify_all();
        m_changed.wait(lock, [this] { return m_suspendCount == 0; });
    }
    m_routine(m_context);
    const std::lock_guard lock(m_mutex);
    m_finished = true;
    m_changed.notify_all();
}

// The debugger's thread-naming exception and its record.
constexpr DWORD namingException = 0x406D1388;
constexpr DWORD namingRecordType = 0x1000;
constexpr DWORD callingThread = 0xFFFFFFFF;
constexpr std::size_t longestThreadName = 15;

// Names the thread through its own file, which is gone once the thread has ended.
void nameThread(DWORD threadId, const char* name) noexcept {
    const long id = threadId == callingThread ? gettid() : static_cast<long>(threadId);
    char path[48];
    std::snprintf(path, sizeof path, "/proc/self/task/%ld/comm", id);
    const int file = open(path, O_WRONLY | O_CLOEXEC);
    if (file < 0) {
        return;
    }
    [[maybe_unused]] const ssize_t written = write(file, name, strnlen(name, longestThreadName));
    close(file);
}

} // namespace

} // namespace Platform

extern "C" {

std::uintptr_t _beginthreadex(void* /*security*/, unsigned stackSize, unsigned (*routine)(void*),
                              void* context, unsigned flags, unsigned* threadId) {
    if (routine == nullptr || (flags & ~(CREATE_SUSPENDED | STACK_SIZE_PARAM_IS_A_RESERVATION)) != 0) {
        Platform::setLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    auto* thread =
        new (std::nothrow) Platform::Thread(routine, context, (flags & CREATE_SUSPENDED) != 0, threadId);
    const DWORD error = thread == nullptr ? ERROR_NOT_ENOUGH_MEMORY : thread->start(stackSize);
    if (error != ERROR_SUCCESS) {
        if (thread != nullptr) {
            thread->release();
        }
        Platform::setLastError(error);
        return 0;
    }
    return reinterpret_cast<std::uintptr_t>(thread->handle());
}

DWORD ResumeThread(HANDLE handle) {
    const Platform::HandleUse<Platform::Thread> thread(handle);
    return thread ? thread->resume() : 0xFFFFFFFF;
}

DWORD GetCurrentThreadId() { return static_cast<DWORD>(gettid()); }

void RaiseException(DWORD code, DWORD /*flags*/, DWORD argumentCount, const ULONG_PTR* arguments) {
    if (code != Platform::namingException || argumentCount < 3 || arguments == nullptr ||
        static_cast<DWORD>(arguments[0]) != Platform::namingRecordType || arguments[1] == 0) {
        return;
    }
    Platform::nameThread(static_cast<DWORD>(arguments[2]), reinterpret_cast<const char*>(arguments[1]));
}
}

void raiseGuardedException(DWORD code, DWORD flags, DWORD argumentCount,
                           const ULONG_PTR* arguments) noexcept {
    RaiseException(code, flags, argumentCount, arguments);
}
