#include <gtest/gtest.h>
#include <sys/prctl.h>

#include <algorithm>
#include <array>
#include <climits>
#include <filesystem>
#include <string>
#include <utility>

#include "TestServer.h"

namespace {

constexpr DWORD longWait = 10'000; // milliseconds

// A thread that waits for `go`, and what it sees of itself.
struct Probe {
    HANDLE running = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    HANDLE go = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    HANDLE done = CreateEventA(nullptr, TRUE, FALSE, nullptr); // the last that the thread touches here
    unsigned threadId = 0;
    char name[16] = {};
    HANDLE thread;

    explicit Probe(unsigned flags = 0)
        : thread(reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, &run, this, flags, &threadId))) {}
    ~Probe() {
        for (HANDLE handle : {running, go, done, thread}) {
            EXPECT_TRUE(CloseHandle(handle));
        }
    }

    static unsigned run(void* context) {
        auto& probe = *static_cast<Probe*>(context);
        EXPECT_EQ(GetCurrentThreadId(), probe.threadId);
        SetEvent(probe.running);
        EXPECT_EQ(WaitForSingleObject(probe.go, longWait), WAIT_OBJECT_0);
        prctl(PR_GET_NAME, probe.name);
        SetEvent(probe.done);
        return 7;
    }
};

TEST(Thread, SuspendedRunsAfterResumeAndIsSignalledWhenItsRoutineReturns) {
    const Probe probe(CREATE_SUSPENDED);
    EXPECT_EQ(WaitForSingleObject(probe.running, 20), WAIT_TIMEOUT);
    EXPECT_FALSE(SetEvent(probe.thread) || SetEvent(nullptr)) << "a thread is no event";
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
    EXPECT_EQ(ResumeThread(probe.thread), 1U);
    EXPECT_EQ(WaitForSingleObject(probe.running, longWait), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(probe.thread, 0), WAIT_TIMEOUT);
    SetEvent(probe.go);
    EXPECT_EQ(WaitForSingleObject(probe.thread, longWait), WAIT_OBJECT_0);
}

TEST(Thread, RunsOnAfterItsHandleIsClosedAndBearsWhatTheSystemKeepsOfItsName) {
    Probe probe;
    EXPECT_TRUE(CloseHandle(std::exchange(probe.thread, CreateEventA(nullptr, TRUE, FALSE, nullptr))));
    const auto nameThread = [](DWORD threadId, const char* name, DWORD type = 0x1000) {
        const std::array<ULONG_PTR, 3> arguments = {type, reinterpret_cast<ULONG_PTR>(name), threadId};
        raiseGuardedException(0x406D1388, 0, 3, arguments.data());
    };
    nameThread(probe.threadId, "Korvel CKvThread");
    nameThread(probe.threadId, "wrong type", 0x1001);
    nameThread(0x7FFFFFFE, "nobody");
    SetEvent(probe.go);
    EXPECT_EQ(WaitForSingleObject(probe.done, longWait), WAIT_OBJECT_0);
    EXPECT_STREQ(probe.name, "Korvel CKvThrea");
}

TEST(Module, IsFoundByItsHandleAndFileName) {
    const std::string path = KV_TEST_SERVER;
    HMODULE server = LoadLibraryA(path.c_str());
    const auto length = static_cast<DWORD>(path.size());
    for (const DWORD capacity : {DWORD{1}, DWORD{2}, length - 1, length, length + 1, length + 100}) {
        std::string buffer(capacity, 'x');
        SetLastError(ERROR_SUCCESS);
        EXPECT_EQ(GetModuleFileNameA(server, buffer.data(), capacity), std::min(length, capacity));
        EXPECT_EQ(GetLastError(), length < capacity ? ERROR_SUCCESS : ERROR_INSUFFICIENT_BUFFER) << capacity;
        EXPECT_EQ(buffer.substr(0, buffer.find('\0')), path.substr(0, capacity - 1));
    }
    char program[4096];
    const DWORD written = GetModuleFileNameA(nullptr, program, sizeof program);
    EXPECT_EQ(std::string(program, written), std::filesystem::read_symlink("/proc/self/exe").string());
    EXPECT_EQ(GetModuleFileNameA(&program, program, sizeof program), 0U);
    EXPECT_EQ(GetLastError(), ERROR_MOD_NOT_FOUND) << "no module";
    EXPECT_EQ(LoadLibraryA("/nonexistent/library.so"), nullptr);
    const auto module =
        reinterpret_cast<TestServerModuleFunction>(GetProcAddress(server, "testServerModule"));
    EXPECT_EQ(module(), server);
    EXPECT_EQ(GetProcAddress(server, "DllMain"), nullptr) << "hidden";
    EXPECT_EQ(GetProcAddress(server, "CoRevokeClassObject"), nullptr) << "of another module";
    EXPECT_TRUE(FreeLibrary(server));
}

TEST(Text, ConvertsBetweenNarrowAndWide) {
    const std::pair<std::string, std::wstring> rows[] = {
        {"\xC3\xA9\xE2\x82\xAC\xF0\x9F\x8E\xA5", L"\u00E9\u20AC\U0001F3A5"}, // two, three and four bytes
        {"a\x80\xE2\x82", L"a\uFFFD\uFFFD\uFFFD"},                   // a lone continuation, a cut sequence
        {"\xC0\xAF\xED\xA0\x80", L"\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD"}, // overlong, a surrogate
        {"\xF4\x90\x80\x80", L"\uFFFD\uFFFD\uFFFD\uFFFD"}};          // past the last code point
    for (const auto& [narrow, expected] : rows) {
        wchar_t wide[16];
        EXPECT_GT(MultiByteToWideChar(CP_ACP, 0, narrow.c_str(), -1, wide, 16), 0);
        EXPECT_EQ(wide, expected);
    }
    char back[10];
    EXPECT_EQ(WideCharToMultiByte(CP_ACP, 0, rows[0].second.c_str(), -1, back, 10, nullptr, nullptr), 10);
    EXPECT_EQ(back, rows[0].first);
    EXPECT_EQ(WideCharToMultiByte(CP_ACP, 0, rows[0].second.c_str(), -1, back, 9, nullptr, nullptr), 0);
}

TEST(Text, FormatsWideTextWithinItsBounds) {
    wchar_t text[1024];
    EXPECT_EQ(wsprintfW(text, L"%ls %s %d %u %x 100%% end%", L"{x}", L"y", INT_MIN, UINT_MAX, 0xBEEFU), 42);
    EXPECT_STREQ(text, L"{x} y -2147483648 4294967295 beef 100% end");
    EXPECT_EQ(wsprintfW(text, L"x%ls", std::wstring(3000, L'a').c_str()), 1023);
    EXPECT_EQ(text, L"x" + std::wstring(1022, L'a'));
}

TEST(Guid, HasABracesForm) {
    const GUID guid{0x01234567, 0x89AB, 0xCDEF, {0xFE, 0xDC, 0xBA, 0x98, 0x76, 0x54, 0x32, 0x10}};
    const std::wstring form = L"{01234567-89AB-CDEF-FEDC-BA9876543210}";
    wchar_t text[39];
    EXPECT_EQ(StringFromGUID2(guid, text, 38), 0);
    EXPECT_EQ(StringFromGUID2(guid, text, 39), 39);
    EXPECT_EQ(text, form);
    CLSID clsid{};
    EXPECT_EQ(CLSIDFromString(L"{01234567-89ab-CDEF-fedc-ba9876543210}", &clsid), S_OK);
    EXPECT_EQ(clsid, guid);
    for (const std::wstring& other :
         {form.substr(0, 37), form + L"x", form.substr(1), L"{g" + form.substr(2)}) {
        EXPECT_EQ(CLSIDFromString(other.c_str(), &clsid), CO_E_CLASSSTRING);
    }
}

} // namespace
