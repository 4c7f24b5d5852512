#pragma once

#include <string>

#include "SubmissionParser.h"

namespace kvhost {

/// Makes a draft of a whole message (RFC 5322, RFC 2045): subject, recipients (those of To, Cc and Bcc, each once), text
/// and attachments. Identifier, carrier and times are left alone, and nothing is checked yet.
///
/// The first text/plain part that is no attachment is the text, in UTF-8; every other part becomes an attachment, with
/// the name that it has or one after its type. A message with HTML and without a plain text gets a text that names the
/// attachment. What cannot be read becomes a fault.
SubmissionDraft ReadMail(const std::string& message);

}  // namespace kvhost
