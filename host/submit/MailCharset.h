#pragma once

#include <optional>
#include <string>

namespace kvhost {

/// `bytes` in UTF-8, of the character set of that name (any case): us-ascii, utf-8 or iso-8859-1. Text that is called
/// us-ascii and is valid UTF-8 passes as that. Nothing for another character set, and for bytes that are not of it.
std::optional<std::string> ToUtf8(const std::string& bytes, const std::string& charset);

/// What to tell when ToUtf8 gives nothing.
std::string WhyNotUtf8(const std::string& charset);

/// The text of a header field with its encoded words (RFC 2047) decoded. What is no well-formed encoded word stays as
/// it is. Throws MailFault, naming `field`, for a character set that is not known.
std::string DecodeEncodedWords(const std::string& field, const std::string& text);

}  // namespace kvhost
