#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace kvhost {

/// What a recipient sees the text as when it cannot be the text of a mail.
inline constexpr const char* kAttachedTextName = "message.txt";

/// Subject and text as a driver gets them so that what arrives is what was submitted. Immutable value.
///
/// A driver sends the text as it is, between the command DATA and a line of a single dot, as one part of a message of
/// several parts. A recipient gets, after his mail program has done its part:
///  - the subject character for character, of any length and with any characters, unless it is no valid UTF-8: then
///    his mail program shows what it makes of the bytes;
///  - the text byte for byte, save that each line end (CR LF, LF or a lone CR) is the one that his system uses. A line
///    of a single dot, leading dots, blanks at the ends of lines and the absence of a last line end are kept. Bytes
///    beyond ASCII travel as they are, without the name of a character set, which most mail programs take for UTF-8;
///  - a text that mail cannot carry, byte for byte with its own line ends, as an attachment named message.txt behind
///    one line of text that says so.
struct PreparedMail {
    std::string subject;  ///< one line of ASCII, with encoded words (RFC 2047) where need be
    std::string text;     ///< lines that end in LF, with one more dot in front of each leading one
    std::string
        whyAttached;  ///< not empty: the caller attaches the submitted text, unchanged, as kAttachedTextName
};

PreparedMail PrepareMail(std::string_view subject, std::string_view text);

/// Why `text` cannot be the text of a mail, such as "it has a line of more than 998 bytes"; nothing when it can.
std::optional<std::string> WhyOnlyAttached(std::string_view text);

}  // namespace kvhost
