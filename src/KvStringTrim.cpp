#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>

#include "KvString.h"

namespace {

bool IsSpace(char c) {
    return std::isspace(static_cast<unsigned char>(c)) != 0;
}

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
        return m_strChars.empty() ? IsSpace(c) : m_strChars.find(c) != std::string::npos;
    }

private:
    const std::string& m_strChars;
};

}  // namespace

void KvstringTrimRight(char* text) {
    TrimRight(text, IsSpace);
}

void KvstringTrimLeft(char* text) {
    TrimLeft(text, IsSpace);
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

const char* GetFileName(const char* path) {
    const char* slash = std::strrchr(path, '/');
    return slash == nullptr ? path : slash + 1;
}

void KvstringCreatePath(char* out, char* dir, char* name) {
    const std::size_t length = std::strlen(dir);
    const bool endsInSlash = length > 0 && dir[length - 1] == '/';
    std::sprintf(out, endsInSlash ? "%s%s" : "%s/%s", dir, name);
}
