#include <algorithm>
#include <cstring>

#include "KvString.h"
#include "KvStringCharacters.h"

namespace {

constexpr std::size_t kMostPieces = 255;

std::string WithSpacesCollapsed(std::string text) {
    const auto bothSpaces = [](char left, char right) {
        return KvstringIsSpace(left) && KvstringIsSpace(right);
    };
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
    std::string wanted = KvstringUpperCase(pattern);
    KvstringTrimRight(wanted, "");
    const std::string searched = collapseSpaces ? WithSpacesCollapsed(KvstringUpperCase(text)) : text;

    std::vector<std::string> pieces;
    KvstringTokenize(wanted, "*", pieces);
    return BeginsWithFirstPiece(searched, wanted) && ContainsInOrder(searched, pieces);
}

bool KvstrContainPattern(const std::string& text, const std::string& pattern, bool collapseSpaces) {
    return KvstrContainPattern(text.c_str(), pattern.c_str(), collapseSpaces);
}
