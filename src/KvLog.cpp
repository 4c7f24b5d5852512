#include "KvLog.h"

#include <cxxabi.h>

void KvWriteLog(KvLogInterface& sink, KvLogOperation operation, const std::string& text, int line,
                const char* file) {
    try {
        (sink.*operation)(text, line, file);
    } catch (abi::__forced_unwind&) {
        throw;
    } catch (...) {
        // The host has no place for the line; the jobs are not to suffer for it.
    }
}
