#include <algorithm>
#include <cctype>
#include <cstring>

#include "KvString.h"

namespace {

constexpr std::size_t kMostPieces = 255;

bool IsSpace(char c) {
    return std::isspace(static_cast<unsigned char>(c)) != 0;
}

char ToUpper(char c) {
    return static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
}

std::string UpperCased(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), ToUpper);
    return text;
}

std::string WithSpacesCollapsed(std::string text) {
    const auto bothSpaces = [](char left, char right) { return IsSpace(left) && IsSpace(right); };
    text.erase(std::unique(text.begin(), text.end(), bothSpaces), text.end());
    return text;
}

bool BeginsWithFirstPiece(const std::string& text, const std::string& pattern) {
    if (pattern.empty()) {
        return text.empty();
    }
    return text.starts_with(pattern.substr(0, pattern.find('*')));
}

bool ContainsInOrder(const std::string& text, const std::vector<std::string>& pieces) {
    std::size_t at = 0;
    for (std::size_t i = 0; i < pieces.size() && i < kMostPieces; ++i) {
        at = text.find(pieces[i], at);
        if (at == std::string::npos) {
            return false;
        }
        at += pieces[i].size();
    }
    return true;
}

}  // namespace

bool KvstrContainPattern(const char* text, const char* pattern, bool collapseSpaces) {
    if (pattern == nullptr || std::strcmp(pattern, "*") == 0) {
        return true;
    }
    std::string wanted = UpperCased(pattern);
    KvstringTrimRight(wanted, "");
    const std::string searched = collapseSpaces ? WithSpacesCollapsed(UpperCased(text)) : text;

    std::vector<std::string> pieces;
    KvstringTokenize(wanted, "*", pieces);
    return BeginsWithFirstPiece(searched, wanted) && ContainsInOrder(searched, pieces);
}

bool KvstrContainPattern(const std::string& text, const std::string& pattern, bool collapseSpaces) {
    return KvstrContainPattern(text.c_str(), pattern.c_str(), collapseSpaces);
}
