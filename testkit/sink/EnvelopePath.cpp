#include "EnvelopePath.h"

#include <algorithm>

#include "Text.h"

namespace kvsink {
namespace {

// RFC 5321 4.5.3.1.3: a path has at most 256 octets, its angle brackets included.
const std::size_t MAX_MAILBOX = 254;

/// Walks over a mailbox and knows which characters stand inside a quoted string.
class QuoteTracker {
public:
    /// Whether `c`, the next character, is quoted text or a quote mark.
    bool isQuoted(char c) {
        if (m_escaped) {
            m_escaped = false;
            return true;
        }
        if (c == '"') {
            m_inside = !m_inside;
            return true;
        }
        m_escaped = m_inside && c == '\\';
        return m_inside;
    }

    bool isOpen() const { return m_inside; }

private:
    bool m_inside = false;
    bool m_escaped = false;
};

/// Position of the ">" that closes `text`, which starts behind the "<"; npos when there is none.
std::size_t findClosingBracket(std::string_view text) {
    QuoteTracker quotes;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (!quotes.isQuoted(text[i]) && text[i] == '>') {
            return i;
        }
    }
    return std::string_view::npos;
}

/// RFC 5321 appendix C: a source route is accepted and ignored.
std::string_view withoutSourceRoute(std::string_view mailbox) {
    const std::size_t colon = mailbox.starts_with('@') ? mailbox.find(':') : std::string_view::npos;
    return colon == std::string_view::npos ? mailbox : mailbox.substr(colon + 1);
}

bool isAllowed(char c, bool quoted) {
    return quoted ? c >= ' ' && c < 0x7F : c > ' ' && c < 0x7F && c != '<' && c != '>';
}

bool hasOnlyAllowedCharacters(std::string_view mailbox) {
    QuoteTracker quotes;
    for (const char c : mailbox) {
        if (!isAllowed(c, quotes.isQuoted(c))) {
            return false;
        }
    }
    return !quotes.isOpen();
}

}  // namespace

std::optional<PathArgument> parsePathArgument(std::string_view keyword, std::string_view argument) {
    if (!startsWithIgnoringCase(argument, keyword)) {
        return std::nullopt;
    }
    argument.remove_prefix(keyword.size());
    argument.remove_prefix(std::min(argument.find_first_not_of(' '), argument.size()));
    if (!argument.starts_with('<')) {
        return std::nullopt;
    }
    argument.remove_prefix(1);
    const std::size_t end = findClosingBracket(argument);
    if (end == std::string_view::npos || (end + 1 < argument.size() && argument[end + 1] != ' ')) {
        return std::nullopt;
    }
    const std::string_view parameters = argument.substr(std::min(end + 2, argument.size()));
    return PathArgument{withoutSourceRoute(argument.substr(0, end)), parameters};
}

MailboxFault checkMailbox(std::string_view mailbox) {
    if (mailbox.size() > MAX_MAILBOX) {
        return MailboxFault::tooLong;
    }
    if (std::any_of(mailbox.begin(), mailbox.end(), [](char c) { return (c & 0x80) != 0; })) {
        return MailboxFault::notAscii;
    }
    const bool hasEmptyPart = mailbox.empty() || mailbox.front() == '@' || mailbox.back() == '@';
    return hasEmptyPart || !hasOnlyAllowedCharacters(mailbox) ? MailboxFault::syntax : MailboxFault::none;
}

}  // namespace kvsink
