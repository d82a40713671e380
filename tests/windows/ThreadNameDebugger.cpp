// Run by scripts/windows-check: runs a program as its debugger and prints the thread names that it announces.
// `kv_thread_names PROGRAM [ARGUMENTS]`; returns the program's exit code, 1 after a wrong announcement.

#include <cstdio>
#include <string>

#include "PlatformKernel.h"

namespace {

// The announced record: type and padding, the address of the name, the thread and flags.
bool print(HANDLE process, const EXCEPTION_RECORD& exception) {
    const ULONG_PTR* const words = exception.ExceptionInformation;
    char name[128] = {};
    const bool isWhole = exception.ExceptionFlags == 0 && exception.NumberParameters == 3 &&
                         words[0] == 0x1000 &&
                         ReadProcessMemory(process, reinterpret_cast<const void*>(words[1]), name,
                                           sizeof(name) - 1, nullptr) != 0 &&
                         words[2] >> 32 == 0;
    std::printf("%s \"%s\"\n", isWhole ? "thread" : "FAILED: a wrong announcement of", name);
    return isWhole;
}

} // namespace

int main(int argumentCount, char** arguments) {
    std::string command = argumentCount > 1 ? arguments[1] : "";
    for (int index = 2; index < argumentCount; ++index) {
        command += std::string(" ") + arguments[index];
    }
    STARTUPINFOA startup{};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION process{};
    CreateProcessA(nullptr, command.data(), nullptr, nullptr, TRUE, DEBUG_ONLY_THIS_PROCESS, nullptr, nullptr,
                   &startup, &process);
    bool isRight = true;
    for (DEBUG_EVENT event{}; WaitForDebugEvent(&event, 30'000) != 0;) {
        if (event.dwDebugEventCode == EXIT_PROCESS_DEBUG_EVENT) {
            return isRight ? static_cast<int>(event.u.ExitProcess.dwExitCode) : 1;
        }
        const EXCEPTION_RECORD& exception = event.u.Exception.ExceptionRecord;
        const bool isException = event.dwDebugEventCode == EXCEPTION_DEBUG_EVENT;
        if (isException && exception.ExceptionCode == 0x406D1388) {
            isRight = print(process.hProcess, exception) && isRight;
        }
        const bool isHandled = !isException || exception.ExceptionCode == EXCEPTION_BREAKPOINT;
        ContinueDebugEvent(event.dwProcessId, event.dwThreadId,
                           isHandled ? DBG_CONTINUE : DBG_EXCEPTION_NOT_HANDLED);
    }
    std::printf("FAILED: %s does not run to its end\n", command.c_str());
    return 1; // and the program ends with its debugger
}
