#include "Text.h"

#include <algorithm>
#include <climits>
#include <cstdarg>
#include <cstring>
#include <cwchar>

#include "LastError.h"
#include "PlatformModule.h"

namespace Platform {

namespace {

constexpr std::uint32_t replacement = 0xFFFD;
constexpr UINT codePageUtf8 = 65001;

bool isScalarValue(std::uint32_t code) noexcept {
    return code < 0xD800 || (code > 0xDFFF && code <= 0x10FFFF);
}

// Takes one code point off the front of a text that is not empty; malformed bytes are taken one by one.
wchar_t takeCodePoint(std::string_view& text) noexcept {
    static constexpr std::uint32_t smallestOfLength[] = {0, 0, 0x80, 0x800, 0x10000};
    const auto first = static_cast<unsigned char>(text.front());
    std::size_t length = 1;
    std::uint32_t code = first;
    if (first >= 0xF0 && first < 0xF8) {
        length = 4;
        code = first & 0x07U;
    } else if (first >= 0xE0 && first < 0xF0) {
        length = 3;
        code = first & 0x0FU;
    } else if (first >= 0xC0 && first < 0xE0) {
        length = 2;
        code = first & 0x1FU;
    } else if (first >= 0x80) {
        text.remove_prefix(1);
        return static_cast<wchar_t>(replacement);
    }
    bool wellFormed = length <= text.size();
    for (std::size_t i = 1; wellFormed && i < length; ++i) {
        const auto next = static_cast<unsigned char>(text[i]);
        wellFormed = (next & 0xC0U) == 0x80U;
        code = code << 6 | (next & 0x3FU);
    }
    wellFormed = wellFormed && code >= smallestOfLength[length] && isScalarValue(code);
    text.remove_prefix(wellFormed ? length : 1);
    return static_cast<wchar_t>(wellFormed ? code : replacement);
}

void appendCodePoint(std::string& text, std::uint32_t code) {
    const auto add = [&text](std::uint32_t byte) { text.push_back(static_cast<char>(byte)); };
    if (code < 0x80) {
        add(code);
    } else if (code < 0x800) {
        add(0xC0 | code >> 6);
        add(0x80 | (code & 0x3F));
    } else if (code < 0x10000) {
        add(0xE0 | code >> 12);
        add(0x80 | (code >> 6 & 0x3F));
        add(0x80 | (code & 0x3F));
    } else {
        add(0xF0 | code >> 18);
        add(0x80 | (code >> 12 & 0x3F));
        add(0x80 | (code >> 6 & 0x3F));
        add(0x80 | (code & 0x3F));
    }
}

int fail(DWORD error) noexcept {
    setLastError(error);
    return 0;
}

// What both conversions refuse.
bool isRefused(UINT codePage, DWORD flags, const void* source, int length, const void* target,
               int capacity) noexcept {
    return (codePage != CP_ACP && codePage != codePageUtf8) || flags != 0 || source == nullptr ||
           length == 0 || length < -1 || capacity < 0 || (target == nullptr && capacity != 0);
}

// Copies a converted text out, or says how long it is when the capacity is 0.
template <typename Character>
int deliver(const std::basic_string<Character>& text, Character* target, int capacity) noexcept {
    if (text.size() > INT_MAX) {
        return fail(ERROR_INVALID_PARAMETER);
    }
    const int length = static_cast<int>(text.size());
    if (capacity == 0) {
        return length;
    }
    if (length > capacity) {
        return fail(ERROR_INSUFFICIENT_BUFFER);
    }
    std::copy(text.begin(), text.end(), target);
    return length;
}

wchar_t digit(std::uint32_t value) noexcept { return L"0123456789abcdef"[value]; }

// Collects the output of wsprintfW, which ends with its terminator at 1,024 characters.
class FormatBuffer {
public:
    explicit FormatBuffer(wchar_t* buffer) noexcept : m_buffer(buffer) {}

    void add(wchar_t character) noexcept {
        if (m_length < capacity - 1) {
            m_buffer[m_length++] = character;
        }
    }

    void add(const wchar_t* text) noexcept {
        for (; *text != L'\0' && m_length < capacity - 1; ++text) {
            add(*text);
        }
    }

    void addNumber(std::uint32_t value, std::uint32_t base) noexcept {
        wchar_t digits[11];
        std::size_t at = 10;
        digits[at] = L'\0';
        do {
            digits[--at] = digit(value % base);
            value /= base;
        } while (value != 0);
        add(&digits[at]);
    }

    int finish() noexcept {
        m_buffer[m_length] = L'\0';
        return m_length;
    }

private:
    static constexpr int capacity = 1024;
    wchar_t* m_buffer;
    int m_length = 0;
};

} // namespace

std::wstring widen(std::string_view text) {
    std::wstring wide;
    wide.reserve(text.size());
    while (!text.empty()) {
        wide.push_back(takeCodePoint(text));
    }
    return wide;
}

std::string narrow(std::wstring_view text) {
    std::string bytes;
    bytes.reserve(text.size());
    for (const wchar_t character : text) {
        const std::uint32_t code = std::char_traits<wchar_t>::to_int_type(character);
        appendCodePoint(bytes, isScalarValue(code) ? code : replacement);
    }
    return bytes;
}

} // namespace Platform

extern "C" {

int MultiByteToWideChar(UINT codePage, DWORD flags, const char* text, int length, wchar_t* wide,
                        int capacity) {
    if (Platform::isRefused(codePage, flags, text, length, wide, capacity)) {
        return Platform::fail(ERROR_INVALID_PARAMETER);
    }
    const std::size_t size = length == -1 ? std::strlen(text) + 1 : static_cast<std::size_t>(length);
    return Platform::deliver(Platform::widen({text, size}), wide, capacity);
}

int WideCharToMultiByte(UINT codePage, DWORD flags, const wchar_t* wide, int length, char* text, int capacity,
                        const char* /*defaultCharacter*/, BOOL* usedDefault) {
    if (Platform::isRefused(codePage, flags, wide, length, text, capacity)) {
        return Platform::fail(ERROR_INVALID_PARAMETER);
    }
    if (usedDefault != nullptr) { // every character has a form in UTF-8
        *usedDefault = FALSE;
    }
    const std::size_t size = length == -1 ? std::wcslen(wide) + 1 : static_cast<std::size_t>(length);
    return Platform::deliver(Platform::narrow({wide, size}), text, capacity);
}

int wsprintfW(wchar_t* buffer, const wchar_t* format, ...) {
    Platform::FormatBuffer output(buffer);
    std::va_list arguments;
    va_start(arguments, format);
    for (; *format != L'\0'; ++format) {
        if (*format != L'%') {
            output.add(*format);
            continue;
        }
        ++format;
        if (*format == L'l' && format[1] == L's') {
            ++format;
        }
        if (*format == L's') {
            const auto* text = va_arg(arguments, const wchar_t*);
            output.add(text != nullptr ? text : L"(null)");
        } else if (*format == L'd') {
            const std::int32_t value = va_arg(arguments, std::int32_t);
            const auto bits = static_cast<std::uint32_t>(value);
            if (value < 0) {
                output.add(L'-');
            }
            output.addNumber(value < 0 ? 0U - bits : bits, 10);
        } else if (*format == L'u' || *format == L'x') {
            output.addNumber(va_arg(arguments, std::uint32_t), *format == L'u' ? 10 : 16);
        } else if (*format == L'\0') {
            break;
        } else { // "%%", and whatever is not known, stands for itself
            output.add(*format);
        }
    }
    va_end(arguments);
    return output.finish();
}
}
