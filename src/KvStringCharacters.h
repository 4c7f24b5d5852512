#pragma once

#include <cctype>

// What the string functions ask about one character, of any sign.

inline bool KvstringIsSpace(char c) {
    return std::isspace(static_cast<unsigned char>(c)) != 0;
}

inline bool KvstringIsPrintable(char c) {
    return std::isprint(static_cast<unsigned char>(c)) != 0;
}

inline char KvstringToUpper(char c) {
    return static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
}

inline char KvstringToLower(char c) {
    return static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
}
