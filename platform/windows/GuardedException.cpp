#include "PlatformKernel.h"

#ifdef _MSC_VER

void raiseGuardedException(DWORD code, DWORD flags, DWORD argumentCount,
                           const ULONG_PTR* arguments) noexcept {
    __try {
        RaiseException(code, flags, argumentCount, arguments);
    } __except (EXCEPTION_EXECUTE_HANDLER) {
        // Without a debugger the raise arrives here and has no effect.
    }
}

#else

namespace {

// What the calling thread is raising; 0 outside raiseGuardedException.
thread_local DWORD t_guardedCode = 0;

LONG CALLBACK continueGuarded(EXCEPTION_POINTERS* exception) {
    const bool guarded = t_guardedCode != 0 && exception->ExceptionRecord->ExceptionCode == t_guardedCode;
    return guarded ? EXCEPTION_CONTINUE_EXECUTION : EXCEPTION_CONTINUE_SEARCH;
}

} // namespace

// This compiler has no structured handlers. A vectored one does the same for an exception that can be
// continued; one that cannot (EXCEPTION_NONCONTINUABLE) is not raised.
void raiseGuardedException(DWORD code, DWORD flags, DWORD argumentCount,
                           const ULONG_PTR* arguments) noexcept {
    if ((flags & EXCEPTION_NONCONTINUABLE) != 0) {
        return;
    }
    void* handler = AddVectoredExceptionHandler(1, continueGuarded);
    if (handler == nullptr) {
        return;
    }
    t_guardedCode = code;
    RaiseException(code, flags, argumentCount, arguments);
    t_guardedCode = 0;
    RemoveVectoredExceptionHandler(handler);
}

#endif
