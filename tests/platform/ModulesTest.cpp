#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <filesystem>
#include <string>

#include "PlatformModule.h"
#include "TestServer.h"

namespace {

using namespace std::string_literals;

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
        {"a\0b"s, L"a\0b"s},
        {"a\x80z", L"a\uFFFDz"},                            // a lone continuation
        {"a\xE2\x82", L"a\uFFFD\uFFFD"},                    // cut
        {"\xC0\xAF", L"\uFFFD\uFFFD"},                      // overlong
        {"\xED\xA0\x80", L"\uFFFD\uFFFD\uFFFD"},            // a surrogate
        {"\xF4\x90\x80\x80", L"\uFFFD\uFFFD\uFFFD\uFFFD"}}; // past the last code point
    for (const auto& [narrow, wide] : rows) {
        wchar_t widened[64];
        const int length = static_cast<int>(narrow.size());
        const int wideLength = MultiByteToWideChar(CP_ACP, 0, narrow.data(), length, widened, 64);
        EXPECT_EQ(std::wstring(widened, static_cast<std::size_t>(wideLength)), wide);
        char back[64];
        const int backLength =
            WideCharToMultiByte(CP_ACP, 0, widened, wideLength, back, 64, nullptr, nullptr);
        const bool isBroken = wide.find(L'\uFFFD') != std::wstring::npos;
        EXPECT_NE(std::string(back, static_cast<std::size_t>(backLength)) == narrow, isBroken);
    }
    wchar_t wide[4] = {};
    EXPECT_EQ(MultiByteToWideChar(CP_ACP, 0, "abc", -1, wide, 4), 4);
    EXPECT_EQ(MultiByteToWideChar(CP_ACP, 0, "abcd", -1, nullptr, 0), 5) << "the size needed";
    EXPECT_EQ(MultiByteToWideChar(CP_ACP, 0, "abcd", -1, wide, 4), 0);
    EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
}

TEST(Text, FormatsWideText) {
    const auto formatted = [](auto... arguments) {
        wchar_t buffer[1024];
        const int length = wsprintfW(buffer, arguments...);
        return std::wstring(buffer, static_cast<std::size_t>(length));
    };
    EXPECT_EQ(formatted(L"CLSID\\%ls %s", L"{x}", L"text"), L"CLSID\\{x} text");
    EXPECT_EQ(formatted(L"%d %d", INT_MIN, INT_MAX), L"-2147483648 2147483647");
    EXPECT_EQ(formatted(L"%u %x 100%% end%", UINT_MAX, 0xBEEFU), L"4294967295 beef 100% end");
    const std::wstring tooLong(3000, L'a');
    EXPECT_EQ(formatted(L"x%ls", tooLong.c_str()), L"x" + std::wstring(1022, L'a'));
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
    for (const std::wstring& other : {form.substr(0, 37), form + L"x", form.substr(1), L"{g" + form.substr(2),
                                      L"{0123456789AB-CDEF-FEDC-BA9876543210-}"s}) {
        EXPECT_EQ(CLSIDFromString(other.c_str(), &clsid), CO_E_CLASSSTRING);
    }
}

} // namespace
