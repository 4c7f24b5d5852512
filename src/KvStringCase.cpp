#include <strings.h>

#include <algorithm>
#include <cstring>
#include <iterator>

#include "KvString.h"
#include "KvStringCharacters.h"

namespace {

bool BeginsWithUpperCased(const char* text, const char* upperCased) {
    for (; *upperCased != '\0'; ++text, ++upperCased) {
        if (KvstringToUpper(*text) != *upperCased) {
            return false;
        }
    }
    return true;
}

std::string Backwards(const char* text) {
    return std::string(std::make_reverse_iterator(text + std::strlen(text)),
                       std::make_reverse_iterator(text));
}

}  // namespace

std::string KvstringUpperCase(const std::string& text) {
    std::string result = text;
    std::transform(result.begin(), result.end(), result.begin(), KvstringToUpper);
    return result;
}

std::string KvstringLowerCase(const std::string& text) {
    std::string result = text;
    std::transform(result.begin(), result.end(), result.begin(), KvstringToLower);
    return result;
}

int KvstringNoCaseCmp(const char* left, const char* right) {
    return strcasecmp(left, right);
}

int KvstringNoCaseNCmp(const char* left, const char* right, unsigned int count) {
    return strncasecmp(left, right, count);
}

int KvstringReverseNoCaseNCmp(const char* left, const char* right, unsigned int count) {
    return strncasecmp(Backwards(left).c_str(), Backwards(right).c_str(), count);
}

const char* KvstringFindNoCaseSubstring(const char* text, const char* what) {
    return KvstringFindNoCaseSubstringQuick(text, KvstringUpperCase(what).c_str());
}

const char* KvstringFindNoCaseSubstringQuick(const char* text, const char* upperCased) {
    for (;; ++text) {
        if (BeginsWithUpperCased(text, upperCased)) {
            return text;
        }
        if (*text == '\0') {
            return nullptr;
        }
    }
}
