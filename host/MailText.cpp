#include "MailText.h"

#include <algorithm>

#include "HeaderText.h"

namespace kvhost {

namespace {

constexpr std::size_t kLongestLine = 998;  // RFC 5322 2.1.1, without the line end

/// The line that the driver puts between the parts of a message. It uses this one for every message, so a text may
/// hold it; a mail program takes what comes behind for another part.
constexpr std::string_view kPartLine = "--MujheKaamBataoMaiKiaKaronMaiKisKoKhaon";

/// `text` with LF for each CR LF and each lone CR.
std::string WithPlainLineEnds(std::string_view text) {
    if (text.find('\r') == std::string_view::npos) {
        return std::string(text);
    }
    std::string plain;
    plain.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\r') {
            plain += text[i];
        } else if (i + 1 == text.size() || text[i + 1] != '\n') {
            plain += '\n';
        }
    }
    return plain;
}

/// RFC 5321 4.5.2; the server takes the dot off again.
std::string WithDotsDoubled(std::string_view text) {
    std::string doubled;
    doubled.reserve(text.size() + text.size() / 16);
    while (!text.empty()) {
        if (text.front() == '.') {
            doubled += '.';
        }
        const std::string_view line = text.substr(0, std::min(text.find('\n'), text.size() - 1) + 1);
        doubled += line;
        text.remove_prefix(line.size());
    }
    return doubled;
}

std::string Notice(const std::string& why) {
    return std::string("The text of this message is attached as ") + kAttachedTextName + ": " + why + ".\n";
}

bool IsLineEnd(char c) {
    return c == '\n' || c == '\r';
}

}  // namespace

std::optional<std::string> WhyOnlyAttached(std::string_view text) {
    if (text.find('\0') != std::string_view::npos) {
        return "it has a NUL byte";
    }
    while (!text.empty()) {
        const auto length =
            static_cast<std::size_t>(std::find_if(text.begin(), text.end(), IsLineEnd) - text.begin());
        const std::string_view line = text.substr(0, length);
        if (line.size() > kLongestLine) {
            return "it has a line of more than 998 bytes";
        }
        if (line.substr(0, kPartLine.size()) == kPartLine) {
            return "it has a line that would end this part of the mail";
        }
        text.remove_prefix(std::min(length + 1, text.size()));
    }
    return std::nullopt;
}

PreparedMail PrepareMail(std::string_view subject, std::string_view text) {
    PreparedMail mail;
    mail.subject = HeaderText(subject);
    mail.whyAttached = WhyOnlyAttached(text).value_or("");
    mail.text =
        mail.whyAttached.empty() ? WithDotsDoubled(WithPlainLineEnds(text)) : Notice(mail.whyAttached);
    return mail;
}

}  // namespace kvhost
