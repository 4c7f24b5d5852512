#include <cctype>
#include <cstdio>

#include "KvString.h"

namespace {

constexpr std::size_t kTextLimit = 4090;

std::string EscapedForm(unsigned char byte) {
    switch (byte) {
        case '\\':
            return "\\\\";
        case '\0':
            return "\\0";
        case '\t':
        case '\n':
        case '\r':
            return std::string(1, static_cast<char>(byte));
        default:
            break;
    }
    if (byte <= 127 && std::isprint(byte) != 0) {
        return std::string(1, static_cast<char>(byte));
    }
    char form[8];
    std::snprintf(form, sizeof(form), "\\%02X", static_cast<unsigned int>(byte));
    return form;
}

constexpr const char* kControlNames[] = {
    "NUL", "SOH", "STX", "ETX", "EOT", "ENQ", "ACK", "BEL", "BS",  "HT", "NL",  "VT",  "NP", "CR", "SO", "SI",
    "DLE", "DC1", "DC2", "DC3", "DC4", "NAK", "SYN", "ETB", "CAN", "EM", "SUB", "ESC", "FS", "GS", "RS", "US",
};

bool HasName(int c) {
    return c >= 0 && c < static_cast<int>(std::size(kControlNames));
}

bool IsPrintableOrSpace(int c) {
    return c >= 0 && c <= 255 && (std::isprint(c) != 0 || std::isspace(c) != 0);
}

}  // namespace

std::string KvstringEscapeString(unsigned char* data, int len) {
    std::string text;
    const unsigned char* byte = data;
    for (int i = 0; i < len && text.size() <= kTextLimit; ++i) {
        text += EscapedForm(*byte);
        if (*byte != '\\') {
            ++byte;
        }
    }
    return text;
}

const char* KvstringConvertAsciiToStr(int c) {
    static char name[256];
    if (HasName(c)) {
        std::snprintf(name, sizeof(name), "<%s>", kControlNames[c]);
    } else if (IsPrintableOrSpace(c)) {
        std::snprintf(name, sizeof(name), "%c", c);
    } else {
        std::snprintf(name, sizeof(name), "<%x>", static_cast<unsigned int>(c));
    }
    return name;
}
