#pragma once

// Kernel objects and threads: events, worker threads, the last error and the performance counter.
//
// On Windows this is the system's own header. Elsewhere the operations below do what their namesakes do
// there. A handle is owned by whoever created it and ends with CloseHandle; closing a thread's handle does
// not end the thread. Every operation may be called from any thread.

#include "PlatformCom.h"

#ifdef _WIN32

#include <process.h>

#else

#include <cstddef>
#include <cstdint>

using HANDLE = void*;
using ULONG_PTR = std::uintptr_t;

inline constexpr DWORD INFINITE = 0xFFFFFFFF;
inline constexpr DWORD WAIT_OBJECT_0 = 0;
inline constexpr DWORD WAIT_ABANDONED = 0x80;
inline constexpr DWORD WAIT_TIMEOUT = 0x102;
inline constexpr DWORD WAIT_FAILED = 0xFFFFFFFF;
inline constexpr DWORD CREATE_SUSPENDED = 0x4;
inline constexpr DWORD STACK_SIZE_PARAM_IS_A_RESERVATION = 0x10000;
inline constexpr DWORD SECURITY_DESCRIPTOR_REVISION = 1;

inline constexpr DWORD ERROR_SUCCESS = 0;
inline constexpr DWORD ERROR_FILE_NOT_FOUND = 2;
inline constexpr DWORD ERROR_ACCESS_DENIED = 5;
inline constexpr DWORD ERROR_INVALID_HANDLE = 6;
inline constexpr DWORD ERROR_NOT_ENOUGH_MEMORY = 8;
inline constexpr DWORD ERROR_INVALID_PARAMETER = 87;
inline constexpr DWORD ERROR_INSUFFICIENT_BUFFER = 122;
inline constexpr DWORD ERROR_MOD_NOT_FOUND = 126;
inline constexpr DWORD ERROR_MORE_DATA = 234;
inline constexpr DWORD ERROR_NO_MORE_ITEMS = 259;

struct SECURITY_ATTRIBUTES {
    DWORD nLength;
    void* lpSecurityDescriptor;
    BOOL bInheritHandle;
};
static_assert(sizeof(SECURITY_ATTRIBUTES) == 24);

struct ACL;

struct SECURITY_DESCRIPTOR {
    std::uint8_t Revision;
    BOOL DaclPresent;
    BOOL DaclDefaulted;
    ACL* Dacl;
};

union LARGE_INTEGER {
    std::int64_t QuadPart;
};

extern "C" {

// The last error of the calling thread; set by an operation that fails.
DWORD GetLastError();
void SetLastError(DWORD error);

// Creates an unnamed event; null on failure. `attributes` is accepted and has no effect here, `name` must be
// null.
HANDLE CreateEventA(SECURITY_ATTRIBUTES* attributes, BOOL manualReset, BOOL initialState, const char* name);

// Zero on failure (the handle is null or no event).
BOOL SetEvent(HANDLE event);
BOOL ResetEvent(HANDLE event);

// Waits until the object is signalled: an event that is set (an automatic-reset one is reset by the wait), a
// thread whose routine has returned. WAIT_OBJECT_0, WAIT_TIMEOUT, or WAIT_FAILED for a null handle.
DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds);

// Zero on failure.
BOOL CloseHandle(HANDLE handle);

// Describe who may use an object. Here they only fill the record, since nothing is shared between processes.
BOOL InitializeSecurityDescriptor(SECURITY_DESCRIPTOR* descriptor, DWORD revision);
BOOL SetSecurityDescriptorDacl(SECURITY_DESCRIPTOR* descriptor, BOOL present, ACL* dacl, BOOL defaulted);

// Starts a thread and stores its identifier before the routine runs; 0 on failure. `flags`: CREATE_SUSPENDED,
// STACK_SIZE_PARAM_IS_A_RESERVATION. `stackSize` 0 takes the process default; sizes below what the system
// needs are raised to it.
std::uintptr_t _beginthreadex(void* security, unsigned stackSize, unsigned (*routine)(void*), void* context,
                              unsigned flags, unsigned* threadId);

// Lets a suspended thread run. Returns the suspend count before the call, or 0xFFFFFFFF on failure.
DWORD ResumeThread(HANDLE thread);

DWORD GetCurrentThreadId();

// Raises a software exception. Here one is known: the debugger's thread-naming exception (0x406D1388, three
// arguments: type 0x1000, address of the name, thread identifier) names the thread, cut to what the system
// keeps (15 characters). Every other one is ignored.
void RaiseException(DWORD code, DWORD flags, DWORD argumentCount, const ULONG_PTR* arguments);

// A monotonic counter and its ticks per second; never 0.
BOOL QueryPerformanceCounter(LARGE_INTEGER* counter);
BOOL QueryPerformanceFrequency(LARGE_INTEGER* frequency);
}

#endif

// RaiseException inside a handler that accepts every exception and resumes after the raise, so that without a
// debugger the raise has no effect.
void raiseGuardedException(DWORD code, DWORD flags, DWORD argumentCount, const ULONG_PTR* arguments) noexcept;
