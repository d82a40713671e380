#include "PlatformFaults.h"

#include <dlfcn.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <mutex>
#include <optional>

#include "BriefLock.h"
#include "PlatformCompiler.h"
#include "PlatformRegistry.h"

namespace KvTest {

namespace {

struct Operation {
    Fault fault{.times = 0};
    std::uint64_t calls = 0;
};

// Usable from the first platform call on, which a static initialiser may make.
constinit BriefLock g_lock;
constinit std::array<Operation, static_cast<std::size_t>(PlatformCall::beginthreadex) + 1> g_operations{};
constinit std::atomic<bool> g_shortWaits{false};
constinit std::atomic<std::int64_t> g_stoppedAt{-1}; // below 0 while the real clock runs

Operation& operationOf(PlatformCall call) { return g_operations.at(static_cast<std::size_t>(call)); }

// The fault that this call meets.
std::optional<Fault> countCall(PlatformCall call) {
    const std::lock_guard lock(g_lock);
    Operation& operation = operationOf(call);
    ++operation.calls;
    if (operation.fault.times == 0) {
        return std::nullopt;
    }
    unsigned& left = operation.fault.after != 0 ? operation.fault.after : operation.fault.times;
    const bool meets = &left == &operation.fault.times;
    --left;
    return meets ? std::optional(operation.fault) : std::nullopt;
}

std::int64_t realCounter() {
    static const auto original =
        reinterpret_cast<BOOL (*)(LARGE_INTEGER*)>(dlsym(RTLD_NEXT, "QueryPerformanceCounter"));
    LARGE_INTEGER counter{};
    original(&counter);
    return counter.QuadPart;
}

template <PlatformCall call, typename Result, typename... Parameters>
Result pass(Result (*)(Parameters...), const char* name, std::type_identity_t<Parameters>... arguments) {
    static const auto original = reinterpret_cast<Result (*)(Parameters...)>(dlsym(RTLD_NEXT, name));
    if (const std::optional<Fault> fault = countCall(call)) {
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
    const std::lock_guard lock(g_lock);
    operationOf(call).fault = fault;
}
PlatformFault::~PlatformFault() {
    const std::lock_guard lock(g_lock);
    operationOf(m_call).fault.times = 0;
}

std::uint64_t platformCalls(PlatformCall call) {
    const std::lock_guard lock(g_lock);
    return operationOf(call).calls;
}

ShortWaits::ShortWaits() { g_shortWaits = true; }
ShortWaits::~ShortWaits() { g_shortWaits = false; }

TestClock::TestClock() { g_stoppedAt = realCounter(); }
TestClock::~TestClock() { g_stoppedAt = -1; }

void TestClock::advance(std::chrono::nanoseconds time) {
    LARGE_INTEGER frequency{};
    QueryPerformanceFrequency(&frequency);
    const auto seconds = std::chrono::floor<std::chrono::seconds>(time);
    const std::int64_t rest = (time - seconds).count() * frequency.QuadPart / std::nano::den;
    g_stoppedAt += seconds.count() * frequency.QuadPart + rest;
}

} // namespace KvTest

using KvTest::pass;
using Call = KvTest::PlatformCall;

// The program's own definitions come before those of the platform library, for every caller in the process.
extern "C" {
KV_EXPORT BOOL CloseHandle(HANDLE handle) {
    return pass<Call::CloseHandle>(&CloseHandle, "CloseHandle", handle);
}
KV_EXPORT HRESULT CoCreateInstance(REFCLSID clsid, IUnknown* outer, DWORD context, REFIID iid,
                                   void** object) {
    if (object != nullptr) {
        *object = nullptr;
    }
    return pass<Call::CoCreateInstance>(&CoCreateInstance, "CoCreateInstance", clsid, outer, context, iid,
                                        object);
}
KV_EXPORT void CoUninitialize() { pass<Call::CoUninitialize>(&CoUninitialize, "CoUninitialize"); }
KV_EXPORT HANDLE CreateEventA(SECURITY_ATTRIBUTES* attributes, BOOL manual, BOOL initial, const char* name) {
    return pass<Call::CreateEventA>(&CreateEventA, "CreateEventA", attributes, manual, initial, name);
}
KV_EXPORT LSTATUS RegCloseKey(HKEY key) { return pass<Call::RegCloseKey>(&RegCloseKey, "RegCloseKey", key); }
KV_EXPORT LSTATUS RegCreateKeyW(HKEY parent, const wchar_t* name, HKEY* key) {
    return pass<Call::RegCreateKeyW>(&RegCreateKeyW, "RegCreateKeyW", parent, name, key);
}
KV_EXPORT LSTATUS RegSetValueExW(HKEY key, const wchar_t* name, DWORD reserved, DWORD type, const BYTE* data,
                                 DWORD bytes) {
    return pass<Call::RegSetValueExW>(&RegSetValueExW, "RegSetValueExW", key, name, reserved, type, data,
                                      bytes);
}
KV_EXPORT LSTATUS RegSetValueW(HKEY key, const wchar_t* name, DWORD type, const wchar_t* text, DWORD bytes) {
    return pass<Call::RegSetValueW>(&RegSetValueW, "RegSetValueW", key, name, type, text, bytes);
}
KV_EXPORT BOOL ResetEvent(HANDLE event) { return pass<Call::ResetEvent>(&ResetEvent, "ResetEvent", event); }
KV_EXPORT BOOL SetEvent(HANDLE event) { return pass<Call::SetEvent>(&SetEvent, "SetEvent", event); }
KV_EXPORT DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds) {
    const bool isShort = KvTest::g_shortWaits && milliseconds != INFINITE;
    return pass<Call::WaitForSingleObject>(&WaitForSingleObject, "WaitForSingleObject", handle,
                                           isShort ? std::min<DWORD>(milliseconds, 1) : milliseconds);
}
KV_EXPORT std::uintptr_t _beginthreadex(void* security, unsigned stackSize, unsigned (*routine)(void*),
                                        void* context, unsigned flags, unsigned* threadId) {
    return pass<Call::beginthreadex>(&_beginthreadex, "_beginthreadex", security, stackSize, routine, context,
                                     flags, threadId);
}
KV_EXPORT BOOL QueryPerformanceCounter(LARGE_INTEGER* counter) {
    const std::int64_t stoppedAt = KvTest::g_stoppedAt;
    counter->QuadPart = stoppedAt >= 0 ? stoppedAt : KvTest::realCounter();
    return TRUE;
}
}
