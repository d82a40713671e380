#pragma once

// The only way to raise a CKvVaneException. Each form captures the site where it is written.

#include <cstdint>

#include "KvResultCodes.h"
#include "KvVaneException.h"
#include "PlatformCompiler.h"

// The site as three arguments: source file, function signature, line. KV_SOURCE_FILE is "<folder>/<File>",
// given to every source by the build.
#define KV_SITE KV_SOURCE_FILE, KV_FUNCTION_SIGNATURE, static_cast<std::uint32_t>(__LINE__)

// Raises `code`; the expression text is the name of the code as written.
#define KV_THROW(code)                                                                                       \
    throw CKvVaneException(KV_SOURCE_FILE, KV_FUNCTION_SIGNATURE, static_cast<std::uint32_t>(__LINE__),      \
                           #code, code)

// Evaluates `expression`, a result code, once and raises it when it is negative; the text is the
// expression's.
#define KV_THROW_IF_FAILED(expression) KV_THROW_IF_FAILED_AS(expression, #expression)

// The same for a call of the streaming SDK, whose status `map` turns into a result code; the text is the
// call's alone.
#define KV_THROW_IF_SDK_CALL_FAILED(map, call) KV_THROW_IF_FAILED_AS(map(call), #call)

#define KV_THROW_IF_FAILED_AS(expression, text)                                                              \
    do {                                                                                                     \
        if (const HRESULT kvFailure = (expression); kvFailure < 0) {                                         \
            throw CKvVaneException(KV_SOURCE_FILE, KV_FUNCTION_SIGNATURE,                                    \
                                   static_cast<std::uint32_t>(__LINE__), text, kvFailure);                   \
        }                                                                                                    \
    } while (false)
