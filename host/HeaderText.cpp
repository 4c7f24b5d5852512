#include "HeaderText.h"

#include <algorithm>
#include <cstdint>

namespace kvhost {

namespace {

/// What fits on the line of a field with a name of up to ten characters; MIME libraries fold longer ones at a blank
/// and replace it by a tabulator.
constexpr std::size_t kLongestPlain = 64;
/// Bytes in one encoded word: with the 12 characters around them they make a word of 64.
constexpr std::size_t kBytesOfAWord = 39;

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

bool IsPrintableAscii(char c) {
    return c >= 0x20 && c <= 0x7E;
}

/// Blanks at the ends get lost on the way; "=?" may begin an encoded word.
bool TravelsAsItIs(std::string_view text) {
    return text.size() <= kLongestPlain && std::all_of(text.begin(), text.end(), IsPrintableAscii) &&
           text.find("=?") == std::string_view::npos &&
           (text.empty() || (text.front() != ' ' && text.back() != ' '));
}

std::uint32_t ByteAt(std::string_view bytes, std::size_t index) {
    return index < bytes.size() ? static_cast<unsigned char>(bytes[index]) : 0;
}

/// RFC 4648 4, on one line.
std::string Base64(std::string_view bytes) {
    std::string text;
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        const std::uint32_t group =
            ByteAt(bytes, i) << 16U | ByteAt(bytes, i + 1) << 8U | ByteAt(bytes, i + 2);
        text += kAlphabet[group >> 18U & 63U];
        text += kAlphabet[group >> 12U & 63U];
        text += i + 1 < bytes.size() ? kAlphabet[group >> 6U & 63U] : '=';
        text += i + 2 < bytes.size() ? kAlphabet[group & 63U] : '=';
    }
    return text;
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
