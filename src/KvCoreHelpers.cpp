#include "KvCoreHelpers.h"

#include <pthread.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <vector>

namespace {

constexpr std::size_t kFirstBufferSize = 4096;
constexpr std::size_t kRetryLimit = kFirstBufferSize + kFirstBufferSize / 2;
constexpr std::size_t kSafeTextLimit = 4090;

std::string FormatAgainWithRetryLimit(const char* format, va_list arguments) {
    std::vector<char> buffer(kRetryLimit + 1);
    if (vsnprintf(buffer.data(), kRetryLimit, format, arguments) < 1) {
        return "";
    }
    return buffer.data();
}

std::size_t WordSizedArgument(char*& args) {
    std::size_t word;
    std::memcpy(&word, args, sizeof(word));
    args += sizeof(word);
    return word;
}

bool IsFlag(char c) {
    return c != '\0' && std::strchr(" #+-0", c) != nullptr;
}

int StringArgumentLength(char*& args) {
    // NOLINTNEXTLINE(performance-no-int-to-ptr): an argument list is words; this one is a pointer.
    const auto text = reinterpret_cast<const char*>(WordSizedArgument(args));
    return text == nullptr ? 10 : static_cast<int>(std::strlen(text));
}

/// What is printable in every locale; the others are looked up.
bool IsPlain(char byte) {
    return byte >= ' ' && byte <= '~';
}

std::string SafeForm(char byte) {
    switch (byte) {
        case '\0':
            return "<NUL>";
        case '\t':
            return "<TAB>";
        case '\n':
            return "<LF>";
        case '\r':
            return "<CR>";
        case '\x1b':
            return "<ESC>";
        default:
            break;
    }
    if (std::isprint(static_cast<unsigned char>(byte)) != 0) {
        return std::string(1, byte);
    }
    char form[16];
    std::snprintf(form, sizeof(form), "<%02X>", static_cast<unsigned int>(static_cast<signed char>(byte)));
    return std::string(form).substr(0, 4);
}

}  // namespace

std::string printfToString(const char* format, ...) {
    char buffer[kFirstBufferSize];
    va_list arguments;
    va_start(arguments, format);
    va_list retryArguments;
    va_copy(retryArguments, arguments);
    const int length = vsnprintf(buffer, sizeof(buffer) - 1, format, arguments);
    va_end(arguments);

    std::string text;
    if (length < 0 || length >= static_cast<int>(sizeof(buffer) - 1)) {
        text = FormatAgainWithRetryLimit(format, retryArguments);
    } else {
        text = buffer;
    }
    va_end(retryArguments);
    return text;
}

int GetVPrintLength(const char* format, char* args) {
    int length = 1;
    for (const char* p = format; *p != '\0'; ++p) {
        if (*p != '%') {
            ++length;
            continue;
        }
        ++p;
        while (IsFlag(*p)) {
            ++p;
        }
        if (*p == '\0') {
            return length;
        }
        if (*p == '%') {
            ++length;
        } else if (std::strchr("Xcdilnopux", *p) != nullptr) {
            length += 32;
            WordSizedArgument(args);
        } else if (*p == 's') {
            length += StringArgumentLength(args);
        } else {
            length += 2;
        }
    }
    return length;
}

int KvGetVPrintLength(const char* format, char* args) {
    return GetVPrintLength(format, args);
}

std::string KvstringSafeByteString(char* data, int len) {
    std::string text;
    const char* const end = data + std::max(len, 0);
    for (const char* next = data; next != end && text.size() <= kSafeTextLimit;) {
        const auto most = std::min(end - next, static_cast<std::ptrdiff_t>(kSafeTextLimit + 1 - text.size()));
        const char* const plainEnd = std::find_if_not(next, next + most, IsPlain);
        text.append(next, plainEnd);
        next = plainEnd;
        if (next != end && text.size() <= kSafeTextLimit) {
            text += SafeForm(*next++);
        }
    }
    return text;
}

unsigned long GetMyThreadID() {
    return static_cast<unsigned long>(pthread_self());
}

void Kvsleep(int milliseconds) {
    const int seconds = milliseconds / 1000;
    if (seconds > 0) {
        sleep(static_cast<unsigned int>(seconds));
        milliseconds %= 1000;
    }
    // The rest only: usleep may refuse a second or more.
    usleep(static_cast<useconds_t>(milliseconds) * 1000);
}

void KvsleepSec(int seconds) {
    sleep(static_cast<unsigned int>(seconds));
}

unsigned long GetCurrTimeInMS() {
    timeval now{};
    if (gettimeofday(&now, nullptr) != 0) {
        return 0;
    }
    return static_cast<std::uint32_t>(static_cast<std::uint32_t>(now.tv_sec) * 1000U +
                                      static_cast<std::uint32_t>(now.tv_usec) / 1000U);
}
