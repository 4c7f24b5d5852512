// The wildcard test of the system library, against one that looks from the end: if the pieces can be found one behind
// the other at all, both find them. Input: options, pattern, text.
#include <cctype>
#include <cstring>
#include <vector>

#include "KvString.h"
#include "support/Check.h"
#include "support/Input.h"

namespace {

constexpr std::size_t kMostPieces = 255;

bool IsSpace(char c) {
    return std::isspace(static_cast<unsigned char>(c)) != 0;
}

std::string Upper(std::string text) {
    for (char& c : text) {
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    }
    return text;
}

std::string Collapsed(const std::string& text) {
    std::string collapsed;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (i == 0 || !IsSpace(text[i]) || !IsSpace(text[i - 1])) {
            collapsed += text[i];
        }
    }
    return Upper(collapsed);
}

std::vector<std::string> Pieces(const std::string& pattern) {
    std::vector<std::string> pieces(1);
    for (const char c : pattern) {
        if (c != '*') {
            pieces.back() += c;
        } else if (!pieces.back().empty()) {
            pieces.emplace_back();
        }
    }
    if (pieces.back().empty()) {
        pieces.pop_back();
    }
    pieces.resize(std::min(pieces.size(), kMostPieces));
    return pieces;
}

bool EndsInOrder(const std::string& text, const std::vector<std::string>& pieces) {
    std::size_t end = text.size();
    for (auto piece = pieces.rbegin(); piece != pieces.rend(); ++piece) {
        if (piece->size() > end) {
            return false;
        }
        const std::size_t at = text.rfind(*piece, end - piece->size());
        if (at == std::string::npos) {
            return false;
        }
        end = at;
    }
    return true;
}

bool Expected(const std::string& text, std::string pattern, bool collapses) {
    if (pattern == "*") {
        return true;
    }
    while (!pattern.empty() && IsSpace(pattern.back())) {
        pattern.pop_back();
    }
    pattern = Upper(pattern);
    const std::string searched = collapses ? Collapsed(text) : text;
    const std::string start = pattern.substr(0, pattern.find('*'));
    const bool begins = pattern.empty() ? searched.empty() : searched.compare(0, start.size(), start) == 0;
    return begins && EndsInOrder(searched, Pieces(pattern));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    kvfuzz::Input input(data, size);
    const bool collapses = input.Piece() == "c";
    const std::string pattern = input.Piece();
    const std::string text = input.Rest();
    // Both end at their first NUL.
    const bool expected = Expected(text.c_str(), pattern.c_str(), collapses);
    KV_FUZZ_CHECK(KvstrContainPattern(text, pattern, collapses) == expected);
    KV_FUZZ_CHECK(KvstrContainPattern(text.c_str(), pattern.c_str(), collapses) == expected);
    KV_FUZZ_CHECK(KvstrContainPattern(text.c_str(), nullptr, collapses));
    return 0;
}
