#pragma once

#include <strings.h>

#include <string_view>

namespace kvsink {

/// Comparison that ignores the case of ASCII letters.
inline bool equalsIgnoringCase(std::string_view left, std::string_view right) {
    return left.size() == right.size() && ::strncasecmp(left.data(), right.data(), left.size()) == 0;
}

inline bool startsWithIgnoringCase(std::string_view text, std::string_view prefix) {
    return text.size() >= prefix.size() && equalsIgnoringCase(text.substr(0, prefix.size()), prefix);
}

/// Removes and returns what stands before the first space of `rest`; the space goes too.
inline std::string_view takeWord(std::string_view& rest) {
    const std::size_t space = rest.find(' ');
    const std::string_view word = rest.substr(0, space);
    rest.remove_prefix(space == std::string_view::npos ? rest.size() : space + 1);
    return word;
}

}  // namespace kvsink
