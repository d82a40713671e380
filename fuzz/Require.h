#pragma once

#include <cstdio>
#include <cstdlib>

// What must hold for any input; ends the fuzz target otherwise.
#define KV_REQUIRE(condition)                                                                                \
    do {                                                                                                     \
        if (!(condition)) {                                                                                  \
            std::fprintf(stderr, "%s:%d: %s\n", __FILE__, __LINE__, #condition);                             \
            std::abort();                                                                                    \
        }                                                                                                    \
    } while (false)
