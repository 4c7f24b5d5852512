// The engine against a server that says anything: a whole conversation, from the greeting to the last reply.
//
// Input: options, then the script of the server (see support/FakeServer.h). Options, in any order: a digit from 0 to 4 for
// the security, "c" credentials, "f" handshakes fail, "g" log, "r" for each recipient, "s" the single shot, "a" a probe
// before the mail, "d" nobody but the destructor closes, "w" and a letter: sends fail from the letter's number on.
#include <algorithm>
#include <cstdlib>
#include <optional>
#include <stdexcept>

#include "KvEmailDriver.h"
#include "KvioException.h"
#include "support/Check.h"
#include "support/CountingLog.h"
#include "support/FakeServer.h"
#include "support/Input.h"

namespace {

using kvfuzz::FakeServer;
using kvfuzz::IsRefusal;
using Event = FakeServer::Event;
using Events = std::vector<Event>;

constexpr const char* kServer = "127.0.0.1:2525";
constexpr const char* kUser = "the-user";
constexpr const char* kPassword = "the-password";
constexpr const char* kEncodedUser = "dGhlLXVzZXI=\r\n";
constexpr const char* kEncodedPassword = "dGhlLXBhc3N3b3Jk\r\n";
constexpr const char* kEncodedPlain = "AHRoZS11c2VyAHRoZS1wYXNzd29yZA==\r\n";

struct Options {
    explicit Options(const std::string& text) : m_strText(text) {}

    bool Has(char c) const { return m_strText.find(c) != std::string::npos; }
    KvEmailDriver::SmtpSecType Security() const {
        const std::size_t digit = m_strText.find_first_of("01234");
        return static_cast<KvEmailDriver::SmtpSecType>(digit == std::string::npos ? 0
                                                                                  : m_strText[digit] - '0');
    }
    std::vector<std::string> Recipients() const {
        const auto count = std::min<std::ptrdiff_t>(5, std::count(m_strText.begin(), m_strText.end(), 'r'));
        return std::vector<std::string>(static_cast<std::size_t>(count), "to@example.org");
    }
    int MostSends() const {
        const std::size_t mark = m_strText.find('w');
        const bool isSet = mark != std::string::npos && mark + 1 < m_strText.size();
        return isSet ? static_cast<unsigned char>(m_strText[mark + 1]) % 32 : -1;
    }

private:
    const std::string m_strText;
};

/// How an operation of the engine ended.
struct Outcome {
    bool isDone = false;
    std::optional<KvSmtpException> smtpError;
};

template <typename Operation>
Outcome Try(Operation operation) {
    Outcome outcome;
    try {
        operation();
        outcome.isDone = true;
    } catch (const KvSmtpException& error) {
        outcome.smtpError = error;
    } catch (const KvioException&) {
    } catch (const std::out_of_range&) {
        // A refusal of three characters or fewer, and a challenge that is none.
    }
    return outcome;
}

bool IsSent(const Event& event, const std::string& start) {
    return event.kind == Event::Sent && event.bytes.compare(0, start.size(), start) == 0;
}

/// What a read answered; a time-out counts as an empty reply.
bool IsReply(const Event& event) {
    return event.kind == Event::Received || event.kind == Event::TimedOut;
}

bool IsAccepted(const Event& event) {
    return IsReply(event) && !IsRefusal(kvfuzz::Seen(event.bytes));
}

/// Takes what was expected off a row of events.
class Transcript {
public:
    explicit Transcript(const Events& events, std::size_t at) : m_events(events), m_nAt(at) {}

    void Sent(const std::string& text) {
        KV_FUZZ_CHECK(m_nAt < m_events.size());
        KV_FUZZ_CHECK(m_events[m_nAt].kind == Event::Sent && m_events[m_nAt].bytes == text);
        ++m_nAt;
    }
    /// Any text, and the line that ends it.
    void SentMessage() {
        KV_FUZZ_CHECK(m_nAt < m_events.size() && m_events[m_nAt].kind == Event::Sent);
        KV_FUZZ_CHECK(m_events[m_nAt].bytes.ends_with("\r\n.\r\n"));
        ++m_nAt;
    }
    void SentAnything() {
        KV_FUZZ_CHECK(m_nAt < m_events.size() && m_events[m_nAt].kind == Event::Sent);
        ++m_nAt;
    }
    void Accepted() {
        KV_FUZZ_CHECK(m_nAt < m_events.size() && IsAccepted(m_events[m_nAt]));
        ++m_nAt;
    }
    void End() { KV_FUZZ_CHECK(m_nAt == m_events.size()); }
    std::size_t At() const { return m_nAt; }

private:
    const Events& m_events;
    std::size_t m_nAt;
};

std::size_t LastTransaction(const Events& events) {
    std::size_t at = events.size();
    while (at > 0 && !IsSent(events[at - 1], "MAIL FROM:")) {
        --at;
    }
    KV_FUZZ_CHECK(at > 0);
    return at - 1;
}

/// A mail is only ever sent when every command of its last transaction, and the message itself, had a reply that is no
/// refusal.
void CheckSent(const Events& events, const std::vector<std::string>& recipients) {
    Transcript transcript(events, LastTransaction(events));
    transcript.Sent("MAIL FROM: <from@example.org>\r\n");
    transcript.Accepted();
    for (const std::string& recipient : recipients) {
        transcript.Sent("RCPT TO: <" + recipient + ">\r\n");
        transcript.Accepted();
    }
    transcript.Sent("DATA\r\n");
    transcript.Accepted();
    transcript.SentMessage();
    transcript.Accepted();
    transcript.End();
}

/// The same for the single shot, which says QUIT and waits for nothing more.
void CheckShot(const Events& events) {
    Transcript transcript(events, LastTransaction(events));
    transcript.Sent("MAIL FROM: <from@example.org>\r\n");
    transcript.Accepted();
    transcript.Sent("RCPT TO: <to@example.org>\r\n");
    transcript.Accepted();
    transcript.Sent("DATA\r\n");
    transcript.Accepted();
    while (transcript.At() + 3 < events.size()) {
        transcript.SentAnything();
    }
    transcript.Sent(".\r\n");
    transcript.Accepted();
    transcript.Sent("QUIT");
    transcript.End();
}

/// A refusal is told with the code and the text that the server gave last; others are of the engine.
void CheckRefusal(const KvSmtpException& error, const Events& events) {
    const bool isEngineCode =
        error.m_nError == KvSmtpException::TLS_REQUIRED || error.m_nError == KvSmtpException::STARTTLS_FAILED;
    const std::string reply = events.empty() ? "" : kvfuzz::Seen(events.back().bytes);
    if (IsReply(events.back()) && IsRefusal(reply) && reply.size() > 3 &&
        error.m_strError == reply.substr(4)) {
        KV_FUZZ_CHECK(error.m_nError == std::strtol(reply.substr(0, 3).c_str(), nullptr, 10));
    } else {
        KV_FUZZ_CHECK(isEngineCode);
    }
}

/// Credentials go out only when there are some, after a reply that mentions AUTH, and in their place.
void CheckCredentials(const Events& events, bool hasCredentials) {
    bool isOffered = false;
    for (const Event& event : events) {
        isOffered =
            isOffered || (event.kind == Event::Received && event.bytes.find("AUTH") != std::string::npos);
        if (event.kind != Event::Sent) {
            continue;
        }
        const bool isCredential =
            event.bytes == kEncodedUser || event.bytes == kEncodedPassword || event.bytes == kEncodedPlain;
        KV_FUZZ_CHECK(!isCredential || (hasCredentials && isOffered));
        KV_FUZZ_CHECK(!IsSent(event, "AUTH ") || (hasCredentials && isOffered));
        KV_FUZZ_CHECK(event.bytes.find(kPassword) == std::string::npos);
    }
}

/// TLS is begun only in modes that have it; with TLS required nothing of a mail or an account goes out before it.
void CheckSecurity(const Events& events, KvEmailDriver::SmtpSecType security) {
    const bool mayBegin = security != KvEmailDriver::SecNone && security != KvEmailDriver::SecClear;
    bool isSecured = false;
    for (const Event& event : events) {
        isSecured = isSecured || event.kind == Event::Secured;
        KV_FUZZ_CHECK(mayBegin || (event.kind != Event::Secured && !IsSent(event, "STARTTLS")));
        const bool mayBeClear = event.kind != Event::Sent || IsSent(event, "EHLO ") ||
                                IsSent(event, "HELO ") || IsSent(event, "STARTTLS\r\n");
        KV_FUZZ_CHECK(security != KvEmailDriver::SecTLSRequired || isSecured || mayBeClear);
    }
}

void Probe(KvEmailDriver& engine, const FakeServer& server) {
    const bool isAlive = engine.IsAlive();
    const Event& last = server.Events().back();
    KV_FUZZ_CHECK(isAlive == IsAccepted(last));
}

void Converse(const Options& options, const FakeServer& server, KvEmailDriver& engine) {
    const bool hasCredentials = options.Has('c');
    const Outcome connected = Try([&] {
        engine.Connect(kServer, hasCredentials ? kUser : "", hasCredentials ? kPassword : "",
                       options.Security());
    });
    if (!connected.isDone) {
        if (connected.smtpError) {
            CheckRefusal(*connected.smtpError, server.Events());
        }
        return;
    }
    if (options.Has('a')) {
        Probe(engine, server);
    }
    const std::vector<std::string> recipients = options.Recipients();
    const Outcome sent = Try([&] {
        engine.SendMail("from@example.org", recipients, "Subject", "A text.\n.\n.with dots\r\n", {});
    });
    if (sent.isDone) {
        CheckSent(server.Events(), recipients);
    } else if (sent.smtpError) {
        CheckRefusal(*sent.smtpError, server.Events());
    }
    if (!options.Has('d')) {
        engine.Close();
    }
}

void Shoot(const Options& options, const FakeServer& server, KvEmailDriver& engine) {
    KvEmailDriver::Job job;
    job.strHost = kServer;
    job.strFrom = "from@example.org";
    job.strTo = "to@example.org";
    job.strSubject = "Subject";
    job.strBody = "A text.\n.\n.with dots\r\n";
    job.strUser = options.Has('c') ? kUser : "";
    job.strPassword = options.Has('c') ? kPassword : "";
    job.eSecType = options.Security();
    const Outcome sent = Try([&] { KV_FUZZ_CHECK(engine.SendAMessage(job)); });
    if (sent.isDone) {
        CheckShot(server.Events());
    } else if (sent.smtpError) {
        CheckRefusal(*sent.smtpError, server.Events());
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    kvfuzz::Input input(data, size);
    const Options options(input.Piece());
    kvfuzz::CountingLog log;
    const FakeServer server(input.Rest(), !options.Has('f'), options.MostSends());
    {
        KvEmailDriver engine(options.Has('g') ? &log : nullptr, "", "", "");
        if (options.Has('s')) {
            Shoot(options, server, engine);
        } else {
            Converse(options, server, engine);
        }
    }
    KV_FUZZ_CHECK(server.OpenDescriptors() == 0);
    CheckCredentials(server.Events(), options.Has('c'));
    CheckSecurity(server.Events(), options.Security());
    return 0;
}
