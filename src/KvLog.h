#pragma once

#include "KvCoreHelpers.h"
#include "KvLogInterface.h"

/// Writes one log line: `operation` of `sink` with the printf-style text that follows, the line of the call and
/// the source file name. Nothing is formatted, and no argument is evaluated, when `sink` is null.
#define KV_LOG(sink, operation, sourceFile, ...)                                    \
    do {                                                                            \
        if ((sink) != nullptr) {                                                    \
            (sink)->operation(printfToString(__VA_ARGS__), __LINE__, (sourceFile)); \
        }                                                                           \
    } while (false)
