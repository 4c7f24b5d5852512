#pragma once

#include <optional>
#include <string>

#include "SmtpServerOptions.h"

namespace kvtest {

/// RFC 4648 base64 without line breaks; absent when the text is not that.
std::optional<std::string> DecodeBase64(const std::string& text);

/// The account in a decoded AUTH PLAIN message (RFC 4616): identity NUL user NUL password; absent when the
/// text is not that.
std::optional<Account> SplitPlainMessage(const std::string& message);

}  // namespace kvtest
