#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace kvhost {

// Checks that the configuration and the jobs share. Each answers what is wrong, or nothing when all is well.

/// A mail address that can stand between angle brackets on an envelope line as it is: no control characters,
/// no angle brackets, and no longer than a path may be (RFC 5321 4.5.3.1.3). Its grammar is the server's
/// business.
std::optional<std::string> WhyNotAnAddress(std::string_view address);

/// One line of text: no CR, LF or NUL.
std::optional<std::string> WhyNotOneLine(std::string_view text);

/// A name or identifier: not empty and free of control characters.
std::optional<std::string> WhyNotAName(std::string_view text);

/// A message text: no NUL, which would cut it.
std::optional<std::string> WhyNotAMessageText(std::string_view text);

/// A file name that the recipient of an attachment sees as it is. A driver puts it between quotation marks into header
/// fields without any encoding, so there must be nothing in it that ends the quotation or the line, that mail programs
/// decode, drop or read in different ways: printable ASCII without a quotation mark, a backslash, a slash, the
/// beginning of an encoded word ("=?") and blanks at its ends; at most 255 bytes, and not "." or "..".
std::optional<std::string> WhyNotAnAttachmentName(std::string_view name);

/// An existing regular file that this process may read.
std::optional<std::string> WhyNotAReadableFile(const std::string& path);

/// `path` as seen from the folder of `file`; an absolute path stays as it is.
std::string ResolveBeside(const std::filesystem::path& file, const std::string& path);

}  // namespace kvhost
