#include "PlatformFaults.h"

#include <dlfcn.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <mutex>
#include <optional>

#include "PlatformCompiler.h"
#include "PlatformModule.h"
#include "PlatformRegistry.h"

namespace KvTest {

namespace {

struct Operation {
    Fault fault{.times = 0};
    unsigned failed = 0;
    std::uint64_t calls = 0;
};

// Usable from the first platform call on, which a static initialiser may make.
constinit std::mutex g_mutex;
constinit std::atomic<bool> g_shortWaits{false};
constinit std::array<Operation, static_cast<std::size_t>(PlatformCall::beginthreadex) + 1> g_operations{};

Operation& operationOf(PlatformCall call) { return g_operations.at(static_cast<std::size_t>(call)); }

// The fault that this call meets.
std::optional<Fault> countCall(PlatformCall call) {
    const std::lock_guard lock(g_mutex);
    Operation& operation = operationOf(call);
    ++operation.calls;
    if (operation.failed == operation.fault.times) {
        return std::nullopt;
    }
    if (operation.fault.after != 0) {
        --operation.fault.after;
        return std::nullopt;
    }
    ++operation.failed;
    return operation.fault;
}

DWORD allowedWait(DWORD milliseconds) {
    return g_shortWaits && milliseconds != INFINITE ? std::min<DWORD>(milliseconds, 1) : milliseconds;
}

template <PlatformCall call, typename Result, typename... Parameters>
Result pass(Result (*)(Parameters...), const char* name, std::type_identity_t<Parameters>... arguments) {
    static const auto original = reinterpret_cast<Result (*)(Parameters...)>(dlsym(RTLD_NEXT, name));
    if (const std::optional<Fault> fault = countCall(call)) {
        if (fault->lastError != 0) {
            SetLastError(fault->lastError);
        }
        if constexpr (std::is_pointer_v<Result>) {
            return reinterpret_cast<Result>(fault->result);
        } else {
            return static_cast<Result>(fault->result);
        }
    }
    return original(arguments...);
}

} // namespace

PlatformFault::PlatformFault(PlatformCall call, Fault fault) : m_call(call) {
    const std::lock_guard lock(g_mutex);
    operationOf(call).fault = fault;
    operationOf(call).failed = 0;
}

PlatformFault::~PlatformFault() {
    const std::lock_guard lock(g_mutex);
    operationOf(m_call).fault.times = operationOf(m_call).failed;
}

unsigned PlatformFault::failed() const {
    const std::lock_guard lock(g_mutex);
    return operationOf(m_call).failed;
}

ShortWaits::ShortWaits() { g_shortWaits = true; }

ShortWaits::~ShortWaits() { g_shortWaits = false; }

std::uint64_t platformCalls(PlatformCall call) {
    const std::lock_guard lock(g_mutex);
    return operationOf(call).calls;
}

} // namespace KvTest

using KvTest::pass;
using KvTest::PlatformCall;

// The program's own definitions come before those of the platform library, for every caller in the process.
extern "C" {

KV_EXPORT BOOL CloseHandle(HANDLE handle) {
    return pass<PlatformCall::CloseHandle>(&CloseHandle, "CloseHandle", handle);
}

KV_EXPORT HRESULT CoCreateInstance(REFCLSID clsid, IUnknown* outer, DWORD context, REFIID iid,
                                   void** object) {
    if (object != nullptr) {
        *object = nullptr;
    }
    return pass<PlatformCall::CoCreateInstance>(&CoCreateInstance, "CoCreateInstance", clsid, outer, context,
                                                iid, object);
}

KV_EXPORT HRESULT CoInitializeEx(void* reserved, DWORD model) {
    return pass<PlatformCall::CoInitializeEx>(&CoInitializeEx, "CoInitializeEx", reserved, model);
}

KV_EXPORT void CoUninitialize() { pass<PlatformCall::CoUninitialize>(&CoUninitialize, "CoUninitialize"); }

KV_EXPORT HANDLE CreateEventA(SECURITY_ATTRIBUTES* attributes, BOOL manual, BOOL initial, const char* name) {
    return pass<PlatformCall::CreateEventA>(&CreateEventA, "CreateEventA", attributes, manual, initial, name);
}

KV_EXPORT DWORD GetModuleFileNameA(HMODULE module, char* path, DWORD capacity) {
    return pass<PlatformCall::GetModuleFileNameA>(&GetModuleFileNameA, "GetModuleFileNameA", module, path,
                                                  capacity);
}

KV_EXPORT LSTATUS RegCloseKey(HKEY key) {
    return pass<PlatformCall::RegCloseKey>(&RegCloseKey, "RegCloseKey", key);
}

KV_EXPORT LSTATUS RegCreateKeyW(HKEY parent, const wchar_t* name, HKEY* key) {
    return pass<PlatformCall::RegCreateKeyW>(&RegCreateKeyW, "RegCreateKeyW", parent, name, key);
}

KV_EXPORT LSTATUS RegDeleteKeyW(HKEY parent, const wchar_t* name) {
    return pass<PlatformCall::RegDeleteKeyW>(&RegDeleteKeyW, "RegDeleteKeyW", parent, name);
}

KV_EXPORT LSTATUS RegSetValueExW(HKEY key, const wchar_t* name, DWORD reserved, DWORD type, const BYTE* data,
                                 DWORD bytes) {
    return pass<PlatformCall::RegSetValueExW>(&RegSetValueExW, "RegSetValueExW", key, name, reserved, type,
                                              data, bytes);
}

KV_EXPORT LSTATUS RegSetValueW(HKEY key, const wchar_t* name, DWORD type, const wchar_t* text, DWORD bytes) {
    return pass<PlatformCall::RegSetValueW>(&RegSetValueW, "RegSetValueW", key, name, type, text, bytes);
}

KV_EXPORT BOOL ResetEvent(HANDLE event) {
    return pass<PlatformCall::ResetEvent>(&ResetEvent, "ResetEvent", event);
}

KV_EXPORT BOOL SetEvent(HANDLE event) { return pass<PlatformCall::SetEvent>(&SetEvent, "SetEvent", event); }

KV_EXPORT DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds) {
    return pass<PlatformCall::WaitForSingleObject>(&WaitForSingleObject, "WaitForSingleObject", handle,
                                                   KvTest::allowedWait(milliseconds));
}

KV_EXPORT std::uintptr_t _beginthreadex(void* security, unsigned stackSize, unsigned (*routine)(void*),
                                        void* context, unsigned flags, unsigned* threadId) {
    return pass<PlatformCall::beginthreadex>(&_beginthreadex, "_beginthreadex", security, stackSize, routine,
                                             context, flags, threadId);
}
}
