#include <gtest/gtest.h>

#include <climits>
#include <string>

#include "PlatformModule.h"

namespace {

using namespace std::string_literals;

struct Conversion {
    const char* name;
    std::string narrow;
    std::wstring wide;
    bool isReversible;
};

const Conversion conversions[] = {
    {"ASCII", "/usr/lib/module.so", L"/usr/lib/module.so", true},
    {"two, three and four bytes", "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x8E\xA5", L"\u00E9\u20AC\U0001F3A5", true},
    {"lone continuation", "a\x80z", L"a\uFFFDz", false},
    {"cut sequence", "a\xE2\x82", L"a\uFFFD\uFFFD", false},
    {"overlong", "\xC0\xAF", L"\uFFFD\uFFFD", false},
    {"surrogate", "\xED\xA0\x80", L"\uFFFD\uFFFD\uFFFD", false},
    {"past the last code point", "\xF4\x90\x80\x80", L"\uFFFD\uFFFD\uFFFD\uFFFD", false},
    {"terminator inside", "a\0b"s, L"a\0b"s, true},
};

TEST(Text, ConvertsBetweenNarrowAndWide) {
    for (const Conversion& row : conversions) {
        const int narrowLength = static_cast<int>(row.narrow.size());
        const int wideLength = static_cast<int>(row.wide.size());
        wchar_t wide[64];
        EXPECT_EQ(MultiByteToWideChar(CP_ACP, 0, row.narrow.data(), narrowLength, nullptr, 0), wideLength)
            << row.name;
        EXPECT_EQ(MultiByteToWideChar(CP_ACP, 0, row.narrow.data(), narrowLength, wide, 64), wideLength)
            << row.name;
        EXPECT_EQ(std::wstring(wide, row.wide.size()), row.wide) << row.name;
        if (row.isReversible) {
            char narrow[64];
            EXPECT_EQ(WideCharToMultiByte(CP_ACP, 0, wide, wideLength, narrow, 64, nullptr, nullptr),
                      narrowLength);
            EXPECT_EQ(std::string(narrow, row.narrow.size()), row.narrow) << row.name;
        }
    }
    const wchar_t outside[] = {0xD800, static_cast<wchar_t>(0x110000), 0};
    char narrow[16];
    EXPECT_EQ(WideCharToMultiByte(CP_ACP, 0, outside, -1, narrow, 16, nullptr, nullptr), 7);
    EXPECT_STREQ(narrow, "\xEF\xBF\xBD\xEF\xBF\xBD");
}

TEST(Text, ConversionTakesTheTerminatorAndRefusesWhatDoesNotFit) {
    wchar_t wide[4] = {};
    EXPECT_EQ(MultiByteToWideChar(CP_ACP, 0, "abc", -1, wide, 4), 4);
    EXPECT_STREQ(wide, L"abc");
    EXPECT_EQ(MultiByteToWideChar(CP_ACP, 0, "abcd", -1, wide, 4), 0);
    EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
    struct Row {
        UINT codePage;
        DWORD flags;
        const char* text;
        int length;
        wchar_t* wide;
        int capacity;
    };
    for (const Row& row : {Row{1252, 0, "a", -1, wide, 4}, Row{CP_ACP, 8, "a", -1, wide, 4},
                           Row{CP_ACP, 0, nullptr, -1, wide, 4}, Row{CP_ACP, 0, "a", 0, wide, 4},
                           Row{CP_ACP, 0, "a", -2, wide, 4}, Row{CP_ACP, 0, "a", -1, nullptr, 4},
                           Row{CP_ACP, 0, "a", -1, wide, -1}}) {
        SetLastError(ERROR_SUCCESS);
        EXPECT_EQ(MultiByteToWideChar(row.codePage, row.flags, row.text, row.length, row.wide, row.capacity),
                  0);
        EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    }
}

TEST(Text, FormatsWideText) {
    wchar_t buffer[1024];
    const auto formatted = [&buffer](auto... arguments) {
        const int length = wsprintfW(buffer, arguments...);
        EXPECT_EQ(static_cast<std::size_t>(length), std::wcslen(buffer));
        return std::wstring(buffer);
    };
    EXPECT_EQ(formatted(L"CLSID\\%ls", L"{x}"), L"CLSID\\{x}");
    EXPECT_EQ(formatted(L"%s", L"text"), L"text");
    EXPECT_EQ(formatted(L"%d %d", INT_MIN, INT_MAX), L"-2147483648 2147483647");
    EXPECT_EQ(formatted(L"%u %x", UINT_MAX, 0xBEEFU), L"4294967295 beef");
    EXPECT_EQ(formatted(L"100%%"), L"100%");
    EXPECT_EQ(formatted(L"end%"), L"end");
    const std::wstring tooLong(3000, L'a');
    EXPECT_EQ(formatted(L"x%ls", tooLong.c_str()), L"x" + std::wstring(1022, L'a'));
}

struct GuidCase {
    GUID guid;
    const wchar_t* text;
};

const GuidCase guids[] = {
    {GUID{0x01234567, 0x89AB, 0xCDEF, {0xFE, 0xDC, 0xBA, 0x98, 0x76, 0x54, 0x32, 0x10}},
     L"{01234567-89AB-CDEF-FEDC-BA9876543210}"},
    {IID_IUnknown, L"{00000000-0000-0000-C000-000000000046}"},
};

TEST(Guid, HasABracesForm) {
    for (const GuidCase& row : guids) {
        wchar_t text[39];
        EXPECT_EQ(StringFromGUID2(row.guid, text, 39), 39);
        EXPECT_STREQ(text, row.text);
        EXPECT_EQ(StringFromGUID2(row.guid, text, 38), 0);
        CLSID clsid{};
        EXPECT_EQ(CLSIDFromString(row.text, &clsid), S_OK);
        EXPECT_EQ(clsid, row.guid);
    }
    CLSID clsid{};
    EXPECT_EQ(CLSIDFromString(L"{01234567-89ab-cdef-fedc-ba9876543210}", &clsid), S_OK);
    EXPECT_EQ(clsid, guids[0].guid);
}

TEST(Guid, RefusesEveryOtherText) {
    for (const wchar_t* text :
         {L"", L"{", L"{01234567-89AB-CDEF-FEDC-BA9876543210", L"{01234567-89AB-CDEF-FEDC-BA9876543210}x",
          L"01234567-89AB-CDEF-FEDC-BA9876543210", L"{0123456789AB-CDEF-FEDC-BA9876543210-}",
          L"{g1234567-89AB-CDEF-FEDC-BA9876543210}"}) {
        CLSID clsid = IID_IUnknown;
        EXPECT_EQ(CLSIDFromString(text, &clsid), CO_E_CLASSSTRING) << text;
        EXPECT_EQ(clsid, CLSID{}) << text;
    }
    CLSID clsid{};
    EXPECT_EQ(CLSIDFromString(nullptr, &clsid), CO_E_CLASSSTRING);
    EXPECT_EQ(CLSIDFromString(L"{}", nullptr), E_INVALIDARG);
}

} // namespace
