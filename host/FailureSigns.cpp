#include <algorithm>
#include <cctype>
#include <optional>

#include "RetryDecision.h"
#include "VisibleText.h"

// How the class of a failure is told from its reason: the first half of RetryDecision.h.

namespace kvhost {

namespace {

using Sign = std::optional<FailureSign>;

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

/// Of a word: a letter, a digit, or a byte of a character beyond ASCII.
bool IsOfAWord(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || static_cast<unsigned char>(c) >= 0x80;
}

char Lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

std::string InLowerCase(std::string_view text) {
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(), Lower);
    return lower;
}

std::string Quoted(std::string_view text) {
    return "\"" + MakeVisible(text) + "\"";
}

// The carrier's own texts

Sign SignOfAnyPart(const std::string& reason, const std::vector<std::string>& parts, FailureClass failure) {
    for (const std::string& part : parts) {
        if (!part.empty() && reason.find(InLowerCase(part)) != std::string::npos) {
            return FailureSign{failure, "the carrier's text " + Quoted(part)};
        }
    }
    return std::nullopt;
}

Sign SignOfCarrier(const std::string& reason, const RetryPolicy& policy) {
    const Sign lasting = SignOfAnyPart(reason, policy.lasting, FailureClass::Lasting);
    return lasting ? lasting : SignOfAnyPart(reason, policy.passing, FailureClass::Passing);
}

// Codes at the beginning of a line

void ReplaceAll(std::string& text, std::string_view old, char replacement) {
    for (std::size_t at = text.find(old); at != std::string::npos; at = text.find(old, at + 1)) {
        text.replace(at, old.size(), 1, replacement);
    }
}

std::vector<std::string> Lines(std::string_view reason) {
    std::string text(reason);
    ReplaceAll(text, "<CR>", '\r');
    ReplaceAll(text, "<LF>", '\n');
    std::vector<std::string> lines;
    for (std::size_t start = 0; start < text.size();) {
        const std::size_t end = std::min(text.find_first_of("\r\n", start), text.size());
        lines.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    return lines;
}

std::string_view WithoutBlanks(std::string_view text) {
    const std::size_t first = text.find_first_not_of(" \t");
    return first == std::string_view::npos ? std::string_view() : text.substr(first);
}

std::size_t CountDigits(std::string_view text) {
    return static_cast<std::size_t>(std::find_if_not(text.begin(), text.end(), IsDigit) - text.begin());
}

/// Three digits that a blank, a hyphen or nothing follows (RFC 5321 4.2).
bool BeginsWithReplyCode(std::string_view line) {
    return CountDigits(line) == 3 && (line.size() == 3 || line[3] == ' ' || line[3] == '-');
}

/// The line behind its reply code, if it has one, without the blanks and the "#" that some servers write there.
std::string_view TextOf(std::string_view line) {
    line = WithoutBlanks(line);
    if (BeginsWithReplyCode(line)) {
        line = WithoutBlanks(line.substr(std::min<std::size_t>(4, line.size())));
    }
    return !line.empty() && line.front() == '#' ? line.substr(1) : line;
}

/// Length of the subject or detail of an enhanced code with the dot in front of it; 0 when there is none.
std::size_t DottedNumberLength(std::string_view text) {
    const std::size_t digits = text.empty() || text.front() != '.' ? 0 : CountDigits(text.substr(1));
    return digits >= 1 && digits <= 3 ? digits + 1 : 0;
}

/// The enhanced status code that `text` begins with (RFC 3463 2); empty when there is none.
std::string_view EnhancedCode(std::string_view text) {
    if (text.empty() || (text[0] != '2' && text[0] != '4' && text[0] != '5')) {
        return {};
    }
    const std::size_t subject = DottedNumberLength(text.substr(1));
    const std::size_t detail = subject == 0 ? 0 : DottedNumberLength(text.substr(1 + subject));
    const std::size_t length = 1 + subject + detail;
    const bool ends = length == text.size() || (!IsOfAWord(text[length]) && text[length] != '.') ||
                      (text[length] == '.' && (length + 1 == text.size() || text[length + 1] == ' '));
    return detail != 0 && ends ? text.substr(0, length) : std::string_view();
}

FailureClass ClassOfDigit(char digit) {
    switch (digit) {
        case '4':
            return FailureClass::Passing;
        case '5':
            return FailureClass::Lasting;
        default:
            return FailureClass::Unclear;
    }
}

Sign SignOfEnhancedCode(const std::vector<std::string>& lines) {
    for (const std::string& line : lines) {
        const std::string_view code = EnhancedCode(TextOf(line));
        if (!code.empty()) {
            return FailureSign{ClassOfDigit(code.front()), "the server's code " + std::string(code)};
        }
    }
    return std::nullopt;
}

Sign SignOfReplyCode(const std::vector<std::string>& lines) {
    for (const std::string& line : lines) {
        if (BeginsWithReplyCode(line) && (line[0] == '4' || line[0] == '5')) {
            return FailureSign{ClassOfDigit(line[0]), "the server's code " + line.substr(0, 3)};
        }
    }
    return std::nullopt;
}

// Texts of the driver

/// Beginnings of the reasons that the driver gives when it is not the server that speaks.
constexpr std::string_view kTransportTexts[] = {"Failed to create connection.",
                                                "Messenger internal error.",
                                                "Socket Read Error",
                                                "Socket Write Error",
                                                "Socket is closed",
                                                "Socket Create Failed",
                                                "Socket Unknown Type",
                                                "Socket Unknown Remote Host",
                                                "Socket Connecting Failed",
                                                "SSL Socket Read Error",
                                                "SSL Socket is closed",
                                                "SSL Write Error",
                                                "SSL creation failed.",
                                                "SSL: ",
                                                "TLS Required but not supported",
                                                "STARTTLS Failed after Must Start TLS Response"};

Sign SignOfTransport(std::string_view reason) {
    for (const std::string_view text : kTransportTexts) {
        if (reason.substr(0, text.size()) == text) {
            return FailureSign{FailureClass::Transport, "no connection, or one that broke off"};
        }
    }
    return std::nullopt;
}

// Words of servers

constexpr std::string_view kPassingWords[] = {"try again",
                                              "try later",
                                              "try back later",
                                              "retry",
                                              "temporary",
                                              "temporarily",
                                              "transient",
                                              "deferred",
                                              "greylist",
                                              "greylisted",
                                              "greylisting",
                                              "graylist",
                                              "graylisted",
                                              "graylisting",
                                              "too many connections",
                                              "too many concurrent",
                                              "too many messages",
                                              "too many recipients",
                                              "too many errors",
                                              "too busy",
                                              "rate",
                                              "rate-limited",
                                              "ratelimit",
                                              "throttled",
                                              "quota",
                                              "overquota",
                                              "mailbox full",
                                              "mailbox is full",
                                              "disk full",
                                              "insufficient storage",
                                              "exceeded storage allocation",
                                              "insufficient system storage",
                                              "insufficient system resources",
                                              "not enough space",
                                              "out of memory",
                                              "local error",
                                              "error in processing",
                                              "service not available",
                                              "service unavailable",
                                              "shutting down",
                                              "closing transmission channel",
                                              "timeout",
                                              "timed out",
                                              "mailbox busy",
                                              "mailbox locked",
                                              "resources"};

constexpr std::string_view kLastingWords[] = {"user unknown",
                                              "unknown user",
                                              "unknown recipient",
                                              "unknown local part",
                                              "unknown address",
                                              "recipient unknown",
                                              "no such user",
                                              "no such recipient",
                                              "no such mailbox",
                                              "no such address",
                                              "no such domain",
                                              "no mailbox",
                                              "no user",
                                              "user not found",
                                              "user does not exist",
                                              "user doesn't exist",
                                              "mailbox not found",
                                              "mailbox unavailable",
                                              "mailbox disabled",
                                              "mailbox name not allowed",
                                              "account disabled",
                                              "does not exist",
                                              "invalid recipient",
                                              "invalid address",
                                              "invalid mailbox",
                                              "bad recipient",
                                              "recipient rejected",
                                              "address rejected",
                                              "sender rejected",
                                              "relay denied",
                                              "relaying denied",
                                              "relay access denied",
                                              "relay not permitted",
                                              "not permitted to relay",
                                              "unable to relay",
                                              "relaying not allowed",
                                              "access denied",
                                              "user not local",
                                              "message too large",
                                              "message too big",
                                              "exceeds size limit",
                                              "authentication required",
                                              "must authenticate",
                                              "must issue a starttls",
                                              "content rejected",
                                              "rejected as spam",
                                              "blacklisted",
                                              "blocklisted",
                                              "syntax error",
                                              "malformed from email address"};

/// True when `words` stand in `text` as whole words.
bool HasWords(std::string_view text, std::string_view words) {
    for (std::size_t at = text.find(words); at != std::string_view::npos; at = text.find(words, at + 1)) {
        const std::size_t end = at + words.size();
        const bool begins = at == 0 || !IsOfAWord(text[at - 1]);
        if (begins && (end == text.size() || !IsOfAWord(text[end]))) {
            return true;
        }
    }
    return false;
}

template <std::size_t Count>
Sign SignOfWords(const std::string& reason, const std::string_view (&all)[Count], FailureClass failure) {
    for (const std::string_view words : all) {
        if (HasWords(reason, words)) {
            return FailureSign{failure, "the server's words " + Quoted(words)};
        }
    }
    return std::nullopt;
}

/// A job that is tried once too often costs little, one that is given up too early is lost: passing words come first.
Sign SignOfServer(const std::string& reason) {
    const Sign passing = SignOfWords(reason, kPassingWords, FailureClass::Passing);
    return passing ? passing : SignOfWords(reason, kLastingWords, FailureClass::Lasting);
}

}  // namespace

const char* FailureClassName(FailureClass failure) {
    switch (failure) {
        case FailureClass::Passing:
            return "passing";
        case FailureClass::Lasting:
            return "lasting";
        case FailureClass::Transport:
            return "transport";
        default:
            return "unclear";
    }
}

FailureSign JudgeFailure(std::string_view reason, const RetryPolicy& policy) {
    const std::string lower = InLowerCase(reason);
    if (const Sign sign = SignOfCarrier(lower, policy)) {
        return *sign;
    }
    const std::vector<std::string> lines = Lines(reason);
    if (const Sign sign = SignOfEnhancedCode(lines)) {
        return *sign;
    }
    if (const Sign sign = SignOfReplyCode(lines)) {
        return *sign;
    }
    if (const Sign sign = SignOfTransport(reason)) {
        return *sign;
    }
    return SignOfServer(lower).value_or(FailureSign{});
}

FailureClass ClassOf(std::string_view reason, const RetryPolicy& policy) {
    return JudgeFailure(reason, policy).failure;
}

}  // namespace kvhost
