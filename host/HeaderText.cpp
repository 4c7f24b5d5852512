#include "HeaderText.h"

#include <algorithm>

#include "Base64.h"

namespace kvhost {

namespace {

/// What fits on the line of a field with a name of up to ten characters; MIME libraries fold longer ones at a blank
/// and replace it by a tabulator.
constexpr std::size_t kLongestPlain = 64;
/// Bytes in one encoded word: with the 12 characters around them they make a word of 64.
constexpr std::size_t kBytesOfAWord = 39;

bool IsPrintableAscii(char c) {
    return c >= 0x20 && c <= 0x7E;
}

/// Blanks at the ends get lost on the way; "=?" may begin an encoded word.
bool TravelsAsItIs(std::string_view text) {
    return text.size() <= kLongestPlain && std::all_of(text.begin(), text.end(), IsPrintableAscii) &&
           text.find("=?") == std::string_view::npos &&
           (text.empty() || (text.front() != ' ' && text.back() != ' '));
}

bool ContinuesACharacter(char c) {
    return (static_cast<unsigned char>(c) & 0xC0U) == 0x80U;
}

/// How much of `text` the next word takes: up to a character's beginning, as far as there is one near.
std::size_t LengthOfNextWord(std::string_view text) {
    if (text.size() <= kBytesOfAWord) {
        return text.size();
    }
    std::size_t length = kBytesOfAWord;
    while (length > kBytesOfAWord - 3 && ContinuesACharacter(text[length])) {
        --length;
    }
    return ContinuesACharacter(text[length]) ? kBytesOfAWord : length;
}

}  // namespace

std::string HeaderText(std::string_view text) {
    if (TravelsAsItIs(text)) {
        return std::string(text);
    }
    std::string words;
    while (!text.empty()) {
        const std::size_t length = LengthOfNextWord(text);
        words += (words.empty() ? "=?UTF-8?B?" : " =?UTF-8?B?") + Base64(text.substr(0, length)) + "?=";
        text.remove_prefix(length);
    }
    return words;
}

}  // namespace kvhost
