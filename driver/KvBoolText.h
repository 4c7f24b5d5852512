#pragma once

/// How the framework's "Leaving ..." lines show a result.
inline const char* KvBoolText(bool result) {
    return result ? "TRUE" : "FALSE";
}
inline const char* KvObjectText(const void* object) {
    return object != nullptr ? "OBJECT" : "NULL";
}
