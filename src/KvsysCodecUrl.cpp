#include <cctype>
#include <cstdio>
#include <cstring>

#include "KvsysCodec.h"
#include "KvsysCodecParts.h"

namespace {

constexpr std::size_t kEscapeLength = 3;
constexpr int kRoomForAnEscape = 4;  // with the terminator

bool IsAsciiAlphanumeric(char c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

/// The first three characters of "%" and the sign-extended value of `byte`: "%FF" for 0x80 and above.
std::string SignExtendedEscape(char byte) {
    char form[16];
    std::snprintf(form, sizeof(form), "%%%02X", static_cast<unsigned int>(static_cast<signed char>(byte)));
    return std::string(form, kEscapeLength);
}

bool IsKeptByHttpStrEncode(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || std::strchr("/_.", c) != nullptr;
}

/// What KvhttpStrEncode writes for `c`, which is not NUL.
std::string HttpForm(char c, char previous) {
    if (IsKeptByHttpStrEncode(c)) {
        return std::string(1, c);
    }
    const bool isBareLineFeed = c == '\n' && previous != '\r';
    return isBareLineFeed ? "%0D" + SignExtendedEscape(c) : SignExtendedEscape(c);
}

}  // namespace

std::string KvsysCodec::EncodeUrl(const std::string& text) {
    std::string result;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < m_isUrlSafe.size() && m_isUrlSafe[byte]) {
            result += c == ' ' ? '+' : c;
        } else {
            result += {'%', m_hex[byte >> 4], m_hex[byte & 15]};
        }
    }
    return result;
}

std::string KvsysCodec::DecodeUrl(const std::string& text) {
    std::string result;
    for (const char* p = text.c_str(); *p != '\0'; ++p) {
        if (*p != '%') {
            result += *p == '+' ? ' ' : *p;
            continue;
        }
        if (p[1] == '\0' || p[2] == '\0') {
            return "";
        }
        result += KvsysByteOfHexPair(p + 1);
        p += kEscapeLength - 1;
    }
    return result;
}

void KvsysCodec::KvhttpStrEncode(char* out, int outSize, const char* in) {
    int written = 0;
    char previous = '\0';
    for (; *in != '\0' && written + kRoomForAnEscape < outSize; previous = *in++) {
        // Two escapes, for a bare line feed, need more room than was tested: what does not fit is cut.
        const auto room = static_cast<std::size_t>(outSize - written - 1);
        const std::string form = HttpForm(*in, previous).substr(0, room / kEscapeLength * kEscapeLength);
        std::memcpy(out + written, form.c_str(), form.size() + 1);
        written += static_cast<int>(form.size());
    }
}

std::string KvsysCodec::EncodeName(const std::string& text) {
    std::string result;
    for (const char c : text) {
        result += IsAsciiAlphanumeric(c) ? std::string(1, c) : SignExtendedEscape(c);
    }
    return result;
}

std::string KvsysCodec::EncodeFileName(const std::string& text) {
    return EncodeName(text);
}

std::string KvsysCodec::DecodeName(const std::string& text) {
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%' && text.size() - i >= kEscapeLength) {
            result += KvsysByteOfHexPair(&text[i + 1]);
            i += kEscapeLength - 1;
        } else {
            result += text[i];
        }
    }
    return result;
}

std::string KvsysCodec::DecodeFileName(const std::string& text) {
    return DecodeName(text);
}
