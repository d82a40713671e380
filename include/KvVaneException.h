#pragma once

#include <cstddef>
#include <cstdint>

#include "PlatformCom.h"

// A failure on its way: what failed, where, and with which result. Raised inside the module, caught at its
// edges, and handed to the logger by address, which reads it as the record asserted below. Every text is a
// literal, so a copy is valid wherever and for as long as it lives.
class CKvVaneException {
public:
    CKvVaneException(const char* sourceFile, const char* function, std::uint32_t line, const char* expression,
                     HRESULT result) noexcept
        : m_sourceFile(sourceFile), m_function(function), m_line(line), m_expression(expression),
          m_result(result) {}

    // The raising source file, for example "src/NetworkStreamReceiver".
    const char* m_sourceFile;
    // The full signature of the raising function, as the compiler spells it.
    const char* m_function;
    std::uint32_t m_line;
    // The source text of the expression that failed, or the name of the code where it is raised by name.
    const char* m_expression;
    // A handler may replace it before it passes the exception on.
    HRESULT m_result;
};

static_assert(offsetof(CKvVaneException, m_sourceFile) == 0);
static_assert(offsetof(CKvVaneException, m_function) == 8);
static_assert(offsetof(CKvVaneException, m_line) == 16);
static_assert(offsetof(CKvVaneException, m_expression) == 24);
static_assert(offsetof(CKvVaneException, m_result) == 32);
static_assert(sizeof(CKvVaneException) == 40);
