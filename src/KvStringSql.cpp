#include "KvDescribe.h"
#include "KvString.h"

namespace {

constexpr const char* kMatchAnything = "%";

std::string LikeForm(char c) {
    switch (c) {
        case '\'':
            return "''";
        case '%':
        case '_':
        case '[':
        case '\\':
            return std::string("\\") + c;
        default:
            return std::string(1, c);
    }
}

}  // namespace

std::string KvstringSQLEncode(const std::string& text) {
    std::string result;
    for (const char* p = text.c_str(); *p != '\0'; ++p) {
        result.append(*p == '\'' ? 2 : 1, *p);
    }
    return result;
}

std::string KvstringSQLEncode(int value) {
    return KvDescribe("%d", value);
}

std::string KvstringSQLEncode(long value) {
    return KvDescribe("%ld", value);
}

std::string KvstringSQLEncode(unsigned long value) {
    return KvDescribe("%lu", value);
}

std::string KvstringSQLEncode(unsigned int value) {
    return KvDescribe("%u", value);
}

std::string KvstringSQLEncode(float value) {
    return KvstringSQLEncode(static_cast<double>(value));
}

std::string KvstringSQLEncode(double value) {
    return KvDescribe("%f", value);
}

std::string KvstringSQLLikeEncode(const std::string& text) {
    std::string result;
    for (const char c : text) {
        result += LikeForm(c);
    }
    return result;
}

std::string KvstringSQLFilterEncode(const std::string& text) {
    return text.empty() ? kMatchAnything : KvstringSQLEncode(text);
}

std::string KvstringSQLFilterEncode(int value) {
    return value == 0 ? kMatchAnything : KvstringSQLEncode(value);
}

std::string KvstringSQLFilterEncode(unsigned int value) {
    return value == 0 ? kMatchAnything : KvstringSQLEncode(value);
}

std::string KvstringSQLFilterEncode(unsigned long value) {
    return value == 0 ? kMatchAnything : KvstringSQLEncode(value);
}

std::string KvstringSQLFilterEncode(float value) {
    return KvstringSQLFilterEncode(static_cast<double>(value));
}

std::string KvstringSQLFilterEncode(double value) {
    return value == 0 ? kMatchAnything : KvstringSQLEncode(value);
}
