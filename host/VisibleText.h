#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace kvhost {

/// `text` as one line that is safe on a terminal and in a log: control characters and bytes that are no valid
/// UTF-8 are written out, such as "<CR>", "<ESC>" or "<9B>". Printable UTF-8 stays as it is.
std::string MakeVisible(std::string_view text);

/// `text` without the CR and LF characters at its end.
std::string StripLineEnd(std::string_view text);

/// True for valid UTF-8 (RFC 3629), the empty text included.
bool IsUtf8(std::string_view text);

/// Number of code points of valid UTF-8: the width of the text on a terminal, as far as no character is wide.
std::size_t CountCodePoints(std::string_view text);

}  // namespace kvhost
