#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "Envelope.h"
#include "EnvelopePath.h"
#include "MessageReader.h"
#include "SaslExchange.h"
#include "Service.h"

namespace kvsink {

/// The server's side of one SMTP conversation (RFC 5321), from bytes to bytes: it knows no socket and no TLS.
/// Externally synchronised.
///
/// The caller gathers input, hands it to consume() until that takes nothing, and sends what is appended to
/// `out`. After tlsRequested() it sends the reply, drops the rest of the input, and calls tlsStarted() before
/// the first decrypted byte. After ended() it closes the connection.
class Session {
public:
    /// `clientAddress` goes into the Received header. `service` must outlive the session.
    Session(const Service& service, std::string clientAddress);

    /// Appends the greeting.
    void greet(std::string& out) const;

    /// Takes one command line, or a piece of a mail, from the front of `input` and appends the reply, if
    /// there is one. Returns the number of bytes taken; 0 when the line is not complete yet.
    std::size_t consume(std::string_view input, std::string& out);

    /// The client was told to begin with TLS.
    bool tlsRequested() const { return m_tls == Tls::requested; }
    /// TLS covers the connection from here on. All that the client said before is forgotten (RFC 3207 4.2).
    void tlsStarted();

    /// The client was told that the connection closes.
    bool ended() const { return m_ended; }
    /// MAIL was accepted and the mail is not complete yet.
    bool mailUnderWay() const { return m_mailOpen; }

    /// Takes leave of a client that is idle or, with `stopping`, of any client; appends the 421 reply.
    void dismiss(bool stopping, std::string& out);

private:
    enum class Tls { none, requested, active };
    struct Command;
    static const Command COMMANDS[];

    std::size_t consumeContent(std::string_view input, std::string& out);
    std::size_t consumeLine(std::string_view input, std::string& out);
    std::size_t holdPartialLine(std::string_view input);
    std::size_t lineLimit(std::string_view input) const;
    void handleLine(std::string_view line, std::string& out);
    void handleCommand(std::string_view line, std::string& out);
    bool passesGates(const Command& command, std::string_view argument, std::string& out) const;

    void onEhlo(std::string_view argument, std::string& out);
    void onHelo(std::string_view argument, std::string& out);
    void onStartTls(std::string_view argument, std::string& out);
    void onAuth(std::string_view argument, std::string& out);
    void onMail(std::string_view argument, std::string& out);
    void onRcpt(std::string_view argument, std::string& out);
    void onData(std::string_view argument, std::string& out);
    void onRset(std::string_view argument, std::string& out);
    void onNoop(std::string_view argument, std::string& out);
    void onVrfy(std::string_view argument, std::string& out);
    void onExpn(std::string_view argument, std::string& out);
    void onHelp(std::string_view argument, std::string& out);
    void onQuit(std::string_view argument, std::string& out);

    bool takeHeloName(std::string_view argument, std::string& out);
    bool offersAuthNow() const;
    void replyToAuth(SaslExchange::Outcome outcome, std::string& out);
    std::string_view faultOfMailParameters(std::string_view parameters) const;
    std::string_view faultOfMailParameter(std::string_view name, std::string_view value) const;
    std::string_view faultOfSize(std::string_view value) const;
    std::string_view faultOfRecipient(const PathArgument& path) const;
    bool isRefused(std::string_view recipient) const;
    bool isTooLarge(std::uint64_t size) const;
    void finishMail(std::string& out);
    void acceptMail(std::string& out) const;
    Origin origin() const;
    void resetMail();

    const Service& m_service;
    const std::string m_clientAddress;

    bool m_ended = false;
    Tls m_tls = Tls::none;
    bool m_extended = false;  // greeted with EHLO
    std::string m_heloName;   // empty before EHLO or HELO
    bool m_authenticated = false;
    SaslExchange m_sasl;
    bool m_skippingLine = false;  // the rest of an overlong line is dropped

    bool m_mailOpen = false;
    bool m_receivingContent = false;
    Envelope m_envelope;
    MessageReader m_reader;
    std::string m_content;
};

}  // namespace kvsink
