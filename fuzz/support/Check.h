#pragma once

#include <cstdio>
#include <cstdlib>

/// Ends the process when `condition`, a property that holds for every input, does not hold. The fuzzer and the run over
/// the corpus both take that for a crash and keep the input.
#define KV_FUZZ_CHECK(condition)                                                                             \
    do {                                                                                                     \
        if (!(condition)) {                                                                                  \
            std::fprintf(stderr, "%s:%d: the property does not hold: %s\n", __FILE__, __LINE__, #condition); \
            std::abort();                                                                                    \
        }                                                                                                    \
    } while (false)
