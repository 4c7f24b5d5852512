#include "KvDescribe.h"

#include <cstdarg>
#include <cstdio>

std::string KvDescribe(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    va_list measured;
    va_copy(measured, arguments);
    const int length = vsnprintf(nullptr, 0, format, measured);
    va_end(measured);

    std::string text;
    if (length > 0) {
        text.resize(static_cast<std::size_t>(length));
        vsnprintf(text.data(), text.size() + 1, format, arguments);
    }
    va_end(arguments);
    return text;
}
