#include <algorithm>
#include <cstring>

#include "KvString.h"
#include "KvStringCharacters.h"

namespace {

template <class Predicate>
std::string OnlyWhat(Predicate isKept, const std::string& text) {
    std::string result;
    std::copy_if(text.begin(), text.end(), std::back_inserter(result), isKept);
    return result;
}

}  // namespace

std::string KvstringCleanNumeric(const std::string& text) {
    return OnlyWhat([](char c) { return c >= '0' && c <= '9'; }, text);
}

void KvstringCleanText(char* text) {
    char* end =
        std::remove_if(text, text + std::strlen(text), [](char c) { return !KvstringIsPrintable(c); });
    *end = '\0';
}

std::string KvstringCleanText(const std::string& text) {
    return OnlyWhat(KvstringIsPrintable, text);
}

std::string KvstringRemoveSpaceChars(const std::string& text) {
    return OnlyWhat([](char c) { return !KvstringIsSpace(c); }, text);
}

std::string KvstringStrip(const std::string& text, const std::string& chars) {
    return OnlyWhat([&chars](char c) { return chars.find(c) == std::string::npos; }, text);
}

void KvstringChop(char* text) {
    if (*text != '\0') {
        text[std::strlen(text) - 1] = '\0';
    }
}
