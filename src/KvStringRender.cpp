#include <cctype>
#include <cstdio>

#include "KvCoreHelpers.h"
#include "KvDescribe.h"
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

std::string NameOf(int c) {
    if (HasName(c)) {
        return std::string("<") + kControlNames[c] + ">";
    }
    return IsPrintableOrSpace(c) ? std::string(1, static_cast<char>(c))
                                 : KvDescribe("<%x>", static_cast<unsigned int>(c));
}

/// The only code that NameOf() may render as `name`.
int CodeThatMayBe(const std::string& name) {
    for (int code = 0; HasName(code); ++code) {
        if (NameOf(code) == name) {
            return code;
        }
    }
    if (name.size() == 1) {
        return static_cast<unsigned char>(name[0]);
    }
    unsigned int code = 0;
    std::sscanf(name.c_str(), "<%8x>", &code);
    return static_cast<int>(code);
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
    std::snprintf(name, sizeof(name), "%s", NameOf(c).c_str());
    return name;
}

int KvstringConvertStrToAscii(const std::string& name) {
    const int code = CodeThatMayBe(name);
    return NameOf(code) == name ? code : -1;
}

std::string KvstringSafeString(const std::string& text) {
    std::string copy = text;
    return KvstringSafeByteString(copy.data(), static_cast<int>(copy.size()));
}

std::string KvstringEscapePrintfString(const std::string& text) {
    return KvstringReplaceStr(text, "%", "%%");
}
