#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace kvhost {

/// The bytes of a base64 text (RFC 4648 4, padded); blanks and line ends between the characters count for nothing.
/// Nothing for any other text.
std::optional<std::string> DecodeBase64(std::string_view text);

/// The bytes of a quoted-printable text (RFC 2045 6.7); blanks at the end of its lines are dropped. Nothing when an
/// equals sign is followed neither by two hexadecimal digits nor by the end of a line.
std::optional<std::string> DecodeQuotedPrintable(std::string_view text);

}  // namespace kvhost
