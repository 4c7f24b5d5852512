#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "TempDir.h"
#include "TestCertificates.h"
#include "hostile/HostileDelivery.h"
#include "hostile/VirtualTime.h"

// Servers whose TLS is not what it should be. The driver knows STARTTLS only; there is no TLS from the first byte.

namespace {

using namespace kvtest;
using std::chrono::seconds;

const std::string kHandshakeFailed =
    "SSL: SSL Connect Failed. Details: SSL_ERROR_SSL. A failure in the SSL library occurred, usually a "
    "protocol error.  Error: error:00000001:lib(0)::reason(1)";

const TestCertificates& Certificates() {
    return TestCertificates::Shared();
}

SmtpServerOptions WithTls(const TlsOptions& tls) {
    SmtpServerOptions options;
    options.tls = tls;
    return options;
}

/// Nothing but EHLO and STARTTLS was said in clear.
void ExpectNoMailInClear(const ScriptedSmtpServer& server) {
    for (int number = 1; number <= server.acceptedConnections(); ++number) {
        for (const CommandRecord& command : server.connection(number).commands) {
            EXPECT_TRUE(command.insideTls || command.step == step::Greeting || command.step == "EHLO" ||
                        command.step == "STARTTLS")
                << command.line;
        }
    }
}

// Handshakes

struct BadHandshake {
    const char* name;
    TlsOptions tls;
    Reply goAhead;
    std::string error = kHandshakeFailed;
};

std::ostream& operator<<(std::ostream& out, const BadHandshake& bad) {
    return out << bad.name;
}

std::vector<BadHandshake> BadHandshakes() {
    const TlsOptions good = Certificates().serverTls();
    TlsOptions demanding = Certificates().tlsDemandingClientCertificate();
    demanding.maxVersion = 0x0303;  // TLS 1.2: the client learns of it in the handshake
    const std::string goAhead = "220 go ahead\r\n";
    const std::string sysCall =
        "SSL: SSL Connect Failed. Details: SSL_ERROR_SYSCALL. Some I/O error occurred.  Error: "
        "error:00000005:lib(0)::reason(5)";
    return {
        {"FromAnotherAuthority", Certificates().tlsWith(Certificates().fromOtherCa()), goAhead},
        {"Expired", Certificates().tlsWith(Certificates().expired()), goAhead},
        {"SelfSigned", Certificates().tlsWith(Certificates().selfSigned()), goAhead},
        {"DemandingAClientCertificate", demanding, goAhead},
        {"GarbageInsteadOfAHandshake", good, Reply(goAhead).thenStartTlsGarbage()},
        {"OverAThousandBytesOfGoAhead", good, "220 " + std::string(1500, 'x') + "\r\n"},
        {"ClosedInsteadOfAHandshake", good, Reply(goAhead).thenClose()},
        {"ResetInsteadOfAHandshake", good, Reply(goAhead).thenReset(), sysCall},
    };
}

class BadHandshakeTest : public testing::TestWithParam<BadHandshake> {
protected:
    BadHandshakeTest() : m_server(WithTls(GetParam().tls)) {
        m_server.on("STARTTLS").reply(GetParam().goAhead);
    }

    ScriptedSmtpServer m_server;
};

TEST_P(BadHandshakeTest, FailsTheConnectionAndNothingGoesOnInClear) {
    for (const SmtpSecurityType security : {SMTP_SECURITY_REQUIRED, SMTP_SECURITY_IF_AVAILABLE}) {
        HostDoubles host;
        EXPECT_EQ(Deliver(m_server, JobFor(m_server, true).security(security), host), NotConnected());
        EXPECT_TRUE(host.log.contains("Msg[" + GetParam().error + "]"));
    }
    ExpectNoMailInClear(m_server);
}

TEST_P(BadHandshakeTest, OnDemandFailsTheJobWithTheTextOfTheHandshake) {
    m_server.on("MAIL").inClear().reply("530 5.7.0 Must issue a STARTTLS command first\r\n");
    const Outcome outcome = Deliver(m_server, JobFor(m_server, true).security(SMTP_SECURITY_ON_DEMAND));
    EXPECT_EQ(outcome, Failed(GetParam().error));  // the connection is kept until its probe finds out
}

INSTANTIATE_TEST_SUITE_P(All, BadHandshakeTest, testing::ValuesIn(BadHandshakes()),
                         [](const auto& instance) { return std::string(instance.param.name); });

TEST(TlsHandshakeTest, AHandshakeThatStallsIsWaitedForWithoutALimitUntilTheServerGoes) {
    ScriptedSmtpServer server(WithTls(Certificates().serverTls()));
    server.on("STARTTLS").reply(Reply("220 go ahead\r\n").thenStall());
    const std::jthread time([&server] {
        EXPECT_TRUE(server.waitForCommand("STARTTLS"));
        EXPECT_TRUE(VirtualTime::Pass(std::chrono::hours(1)));
        server.closeConnections();
    });
    const auto before = VirtualTime::Passed();
    EXPECT_EQ(Deliver(server, JobFor(server, true)), NotConnected());
    EXPECT_GE(VirtualTime::Passed() - before, std::chrono::hours(1));
}

TEST(TlsHandshakeTest, WithTls13AMissingClientCertificateFailsTheFirstReadBehindTheHandshake) {
    ScriptedSmtpServer server(WithTls(Certificates().tlsDemandingClientCertificate()));
    EXPECT_EQ(Deliver(server, JobFor(server, true)), NotConnected());
    EXPECT_EQ(server.commandCount("MAIL"), 0);
}

TEST(TlsHandshakeTest, APortThatSpeaksTlsFromTheFirstByteIsNotUnderstood) {
    for (const SmtpSecurityType security : {SMTP_SECURITY_CLEAR, SMTP_SECURITY_REQUIRED}) {
        ScriptedSmtpServer server(WithTls(Certificates().serverTls()));
        server.on(step::Greeting).answer([](const CommandContext&) {
            SilentFor(seconds(60));
            return Reply().thenStartTls();
        });
        EXPECT_EQ(Deliver(server, JobFor(server, true).security(security)), NotConnected());
    }
}

// Bytes in clear where TLS is due

TEST(InjectedBytesTest, BehindTheGoAheadInOneSegmentTheyAreAPartOfItAndOfferNothing) {
    ScriptedSmtpServer server(OfferingAccount(true));
    server.on("EHLO").insideTls().reply("250 inside\r\n");
    server.on("STARTTLS").reply(Reply("220 go ahead\r\n250-evil\r\n250 AUTH PLAIN\r\n").thenStartTls());
    HostDoubles host;
    EXPECT_EQ(Deliver(server, WithAccount(JobFor(server, true)), host), Completed());
    EXPECT_EQ(server.commandCount("AUTH"), 0);
    EXPECT_EQ(host.log.countContaining("=> 250 inside<CR><LF>"), 1);
}

TEST(InjectedBytesTest, TheyAreNeverTakenForAnAnswerInsideTls) {
    for (const char* refused : {"MAIL", "RCPT", "DATA", step::EndOfData}) {
        ScriptedSmtpServer server(WithTls(Certificates().serverTls()));
        server.on("STARTTLS")
            .reply(Reply("220 go ahead\r\n250 ok\r\n250 ok\r\n250 ok\r\n250 ok\r\n354 ok\r\n250 ok\r\n")
                       .thenStartTls());
        server.on(refused).reply("550 5.7.1 no\r\n");
        EXPECT_EQ(Deliver(server, JobFor(server, true)), Failed("5.7.1 no\r\n")) << refused;
    }
}

TEST(InjectedBytesTest, InASegmentOfTheirOwnTheyFailTheHandshake) {
    ScriptedSmtpServer server(WithTls(Certificates().serverTls()));
    Gate gate;
    server.on("STARTTLS")
        .reply(Reply("220 go ahead\r\n250 injected\r\n").split({14}).restHeldBy(gate).thenStartTls());
    HostDoubles host;
    const std::jthread opener([&host, gate]() mutable {
        EXPECT_TRUE(host.log.waitFor("=> 220 go ahead<CR><LF>"));
        gate.open();
    });
    EXPECT_EQ(Deliver(server, JobFor(server, true), host), NotConnected());
    EXPECT_FALSE(host.log.contains("injected"));
    ExpectNoMailInClear(server);
}

TEST(InjectedBytesTest, AGoAheadBeforeItsTimeIsAPartOfTheOfferAndAnswersNothing) {
    ScriptedSmtpServer server(WithTls(Certificates().serverTls()));
    server.on("EHLO").inClear().reply("250-a\r\n250 STARTTLS\r\n220 go ahead\r\n");
    server.on("STARTTLS").reply("454 4.7.0 not now\r\n");
    EXPECT_EQ(Deliver(server, JobFor(server, true)), NotConnected());
    EXPECT_FALSE(server.connection().tls);
    ExpectNoMailInClear(server);
}

TEST(InjectedBytesTest, AWithdrawnOfferOfTlsFailsTheConnectionWhereItIsRequired) {
    for (const char* reply : {"454 4.7.0 no\r\n", "354 go\r\n", "\r\n", "x", "502"}) {
        ScriptedSmtpServer server(WithTls(Certificates().serverTls()));
        server.on("STARTTLS").reply(Reply(reply));
        EXPECT_EQ(Deliver(server, JobFor(server, true)), NotConnected()) << reply;
        ExpectNoMailInClear(server);
    }
}

TEST(InjectedBytesTest, AWithdrawnOfferOfTlsGoesOnInClearWhereItIsUsedIfAvailable) {
    ScriptedSmtpServer server(WithTls(Certificates().serverTls()));
    server.on("STARTTLS").reply("454 4.7.0 no\r\n");
    EXPECT_EQ(Deliver(server, JobFor(server, true).security(SMTP_SECURITY_IF_AVAILABLE)), Completed());
    EXPECT_FALSE(server.connection().tls);
}

// The end of TLS

struct End {
    const char* name;
    Then then;
    const char* reason;
};

std::ostream& operator<<(std::ostream& out, const End& end) {
    return out << end.name;
}

class EndOfTlsTest : public testing::TestWithParam<End> {};

TEST_P(EndOfTlsTest, FailsWhatIsUnderWayInEveryPhase) {
    for (const char* phase :
         {"EHLO", "AUTH", step::AuthPlain, "RSET", "MAIL", "RCPT", "DATA", step::EndOfData}) {
        const std::string name = phase;
        ScriptedSmtpServer server(OfferingAccount(true));
        server.on(phase).insideTls().connection(1).reply(Reply().followedBy(GetParam().then));
        const bool connecting = name == "EHLO" || name.starts_with("AUTH");
        const Outcome expected = connecting       ? NotConnected()
                                 : name == "RSET" ? Completed()
                                                  : Failed(GetParam().reason);
        EXPECT_EQ(Deliver(server, WithAccount(JobFor(server, true))), expected) << phase;
        EXPECT_EQ(server.acceptedConnections(), name == "RSET" ? 2 : 1);
    }
}

/// What one read returned is the reply, whatever becomes of the connection.
TEST_P(EndOfTlsTest, BehindTheFirstByteOfTheLastReplyLeavesTheJobCompleted) {
    ScriptedSmtpServer server(OfferingAccount(true));
    server.on(step::EndOfData).reply(Reply("2").followedBy(GetParam().then));
    EXPECT_EQ(Deliver(server, WithAccount(JobFor(server, true))), Completed());
}

INSTANTIATE_TEST_SUITE_P(All, EndOfTlsTest,
                         testing::Values(End{"WithCloseNotify", Then::Close, "SSL Socket is closed"},
                                         End{"WithoutCloseNotify", Then::CloseAbruptly,
                                             "SSL Socket is closed"},
                                         End{"Reset", Then::Reset, "SSL Socket Read Error"}),
                         [](const auto& instance) { return std::string(instance.param.name); });

// The driver's own files

TEST(TlsFilesTest, AnAuthorityFileThatCannotBeUsedFailsTheConnectionAndNothingGoesOnInClear) {
    const TempDir dir;
    const std::string garbage = dir.path() + "/garbage.pem";
    std::ofstream(garbage) << "no certificate\n";
    for (const std::string& file : {std::string(), dir.path() + "/missing.pem", dir.path(), garbage,
                                    std::string("/dev/null"), Certificates().unrelatedKeyFile()}) {
        for (const SmtpSecurityType security : {SMTP_SECURITY_REQUIRED, SMTP_SECURITY_IF_AVAILABLE}) {
            ScriptedSmtpServer server(WithTls(Certificates().serverTls()));
            HostDoubles host;
            EXPECT_EQ(Deliver(server, JobFor(server, true).security(security).caFile(file), host),
                      NotConnected())
                << file;
            EXPECT_TRUE(host.log.contains("Msg[SSL: Verify Location Failed]")) << file;
            ExpectNoMailInClear(server);
        }
    }
}

/// What the process reads as its standard input.
class StandardInput {
public:
    explicit StandardInput(const std::string& text) : m_before(dup(STDIN_FILENO)) {
        int ends[2] = {};
        EXPECT_EQ(pipe(ends), 0);
        EXPECT_EQ(write(ends[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
        dup2(ends[0], STDIN_FILENO);
        close(ends[0]);
        close(ends[1]);
    }
    ~StandardInput() {
        dup2(m_before, STDIN_FILENO);
        close(m_before);
    }
    StandardInput(const StandardInput&) = delete;
    StandardInput& operator=(const StandardInput&) = delete;

    static std::string Left() {
        char bytes[256];
        const ssize_t count = read(STDIN_FILENO, bytes, sizeof(bytes));
        return {bytes, static_cast<std::size_t>(std::max<ssize_t>(count, 0))};
    }

private:
    const int m_before;
};

TEST(TlsFilesTest, AKeyUnderAPassPhraseFailsTheConnectionAndTheHostsInputIsNotAskedForIt) {
    const std::string phrase = std::string(TestCertificates::passPhrase()) + "\n";
    const StandardInput input(phrase);
    const CertificateFiles& client = Certificates().clientWithPassPhrase();
    ScriptedSmtpServer server(WithTls(Certificates().serverTls()));
    HostDoubles host;
    EXPECT_EQ(Deliver(server, JobFor(server, true).clientCertificate(client.certificate, client.key), host),
              NotConnected());
    EXPECT_TRUE(host.log.contains("Msg[SSL: Setting Key file Failed]"));
    EXPECT_EQ(StandardInput::Left(), phrase);
}

TEST(TlsFilesTest, AClientCertificateThatCannotBeUsedFailsTheConnection) {
    const CertificateFiles& client = Certificates().client();
    const struct {
        std::string certificate;
        std::string key;
        const char* error;
    } cases[] = {
        {client.certificate, Certificates().unrelatedKeyFile(),
         "SSL: Private key does not match the certificate public key"},
        {client.certificate, "/missing.pem", "SSL: Setting Key file Failed"},
        {client.certificate, "", "SSL: Setting Key file Failed"},
        {client.certificate, client.certificate, "SSL: Setting Key file Failed"},
        {"/missing.pem", client.key, "SSL: Setting Certificate file Failed"},
        {client.key, client.key, "SSL: Setting Certificate file Failed"},
    };
    for (const auto& files : cases) {
        ScriptedSmtpServer server(WithTls(Certificates().serverTls()));
        HostDoubles host;
        EXPECT_EQ(Deliver(server, JobFor(server, true).clientCertificate(files.certificate, files.key), host),
                  NotConnected());
        EXPECT_TRUE(host.log.contains("Msg[" + std::string(files.error) + "]")) << files.error;
        ExpectNoMailInClear(server);
    }
}

}  // namespace
