#pragma once

#include <optional>
#include <string_view>

namespace kvsink {

/// The argument of MAIL or RCPT, taken apart. Views into the command line.
struct PathArgument {
    std::string_view mailbox;     ///< without angle brackets and without a source route
    std::string_view parameters;  ///< what follows the path: "SIZE=1000 BODY=8BITMIME"
};

/// Takes "FROM:<mailbox> parameters" apart (RFC 5321 4.1.2); spaces after the colon are tolerated.
/// `keyword` is "FROM:" or "TO:". Nothing when the form is wrong.
std::optional<PathArgument> parsePathArgument(std::string_view keyword, std::string_view argument);

enum class MailboxFault { none, syntax, tooLong, notAscii };

/// What is wrong with a mailbox. A name without a domain passes: everything is local here.
MailboxFault checkMailbox(std::string_view mailbox);

}  // namespace kvsink
