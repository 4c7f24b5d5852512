#include "Session.h"

#include <algorithm>
#include <charconv>
#include <system_error>
#include <utility>

#include "EnvelopePath.h"
#include "Text.h"

namespace kvsink {
namespace {

// RFC 5321 4.5.3.1.4 asks for 512 octets and a little more for each extension; RFC 4954 for 12288 within
// AUTH.
const std::size_t MAX_COMMAND_LINE = 2048;
const std::size_t MAX_AUTH_LINE = 12288;
const std::size_t MAX_RECIPIENTS = 1000;
// What is kept of the buffer of a large mail for the next one.
const std::size_t MAX_KEPT_CONTENT = std::size_t{1024} * 1024;

void reply(std::string& out, std::string_view text) {
    out.append(text).append("\r\n");
}

bool isPrintable(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return c >= ' ' && c < 0x7F; });
}

std::string_view withoutTrailingSpaces(std::string_view text) {
    return text.substr(0, text.find_last_not_of(' ') + 1);
}

/// The reply to a bad mailbox of RCPT, or of MAIL; empty when it is good.
std::string_view faultOfMailbox(std::string_view mailbox, bool isSender) {
    switch (checkMailbox(mailbox)) {
        case MailboxFault::syntax:
            return isSender ? "501 5.1.7 Bad sender address" : "501 5.1.3 Bad recipient address";
        case MailboxFault::tooLong:
            return "501 5.1.3 Address too long";
        case MailboxFault::notAscii:
            return "553 5.6.7 Address must be ASCII";
        case MailboxFault::none:
            break;
    }
    return {};
}

}  // namespace

/// A verb and when it may be used.
struct Session::Command {
    std::string_view verb;
    void (Session::*handle)(std::string_view argument, std::string& out);
    bool beforeTls;      // allowed in clear where TLS is required (RFC 3207 section 4)
    bool beforeAuth;     // allowed without AUTH where that is required (RFC 4954 section 6)
    bool takesArgument;  // otherwise any argument is an error
};

const Session::Command Session::COMMANDS[] = {
    {"MAIL", &Session::onMail, false, false, true},  {"RCPT", &Session::onRcpt, false, false, true},
    {"DATA", &Session::onData, false, false, false}, {"RSET", &Session::onRset, false, true, false},
    {"NOOP", &Session::onNoop, true, true, true},    {"EHLO", &Session::onEhlo, true, true, true},
    {"HELO", &Session::onHelo, false, true, true},   {"QUIT", &Session::onQuit, true, true, false},
    {"AUTH", &Session::onAuth, false, true, true},   {"STARTTLS", &Session::onStartTls, true, true, false},
    {"VRFY", &Session::onVrfy, false, false, true},  {"EXPN", &Session::onExpn, false, false, true},
    {"HELP", &Session::onHelp, false, true, true},
};

Session::Session(const Service& service, std::string clientAddress)
    : m_service(service), m_clientAddress(std::move(clientAddress)), m_sasl(service.options.accounts) {}

void Session::greet(std::string& out) const {
    reply(out, "220 localhost ESMTP kvsink");
}

std::size_t Session::consume(std::string_view input, std::string& out) {
    return m_receivingContent ? consumeContent(input, out) : consumeLine(input, out);
}

void Session::tlsStarted() {
    m_tls = Tls::active;
    m_heloName.clear();
    m_extended = false;
    m_authenticated = false;
    resetMail();
}

void Session::dismiss(bool stopping, std::string& out) {
    reply(out, stopping ? "421 4.3.2 Shutting down" : "421 4.4.2 Idle for too long");
    m_ended = true;
}

std::size_t Session::consumeContent(std::string_view input, std::string& out) {
    const bool keep = m_service.store != nullptr && !isTooLarge(m_reader.size());
    const std::size_t taken = m_reader.consume(input, keep ? &m_content : nullptr);
    if (m_reader.atEnd()) {
        finishMail(out);
    }
    return taken;
}

std::size_t Session::consumeLine(std::string_view input, std::string& out) {
    const std::size_t end = input.find('\n');
    if (end == std::string_view::npos) {
        return holdPartialLine(input);
    }
    const bool tooLong = std::exchange(m_skippingLine, false) || end >= lineLimit(input);
    if (tooLong || end == 0 || input[end - 1] != '\r') {
        m_sasl.abort();
        reply(out, tooLong ? "500 5.5.2 Line too long" : "500 5.5.2 Lines end with CR LF");
    } else {
        handleLine(input.substr(0, end - 1), out);
    }
    return end + 1;
}

/// An incomplete line waits for its end, unless it is too long already: then it is dropped as it comes.
std::size_t Session::holdPartialLine(std::string_view input) {
    m_skippingLine = m_skippingLine || input.size() >= lineLimit(input);
    return m_skippingLine ? input.size() : 0;
}

std::size_t Session::lineLimit(std::string_view input) const {
    return m_sasl.isActive() || startsWithIgnoringCase(input, "AUTH ") ? MAX_AUTH_LINE : MAX_COMMAND_LINE;
}

void Session::handleLine(std::string_view line, std::string& out) {
    if (m_sasl.isActive()) {
        replyToAuth(m_sasl.answer(line), out);
    } else {
        handleCommand(withoutTrailingSpaces(line), out);
    }
}

void Session::handleCommand(std::string_view line, std::string& out) {
    const std::string_view verb = takeWord(line);
    const auto* const command =
        std::find_if(std::begin(COMMANDS), std::end(COMMANDS),
                     [&](const Command& known) { return equalsIgnoringCase(verb, known.verb); });
    if (command == std::end(COMMANDS)) {
        reply(out, "500 5.5.1 Command not recognised");
    } else if (passesGates(*command, line, out)) {
        (this->*command->handle)(line, out);
    }
}

bool Session::passesGates(const Command& command, std::string_view argument, std::string& out) const {
    const Options& options = m_service.options;
    if (options.requireTls && m_tls != Tls::active && !command.beforeTls) {
        reply(out, "530 5.7.0 Must issue a STARTTLS command first");
    } else if (options.requireAuth && !m_authenticated && !command.beforeAuth) {
        reply(out, "530 5.7.0 Authentication required");
    } else if (!command.takesArgument && !argument.empty()) {
        reply(out, "501 5.5.4 No argument allowed");
    } else {
        return true;
    }
    return false;
}

void Session::onEhlo(std::string_view argument, std::string& out) {
    if (!takeHeloName(argument, out)) {
        return;
    }
    m_extended = true;
    reply(out, "250-localhost");
    reply(out, "250-PIPELINING");
    reply(out, "250-SIZE " + std::to_string(m_service.options.maxSize));
    reply(out, "250-8BITMIME");
    reply(out, "250-ENHANCEDSTATUSCODES");
    if (m_service.tls != nullptr && m_tls == Tls::none) {
        reply(out, "250-STARTTLS");
    }
    if (offersAuthNow()) {
        reply(out, "250-AUTH PLAIN LOGIN");
    }
    reply(out, "250 HELP");
}

void Session::onHelo(std::string_view argument, std::string& out) {
    if (takeHeloName(argument, out)) {
        m_extended = false;
        reply(out, "250 localhost");
    }
}

/// EHLO and HELO also do what RSET does (RFC 5321 4.1.4).
bool Session::takeHeloName(std::string_view argument, std::string& out) {
    if (argument.empty() || !isPrintable(argument)) {
        reply(out, "501 5.5.4 Give the name or address of the client");
        return false;
    }
    m_heloName = argument;
    resetMail();
    return true;
}

void Session::onStartTls(std::string_view, std::string& out) {
    if (m_service.tls == nullptr) {
        reply(out, "502 5.5.1 STARTTLS is not offered");
    } else if (m_tls == Tls::active) {
        reply(out, "503 5.5.1 TLS is already active");
    } else if (m_heloName.empty()) {
        reply(out, "503 5.5.1 Send EHLO first");
    } else {
        m_tls = Tls::requested;
        reply(out, "220 2.0.0 Ready to start TLS");
    }
}

void Session::onAuth(std::string_view argument, std::string& out) {
    if (!offersAuthNow()) {
        reply(out, "502 5.5.1 AUTH is not offered");
    } else if (!m_extended) {
        reply(out, "503 5.5.1 Send EHLO first");
    } else if (m_authenticated) {
        reply(out, "503 5.5.1 Already authenticated");
    } else if (m_mailOpen) {
        reply(out, "503 5.5.1 AUTH is not allowed during a mail");
    } else if (argument.empty()) {
        reply(out, "501 5.5.4 Name a mechanism");
    } else {
        replyToAuth(m_sasl.start(argument), out);
    }
}

bool Session::offersAuthNow() const {
    return m_service.options.offersAuth() && (!m_service.options.requireTls || m_tls == Tls::active);
}

void Session::replyToAuth(SaslExchange::Outcome outcome, std::string& out) {
    switch (outcome) {
        case SaslExchange::Outcome::challenge:
            return reply(out.append("334 "), m_sasl.challenge());
        case SaslExchange::Outcome::accepted:
            m_authenticated = true;
            return reply(out, "235 2.7.0 Authentication successful");
        case SaslExchange::Outcome::rejected:
            return reply(out, "535 5.7.8 Authentication credentials invalid");
        case SaslExchange::Outcome::cancelled:
            return reply(out, "501 5.7.0 Authentication cancelled");
        case SaslExchange::Outcome::malformed:
            return reply(out, "501 5.5.2 Cannot decode the response");
        case SaslExchange::Outcome::unknownMechanism:
            return reply(out, "504 5.5.4 Mechanism not recognised");
    }
}

void Session::onMail(std::string_view argument, std::string& out) {
    if (m_heloName.empty()) {
        return reply(out, "503 5.5.1 Send EHLO or HELO first");
    }
    if (m_mailOpen) {
        return reply(out, "503 5.5.1 A mail is already under way");
    }
    const auto path = parsePathArgument("FROM:", argument);
    if (!path) {
        return reply(out, "501 5.5.4 Syntax: MAIL FROM:<address>");
    }
    std::string_view fault = path->mailbox.empty() ? "" : faultOfMailbox(path->mailbox, true);
    if (fault.empty()) {
        fault = faultOfMailParameters(path->parameters);
    }
    if (!fault.empty()) {
        return reply(out, fault);
    }
    m_mailOpen = true;
    m_envelope.sender = path->mailbox;
    reply(out, "250 2.1.0 Sender ok");
}

/// The reply to bad parameters of MAIL; empty when they are good.
std::string_view Session::faultOfMailParameters(std::string_view parameters) const {
    while (!parameters.empty()) {
        const std::string_view parameter = takeWord(parameters);
        const std::size_t equals = std::min(parameter.find('='), parameter.size());
        const std::string_view name = parameter.substr(0, equals);
        const std::string_view value = parameter.substr(std::min(equals + 1, parameter.size()));
        const std::string_view fault = parameter.empty() ? "" : faultOfMailParameter(name, value);
        if (!fault.empty()) {
            return fault;
        }
    }
    return {};
}

std::string_view Session::faultOfMailParameter(std::string_view name, std::string_view value) const {
    if (equalsIgnoringCase(name, "SIZE")) {
        return faultOfSize(value);
    }
    if (equalsIgnoringCase(name, "BODY")) {
        const bool known = equalsIgnoringCase(value, "7BIT") || equalsIgnoringCase(value, "8BITMIME");
        return known ? "" : "501 5.5.4 BODY is 7BIT or 8BITMIME";
    }
    const bool known = equalsIgnoringCase(name, "AUTH") && offersAuthNow();  // RFC 4954 section 5
    return known ? "" : "555 5.5.4 Parameter not recognised";
}

/// RFC 1870: up to 20 digits. A number that is too large to hold is too large a mail.
std::string_view Session::faultOfSize(std::string_view value) const {
    if (value.empty() || value.size() > 20 || value.find_first_not_of("0123456789") != value.npos) {
        return "501 5.5.4 SIZE is a number of bytes";
    }
    std::uint64_t size = 0;
    const auto result = std::from_chars(value.data(), value.data() + value.size(), size);
    if (result.ec == std::errc::result_out_of_range || isTooLarge(size)) {
        m_service.counters.countRefusal();
        return "552 5.3.4 Mail too large";
    }
    return {};
}

void Session::onRcpt(std::string_view argument, std::string& out) {
    if (!m_mailOpen) {
        return reply(out, "503 5.5.1 Send MAIL first");
    }
    const auto path = parsePathArgument("TO:", argument);
    if (!path) {
        return reply(out, "501 5.5.4 Syntax: RCPT TO:<address>");
    }
    const std::string_view fault = faultOfRecipient(*path);
    if (!fault.empty()) {
        return reply(out, fault);
    }
    m_envelope.recipients.emplace_back(path->mailbox);
    reply(out, "250 2.1.5 Recipient ok");
}

/// The reply to a recipient that is not taken; empty when it is.
std::string_view Session::faultOfRecipient(const PathArgument& path) const {
    const std::string_view fault = faultOfMailbox(path.mailbox, false);
    if (!fault.empty()) {
        return fault;
    }
    if (!path.parameters.empty()) {
        return "555 5.5.4 Parameter not recognised";
    }
    if (isRefused(path.mailbox)) {
        m_service.counters.countRefusal();
        return "550 5.1.1 No such recipient";
    }
    return m_envelope.recipients.size() < MAX_RECIPIENTS ? "" : "452 4.5.3 Too many recipients";
}

bool Session::isRefused(std::string_view recipient) const {
    const auto& refused = m_service.options.refused;
    return std::any_of(refused.begin(), refused.end(),
                       [&](const std::string& name) { return equalsIgnoringCase(name, recipient); });
}

void Session::onData(std::string_view, std::string& out) {
    if (!m_mailOpen) {
        reply(out, "503 5.5.1 Send MAIL first");
    } else if (m_envelope.recipients.empty()) {
        reply(out, "554 5.5.1 No valid recipients");
    } else {
        m_receivingContent = true;
        reply(out, "354 End the mail with <CRLF>.<CRLF>");
    }
}

void Session::finishMail(std::string& out) {
    if (isTooLarge(m_reader.size())) {
        m_service.counters.countRefusal();
        reply(out, "552 5.3.4 Mail too large");
    } else {
        acceptMail(out);
    }
    resetMail();
}

void Session::acceptMail(std::string& out) const {
    try {
        const bool keep = m_service.store != nullptr;
        const std::string number = keep ? m_service.store->store(m_envelope, origin(), m_content) : "";
        if (m_service.journal != nullptr) {
            m_service.journal->note(m_envelope, origin().protocol);
        }
        m_service.counters.countMail(m_envelope.recipients.size());
        reply(out, keep ? "250 2.0.0 Stored as " + number : "250 2.0.0 Counted");
    } catch (const std::system_error&) {
        reply(out, "451 4.3.0 The mail could not be stored");
    }
}

Origin Session::origin() const {
    std::string protocol = m_extended ? "ESMTP" : "SMTP";
    protocol += m_extended && m_tls == Tls::active ? "S" : "";
    protocol += m_extended && m_authenticated ? "A" : "";
    return {m_heloName, m_clientAddress, std::move(protocol)};
}

bool Session::isTooLarge(std::uint64_t size) const {
    return m_service.options.maxSize != 0 && size > m_service.options.maxSize;
}

void Session::resetMail() {
    m_mailOpen = false;
    m_receivingContent = false;
    m_envelope.sender.clear();
    m_envelope.recipients.clear();
    m_reader.reset();
    m_content.clear();
    if (m_content.capacity() > MAX_KEPT_CONTENT) {
        m_content.shrink_to_fit();
    }
}

void Session::onRset(std::string_view, std::string& out) {
    resetMail();
    reply(out, "250 2.0.0 Ok");
}

void Session::onNoop(std::string_view, std::string& out) {
    reply(out, "250 2.0.0 Ok");
}

void Session::onVrfy(std::string_view argument, std::string& out) {
    reply(out,
          argument.empty() ? "501 5.5.4 Name a recipient" : "252 2.1.5 Not verified; send mail to find out");
}

void Session::onExpn(std::string_view, std::string& out) {
    reply(out, "502 5.5.1 EXPN is not implemented");
}

void Session::onHelp(std::string_view, std::string& out) {
    reply(out, "214 2.0.0 EHLO HELO STARTTLS AUTH MAIL RCPT DATA RSET NOOP VRFY HELP QUIT");
}

void Session::onQuit(std::string_view, std::string& out) {
    reply(out, "221 2.0.0 Bye");
    m_ended = true;
}

}  // namespace kvsink
