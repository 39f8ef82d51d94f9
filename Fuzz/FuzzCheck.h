#pragma once

#include <cstdio>
#include <cstdlib>

/// Ends the process, which the fuzzer reports with the input, when the condition does not hold.
#define FUZZ_CHECK(condition)                                                                   \
    do {                                                                                        \
        if (!(condition)) {                                                                     \
            std::fprintf(stderr, "%s:%d: does not hold: %s\n", __FILE__, __LINE__, #condition); \
            std::abort();                                                                       \
        }                                                                                       \
    } while (false)
