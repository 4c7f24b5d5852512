#include "SmtpSession.h"

#include <algorithm>
#include <cctype>

namespace kvtest {

namespace {

std::string Upper(std::string text) {
    std::ranges::transform(text, text.begin(),
                           [](unsigned char byte) { return static_cast<char>(std::toupper(byte)); });
    return text;
}

std::string UpTo(const std::string& text, char stop) {
    return text.substr(0, text.find(stop));
}

std::string Behind(const std::string& text, char stop) {
    const std::size_t at = text.find(stop);
    return at == std::string::npos ? "" : text.substr(at + 1);
}

std::string AddressIn(const std::string& argument) {
    if (argument.find('<') != std::string::npos) {
        return UpTo(Behind(argument, '<'), '>');
    }
    const std::string address = Behind(argument, ':');
    return address.substr(std::min(address.find_first_not_of(' '), address.size()));
}

bool BeginsWith2(const Reply& reply) {
    return reply.bytes.starts_with('2');
}

/// Where the line of the single dot begins; npos when it has not come yet.
std::size_t EndOfMessage(const std::string& input, std::size_t searched) {
    if (input.starts_with(".\r\n")) {
        return 0;
    }
    const std::size_t found = input.find("\r\n.\r\n", searched - std::min<std::size_t>(searched, 4));
    return found == std::string::npos ? found : found + 2;
}

}  // namespace

SmtpSession::SmtpSession(SmtpWire& wire, int connection, const SmtpServerOptions& options, SSL_CTX* tls,
                         SmtpScript& script, SmtpRecorder& recorder)
    : m_wire(wire),
      m_connection(connection),
      m_options(options),
      m_tls(tls),
      m_script(script),
      m_recorder(recorder) {}

void SmtpSession::run() {
    try {
        converse();
    } catch (const ConnectionOver&) {
        keepRest();
        throw;
    }
}

void SmtpSession::converse() {
    greet();
    for (;;) {
        handle(readLine());
    }
}

void SmtpSession::greet() {
    if (const auto limit = m_script.byteLimit(m_connection)) {
        m_wire.limit(*limit);
        if (limit->bytes == 0) {
            m_wire.endWith(limit->then);
        }
    }
    send(decide({step::Greeting, ""}, "220 " + m_options.hostName + " ESMTP\r\n"));
}

void SmtpSession::handle(const std::string& line) {
    using Handler = void (SmtpSession::*)(const Step&);
    static const std::map<std::string, Handler> handlers{
        {"EHLO", &SmtpSession::onEhlo},        {"HELO", &SmtpSession::onHelo}, {"MAIL", &SmtpSession::onMail},
        {"RCPT", &SmtpSession::onRcpt},        {"DATA", &SmtpSession::onData}, {"RSET", &SmtpSession::onRset},
        {"NOOP", &SmtpSession::onNoop},        {"QUIT", &SmtpSession::onQuit}, {"AUTH", &SmtpSession::onAuth},
        {"STARTTLS", &SmtpSession::onStartTls}};
    const Step step{Upper(UpTo(line, ' ')), line, Behind(line, ' ')};
    const auto found = handlers.find(step.name);
    (this->*(found == handlers.end() ? &SmtpSession::onUnknown : found->second))(step);
}

void SmtpSession::onEhlo(const Step& step) {
    resetTransaction();
    answer(step, ehloReply());
}

void SmtpSession::onHelo(const Step& step) {
    resetTransaction();
    answer(step, "250 " + m_options.hostName + "\r\n");
}

void SmtpSession::onMail(const Step& step) {
    const bool nested = m_open;
    m_transaction += nested ? 0 : 1;
    const Reply reply = decide(step, nested ? "503 5.5.1 nested MAIL\r\n" : "250 2.1.0 sender ok\r\n");
    if (nested && reply.isRefusal()) {
        conclude(step, reply);
        return;
    }
    m_transaction += nested ? 1 : 0;
    resetTransaction();
    m_open = !reply.isRefusal();
    conclude(step, reply, [&](SmtpRecorder::State& state) {
        m_record = state.transactions.size();
        state.transactions.push_back(newTransaction(step, reply.isRefusal()));
    });
}

TransactionRecord SmtpSession::newTransaction(const Step& step, bool refused) const {
    TransactionRecord record;
    record.connection = m_connection;
    record.number = m_transaction;
    record.mailFrom = step.argument;
    record.sender = AddressIn(step.argument);
    record.insideTls = m_wire.insideTls();
    record.authenticated = m_authenticated;
    record.end = refused ? TransactionEnd::SenderRefused : TransactionEnd::Open;
    return record;
}

void SmtpSession::onRcpt(const Step& step) {
    if (!m_open) {
        answer(step, "503 5.5.1 need MAIL first\r\n");
        return;
    }
    m_offered.push_back(AddressIn(step.argument));
    const Reply reply = decide(step, "250 2.1.5 recipient ok\r\n");
    m_hasRecipient = m_hasRecipient || !reply.isRefusal();
    conclude(step, reply, [&](SmtpRecorder::State& state) {
        state.transactions[m_record].recipients.push_back(
            {step.argument, m_offered.back(), !reply.isRefusal()});
    });
}

void SmtpSession::onData(const Step& step) {
    const char* refusal = m_open ? "503 5.5.1 need RCPT first\r\n" : "503 5.5.1 need MAIL first\r\n";
    const Reply reply = decide(step, m_hasRecipient ? "354 go ahead\r\n" : refusal);
    m_readingMessage = !reply.isRefusal();
    conclude(step, reply);
    if (m_readingMessage) {
        receiveMessage();
    }
}

void SmtpSession::receiveMessage() {
    std::size_t searched = 0;
    std::size_t end = EndOfMessage(m_input, 0);
    while (end == std::string::npos) {
        searched = m_input.size();
        m_input += m_wire.receive();
        end = EndOfMessage(m_input, searched);
    }
    const std::string message = m_input.substr(0, end);
    m_input.erase(0, end + 3);
    m_readingMessage = false;

    const Step step{step::EndOfData, "."};
    const Reply reply = decide(step, "250 2.0.0 queued\r\n", message);
    conclude(step, reply, [&](SmtpRecorder::State& state) {
        if (!m_open) {
            return;  // the script let DATA pass without a transaction
        }
        TransactionRecord& record = state.transactions[m_record];
        record.data = message;
        record.dataComplete = true;
        record.end = reply.isRefusal() ? TransactionEnd::Refused : TransactionEnd::Accepted;
        m_open = false;
        m_hasRecipient = false;
        m_offered.clear();
    });
}

void SmtpSession::onRset(const Step& step) {
    const Reply reply = decide(step, "250 2.0.0 reset\r\n");
    if (!reply.isRefusal()) {
        resetTransaction();
    }
    conclude(step, reply);
}

void SmtpSession::onNoop(const Step& step) {
    answer(step, "250 2.0.0 ok\r\n");
}

void SmtpSession::onQuit(const Step& step) {
    answer(step, Reply("221 2.0.0 bye\r\n").thenClose());
}

void SmtpSession::onUnknown(const Step& step) {
    answer(step, "500 5.5.1 unknown command\r\n");
}

void SmtpSession::onStartTls(const Step& step) {
    const char* refusal =
        m_wire.insideTls() ? "503 5.5.1 already inside TLS\r\n" : "454 4.7.0 TLS not available\r\n";
    const bool possible = m_tls != nullptr && !m_wire.insideTls();
    Reply reply = decide(step, possible ? "220 2.0.0 ready for TLS\r\n" : refusal);
    if (BeginsWith2(reply) && reply.then == Then::Keep) {
        reply.thenStartTls();
    }
    conclude(step, reply);
}

Reply SmtpSession::decide(const Step& step, const Reply& byDefault, std::string_view data) {
    CommandContext context;
    context.connection = m_connection;
    context.step = step.name;
    context.occurrence = ++m_occurrences[step.name];
    context.line = step.line;
    context.argument = step.argument;
    if (step.name == "MAIL" || step.name == "RCPT") {
        context.address = AddressIn(step.argument);
    }
    context.transaction = m_transaction;
    context.recipients = m_offered;
    context.data = data;
    context.insideTls = m_wire.insideTls();
    context.authenticated = m_authenticated;
    context.defaultReply = byDefault;
    return m_script.replyTo(context);
}

void SmtpSession::conclude(const Step& step, const Reply& reply, const StateChange& change) {
    m_recorder.change([&](SmtpRecorder::State& state) {
        if (change) {
            change(state);
        }
        state.connection(m_connection)
            .commands.push_back(
                {m_connection, step.name, step.line, step.argument, m_wire.insideTls(), reply.bytes});
    });
    send(reply);
}

void SmtpSession::send(const Reply& reply) {
    m_wire.pause(reply.delay);
    if (reply.gate) {
        m_wire.waitFor(*reply.gate);
    }
    bool first = true;
    for (const std::string& piece : reply.pieces()) {
        if (!first) {
            m_wire.pause(reply.pause);
        }
        if (!first && reply.restGate) {
            m_wire.waitFor(*reply.restGate);
        }
        m_wire.send(piece);
        first = false;
    }
    perform(reply.then);
}

void SmtpSession::perform(Then action) {
    switch (action) {
        case Then::Keep:
            return;
        case Then::StartTls:
            upgrade();
            return;
        case Then::StartTlsGarbage:
            m_wire.receive();  // sent earlier, the bytes could be read as a part of the reply
            m_wire.send("This is no TLS record.\r\n");
            m_wire.stall();
        case Then::Close:
        case Then::CloseAbruptly:
        case Then::Reset:
        case Then::HalfClose:
        case Then::Stall:
        case Then::Vanish:
            m_wire.endWith(action);
    }
}

void SmtpSession::upgrade() {
    m_wire.startTls(m_tls);
    // What was said in clear counts no more (RFC 3207 4.2).
    m_input.clear();
    m_authenticated = false;
    resetTransaction();
}

Reply SmtpSession::ehloReply() const {
    std::string lines = m_options.hostName;
    std::string bytes;
    for (const std::string& extension : extensions()) {
        bytes += "250-" + lines + "\r\n";
        lines = extension;
    }
    return bytes + "250 " + lines + "\r\n";
}

std::vector<std::string> SmtpSession::extensions() const {
    if (m_wire.insideTls() && m_options.extensionsInsideTls) {
        return *m_options.extensionsInsideTls;
    }
    if (m_options.extensions) {
        return *m_options.extensions;
    }
    std::vector<std::string> result;
    if (m_tls != nullptr && !m_wire.insideTls()) {
        result.push_back("STARTTLS");
    }
    if (!m_options.accounts.empty()) {
        result.push_back("AUTH PLAIN LOGIN");
    }
    return result;
}

void SmtpSession::resetTransaction() {
    if (m_open) {
        m_recorder.change([&](SmtpRecorder::State& state) {
            state.transactions[m_record].end = TransactionEnd::Abandoned;
        });
    }
    m_open = false;
    m_hasRecipient = false;
    m_offered.clear();
}

std::string SmtpSession::readLine() {
    std::size_t end = 0;
    while ((end = m_input.find('\n')) == std::string::npos) {
        m_input += m_wire.receive();
    }
    std::string line = m_input.substr(0, end);
    m_input.erase(0, end + 1);
    if (line.ends_with('\r')) {
        line.pop_back();
    }
    return line;
}

void SmtpSession::keepRest() {
    m_recorder.change([&](SmtpRecorder::State& state) {
        if (!m_readingMessage) {
            state.connection(m_connection).incompleteLine = m_input;
        } else if (m_open) {
            state.transactions[m_record].data = m_input;
        }
    });
}

}  // namespace kvtest
