#include <strings.h>
#include <cstring>

#include "KvString.h"

void KvstringTokenize(const std::string& text, const std::string& delimiters, std::vector<std::string>& out) {
    out.clear();
    std::string copy = text;
    char* rest = nullptr;
    for (char* token = strtok_r(copy.data(), delimiters.c_str(), &rest); token != nullptr;
         token = strtok_r(nullptr, delimiters.c_str(), &rest)) {
        out.emplace_back(token);
    }
}

void KvstringSplitString(const std::string& text, char separator, std::vector<std::string>& out,
                         bool skipEmpty) {
    out.clear();
    std::size_t begin = 0;
    for (std::size_t end = text.find(separator); end != std::string::npos;
         end = text.find(separator, begin)) {
        if (end != begin || !skipEmpty) {
            out.push_back(text.substr(begin, end - begin));
        }
        begin = end + 1;
    }
    if (begin < text.size()) {
        out.push_back(text.substr(begin));
    }
}

char* KvstringSafeStrTok(char* text, const char* delimiters, char** rest) {
    return strtok_r(text, delimiters, rest);
}

std::string KvstringNStrTok(const std::string& text, const std::string& delimiters, unsigned int index) {
    std::vector<std::string> tokens;
    KvstringTokenize(text, delimiters, tokens);
    return index < tokens.size() ? tokens[index] : "";
}

std::string KvstringJoin(const std::vector<std::string>& parts, const std::string& separator) {
    std::string result;
    for (std::size_t i = 0; i < parts.size(); ++i) {
        result += i == 0 ? parts[i] : separator + parts[i];
    }
    return result;
}

std::vector<std::string> BuildStringVector(const char* const* texts) {
    std::vector<std::string> result;
    for (; *texts != nullptr; ++texts) {
        result.emplace_back(*texts);
    }
    return result;
}

int KvFind(std::vector<std::string> list, const char* text) {
    for (std::size_t i = list.size(); i > 0; --i) {
        if (strcasecmp(list[i - 1].c_str(), text) == 0) {
            return static_cast<int>(i - 1);
        }
    }
    return -1;
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): callers are compiled against the value.
unsigned int CountChracterBackwards(char c, std::string text, unsigned int pos) {
    if (pos >= text.size()) {
        return 0;
    }
    const std::size_t before = text.find_last_not_of(c, pos);
    return before == std::string::npos ? pos + 1 : pos - static_cast<unsigned int>(before);
}
