#pragma once

#include <new>

#include "KvCoreHelpers.h"
#include "KvLogInterface.h"

/// One of the five operations of a sink.
using KvLogOperation = void (KvLogInterface::*)(const std::string& text, int line, const char* file);

/// Hands one line to the sink. A line that the sink refuses with an exception is lost, and nobody is told: whoever logs
/// is in the middle of work on jobs and connections that has to be brought to its end.
void KvWriteLog(KvLogInterface& sink, KvLogOperation operation, const std::string& text, int line,
                const char* file);

/// Writes one log line: `operation` of `sink` with the printf-style text that follows, the line of the call and
/// the source file name. Nothing is formatted, and no argument is evaluated, when `sink` is null. A line for which
/// there is no memory is left out: what the line tells of goes on.
#define KV_LOG(sink, operation, sourceFile, ...)                                                       \
    do {                                                                                               \
        if ((sink) != nullptr) {                                                                       \
            try {                                                                                      \
                KvWriteLog(*(sink), &KvLogInterface::operation, printfToString(__VA_ARGS__), __LINE__, \
                           (sourceFile));                                                              \
            } catch (const std::bad_alloc&) {                                                          \
            }                                                                                          \
        }                                                                                              \
    } while (false)
