#pragma once

// The full signature of the function in which it is written, as the compiler spells it; a literal.
#ifdef _MSC_VER
#define KV_FUNCTION_SIGNATURE __FUNCSIG__
#else
#define KV_FUNCTION_SIGNATURE static_cast<const char*>(__PRETTY_FUNCTION__)
#endif

// Marks what a shared library exports; everything else is hidden. KV_EXPORTED_CLASS also covers the table of
// virtual functions.
#ifdef _WIN32
#define KV_EXPORT __declspec(dllexport)
#else
#define KV_EXPORT __attribute__((visibility("default")))
#endif
