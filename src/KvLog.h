#pragma once

#include <new>

#include "KvCoreHelpers.h"
#include "KvLogInterface.h"

/// Writes one log line: `operation` of `sink` with the printf-style text that follows, the line of the call and
/// the source file name. Nothing is formatted, and no argument is evaluated, when `sink` is null. A line for which
/// there is no memory is left out: what the line tells of goes on.
#define KV_LOG(sink, operation, sourceFile, ...)                                        \
    do {                                                                                \
        if ((sink) != nullptr) {                                                        \
            try {                                                                       \
                (sink)->operation(printfToString(__VA_ARGS__), __LINE__, (sourceFile)); \
            } catch (const std::bad_alloc&) {                                           \
            }                                                                           \
        }                                                                               \
    } while (false)
