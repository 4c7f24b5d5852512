#include <algorithm>
#include <cstring>

#include "KvString.h"
#include "KvStringCharacters.h"

namespace {

bool IsSpaceOrTab(char c) {
    return c == ' ' || c == '\t';
}

template <class Predicate>
void TrimRight(char* text, Predicate isTrimmed) {
    char* end = text + std::strlen(text);
    while (end > text && isTrimmed(end[-1])) {
        --end;
    }
    *end = '\0';
}

template <class Predicate>
void TrimLeft(char* text, Predicate isTrimmed) {
    const char* begin = text;
    while (*begin != '\0' && isTrimmed(*begin)) {
        ++begin;
    }
    std::memmove(text, begin, std::strlen(begin) + 1);
}

/// Whether a character belongs to `chars`; to the white space, when that is empty.
class TrimmedBy {
public:
    explicit TrimmedBy(const std::string& chars) : m_strChars(chars) {}
    bool operator()(char c) const {
        return m_strChars.empty() ? KvstringIsSpace(c) : m_strChars.find(c) != std::string::npos;
    }

private:
    const std::string& m_strChars;
};

}  // namespace

void KvstringTrimRight(char* text) {
    TrimRight(text, KvstringIsSpace);
}

void KvstringTrimLeft(char* text) {
    TrimLeft(text, KvstringIsSpace);
}

void KvstringTrim(char* text) {
    KvstringTrimRight(text);
    KvstringTrimLeft(text);
}

void KvstringTrimSpaces(char* text) {
    KvstringTrim(text);
}

void KvstringTrimSpacesAndTabs(char* text) {
    TrimRight(text, IsSpaceOrTab);
    TrimLeft(text, IsSpaceOrTab);
}

std::string KvstringTrimRight(std::string& text, const std::string& chars) {
    const auto lastKept = std::find_if_not(text.rbegin(), text.rend(), TrimmedBy(chars));
    text.erase(lastKept.base(), text.end());
    return text;
}

std::string KvstringTrimLeft(std::string& text, const std::string& chars) {
    text.erase(text.begin(), std::find_if_not(text.begin(), text.end(), TrimmedBy(chars)));
    return text;
}

std::string KvstringTrim(std::string& text, const std::string& chars) {
    KvstringTrimRight(text, chars);
    return KvstringTrimLeft(text, chars);
}
