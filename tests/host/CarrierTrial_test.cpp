#include "CarrierTrial.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ScriptedSmtpServer.h"
#include "TestCertificates.h"
#include "TestPorts.h"

namespace kvhost {
namespace {

using kvtest::ScriptedSmtpServer;
using kvtest::SmtpServerOptions;
using kvtest::TestCertificates;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
namespace step = kvtest::step;

constexpr Milliseconds kLimit{20000};
/// For servers that stay silent: the time that passes is what is tested.
constexpr Milliseconds kShortLimit{150};

// The certificates of the tests end within days, which a probe warns of.

const char* const kUser = "pager@example.org";
const char* const kPassword = "s3cret-word";

SmtpServerOptions Plain() {
    SmtpServerOptions options;
    options.accounts = {{kUser, kPassword}};
    return options;
}

SmtpServerOptions WithTls() {
    SmtpServerOptions options = Plain();
    options.tls = TestCertificates::Shared().serverTls();
    return options;
}

Carrier CarrierOf(const std::string& server, SmtpSecurityType security) {
    Carrier carrier;
    carrier.name = "pager";
    carrier.server = server;
    carrier.security = security;
    carrier.sender = "ann@example.org";
    carrier.user = kUser;
    carrier.password = kPassword;
    carrier.caFile = TestCertificates::Shared().caFile();
    return carrier;
}

Carrier CarrierOf(const ScriptedSmtpServer& server, SmtpSecurityType security) {
    return CarrierOf(server.address(), security);
}

ProbeReport Probe(const Carrier& carrier, Milliseconds limit = kLimit) {
    return CarrierTrial(carrier, limit).Run();
}

ProbeReport Probe(const ScriptedSmtpServer& server, SmtpSecurityType security, Milliseconds limit = kLimit) {
    return Probe(CarrierOf(server, security), limit);
}

std::vector<std::string> StepsOf(const ProbeReport& report) {
    std::vector<std::string> steps;
    for (const ProbeStep& step : report.steps) {
        steps.push_back(step.name + " " + ProbeStatusName(step.status));
    }
    return steps;
}

const ProbeStep& StepOf(const ProbeReport& report, const std::string& name) {
    for (const ProbeStep& step : report.steps) {
        if (step.name == name) {
            return step;
        }
    }
    throw std::runtime_error("no step " + name + " in " + FormatProbe(report));
}

TEST(CarrierTrialTest, GoesTheWholeWayThroughTlsAndSendsNoMail) {
    const ScriptedSmtpServer server(WithTls());
    const ProbeReport report = Probe(server, SMTP_SECURITY_REQUIRED);
    EXPECT_TRUE(report.IsUsable()) << FormatProbe(report);
    EXPECT_THAT(StepsOf(report), ElementsAre("address ok", "connect ok", "greeting ok", "EHLO ok",
                                             "STARTTLS warning", "EHLO in TLS ok", "AUTH ok", "QUIT ok"));
    EXPECT_THAT(StepOf(report, "STARTTLS").details, Contains(HasSubstr("the certificate ends in ")));
    EXPECT_EQ(StepOf(report, "address").text, server.address());
    EXPECT_EQ(StepOf(report, "greeting").text, "220 test.example ESMTP");
    EXPECT_EQ(StepOf(report, "AUTH").text, "PLAIN accepted for pager@example.org");
    EXPECT_THAT(report.extensions, ElementsAre("AUTH PLAIN LOGIN"));
    EXPECT_EQ(server.commandCount("MAIL"), 0);
    EXPECT_EQ(server.commandCount("QUIT"), 1);
}

TEST(CarrierTrialTest, TellsOfTlsAndItsCertificate) {
    const ScriptedSmtpServer server(WithTls());
    const ProbeReport report = Probe(server, SMTP_SECURITY_REQUIRED);
    ASSERT_TRUE(report.tls);
    EXPECT_EQ(report.tls->version, "TLSv1.3");
    EXPECT_THAT(report.tls->cipher, HasSubstr("TLS_"));
    EXPECT_EQ(report.tls->subject, "CN=localhost");
    EXPECT_THAT(report.tls->issuer, HasSubstr("CN="));
    EXPECT_THAT(report.tls->names, ElementsAre("localhost", "127.0.0.1"));
    EXPECT_TRUE(report.tls->IsVerified());
    EXPECT_TRUE(report.tls->isForHost);
    EXPECT_THAT(report.tls->notAfter, testing::MatchesRegex("20..-..-..T..:..:..Z"));
    EXPECT_THAT(StepOf(report, "STARTTLS").details,
                AllOf(Contains("subject CN=localhost"), Contains("for localhost, 127.0.0.1")));
}

TEST(CarrierTrialTest, UsesLoginWhereThereIsNoPlain) {
    SmtpServerOptions options = Plain();
    options.extensions = {{"AUTH LOGIN"}};
    const ScriptedSmtpServer server(options);
    const ProbeReport report = Probe(server, SMTP_SECURITY_CLEAR);
    EXPECT_TRUE(report.IsUsable()) << FormatProbe(report);
    EXPECT_EQ(StepOf(report, "AUTH").text, "LOGIN accepted for pager@example.org");
    EXPECT_EQ(report.auth->mechanism, "LOGIN");
}

TEST(CarrierTrialTest, WarnsOfAPasswordInClear) {
    const ScriptedSmtpServer server(Plain());
    const ProbeReport report = Probe(server, SMTP_SECURITY_CLEAR);
    EXPECT_THAT(StepsOf(report), Contains("AUTH warning"));
    EXPECT_THAT(StepOf(report, "AUTH").details, ElementsAre("user and password travel in clear"));
    EXPECT_EQ(StepOf(report, "STARTTLS").text, "never used with security clear");
}

TEST(CarrierTrialTest, ACarrierWithoutAnAccountSkipsAuth) {
    const ScriptedSmtpServer server(Plain());
    Carrier carrier = CarrierOf(server, SMTP_SECURITY_CLEAR);
    carrier.user.clear();
    carrier.password.clear();
    const ProbeReport report = Probe(carrier);
    EXPECT_TRUE(report.IsUsable());
    EXPECT_THAT(StepsOf(report), Contains("AUTH skipped"));
    EXPECT_EQ(server.commandCount("AUTH"), 0);
}

TEST(CarrierTrialTest, AnUnknownHostFailsAtTheAddress) {
    const ProbeReport report = Probe(CarrierOf("no-such-host.invalid:25", SMTP_SECURITY_CLEAR));
    EXPECT_THAT(StepsOf(report), ElementsAre("address failed"));
    EXPECT_THAT(report.WhyNotUsable(), HasSubstr("address: no IPv4 address for no-such-host.invalid: "));
}

TEST(CarrierTrialTest, ARefusedConnectionFails) {
    const ProbeReport report =
        Probe(CarrierOf("127.0.0.1:" + std::to_string(kvtest::FreePort()), SMTP_SECURITY_CLEAR));
    EXPECT_EQ(report.WhyNotUsable(), "connect: no connection: Connection refused");
}

TEST(CarrierTrialTest, ASilentServerFailsWhenTheTimeIsOver) {
    ScriptedSmtpServer server(Plain());
    server.on(step::Greeting).reply(kvtest::Reply().thenStall());
    const ProbeReport report = Probe(server, SMTP_SECURITY_CLEAR, kShortLimit);
    EXPECT_EQ(report.WhyNotUsable(), "greeting: no answer within 150 ms");
}

TEST(CarrierTrialTest, AServerThatFallsSilentInTheMiddleOfAReplyFails) {
    ScriptedSmtpServer server(Plain());
    server.on("EHLO").reply(kvtest::Reply("250-test.example\r\n250-SI").thenStall());
    const ProbeReport report = Probe(server, SMTP_SECURITY_CLEAR, kShortLimit);
    EXPECT_EQ(report.WhyNotUsable(), "EHLO: no answer within 150 ms");
}

TEST(CarrierTrialTest, AServerThatClosesFails) {
    ScriptedSmtpServer server(Plain());
    server.on(step::Greeting).reply(kvtest::Reply().thenClose());
    EXPECT_EQ(Probe(server, SMTP_SECURITY_CLEAR).WhyNotUsable(),
              "greeting: the server closed the connection");
}

TEST(CarrierTrialTest, AGreetingThatIsNoReplyFails) {
    ScriptedSmtpServer server(Plain());
    server.on(step::Greeting).reply("SSH-2.0-OpenSSH\r\n");
    EXPECT_EQ(Probe(server, SMTP_SECURITY_CLEAR).WhyNotUsable(),
              "greeting: the server sends what is no SMTP reply: SSH-2.0-OpenSSH");
}

TEST(CarrierTrialTest, AGreetingThatRefusesFails) {
    ScriptedSmtpServer server(Plain());
    server.on(step::Greeting).reply("421 4.3.2 not now\r\n");
    EXPECT_EQ(Probe(server, SMTP_SECURITY_CLEAR).WhyNotUsable(),
              "greeting: the server takes no mail now: 421 4.3.2 not now");
}

TEST(CarrierTrialTest, AReplyWithoutEndFails) {
    ScriptedSmtpServer server(Plain());
    server.on(step::Greeting).reply(std::string(200000, '2'));
    EXPECT_EQ(Probe(server, SMTP_SECURITY_CLEAR).WhyNotUsable(),
              "greeting: the server sends a reply without end");
}

TEST(CarrierTrialTest, HostileTextIsMadeVisible) {
    ScriptedSmtpServer server(Plain());
    server.on(step::Greeting).reply("220 \x1B[2J\xFF\tx\r\n");
    EXPECT_EQ(StepOf(Probe(server, SMTP_SECURITY_CLEAR), "greeting").text, "220 <ESC>[2J<FF><TAB>x");
}

TEST(CarrierTrialTest, WhereEhloIsRefusedItSaysHelo) {
    ScriptedSmtpServer server(Plain());
    server.on("EHLO").reply("502 5.5.1 unknown\r\n");
    Carrier carrier = CarrierOf(server, SMTP_SECURITY_CLEAR);
    carrier.user.clear();
    const ProbeReport report = Probe(carrier);
    EXPECT_TRUE(report.IsUsable()) << FormatProbe(report);
    EXPECT_THAT(
        StepOf(report, "EHLO").details,
        ElementsAre("refused, so the driver says HELO, and knows of no extensions: 502 5.5.1 unknown"));
}

TEST(CarrierTrialTest, AServerThatRefusesHeloTooFails) {
    ScriptedSmtpServer server(Plain());
    server.on("EHLO").reply("502 5.5.1 unknown\r\n");
    server.on("HELO").reply("550 5.7.1 go away\r\n");
    EXPECT_EQ(Probe(server, SMTP_SECURITY_CLEAR).WhyNotUsable(),
              "EHLO: the server refuses EHLO and HELO: 550 5.7.1 go away");
}

TEST(CarrierTrialTest, AReplyInPiecesIsReadWhollyAndWarnedOf) {
    ScriptedSmtpServer server(Plain());
    server.on("EHLO").reply(
        kvtest::Reply("250-test.example\r\n250-SIZE 10\r\n250 AUTH PLAIN\r\n").byteByByte());
    const ProbeReport report = Probe(server, SMTP_SECURITY_CLEAR);
    EXPECT_TRUE(report.IsUsable()) << FormatProbe(report);
    EXPECT_THAT(report.extensions, ElementsAre("SIZE 10", "AUTH PLAIN"));
    EXPECT_EQ(StepOf(report, "EHLO").status, ProbeStatus::Warning);
    EXPECT_THAT(StepOf(report, "EHLO").details, Contains(HasSubstr("the driver takes what one read brings")));
}

TEST(CarrierTrialTest, WithoutStartTlsRequiredFailsAndShowsNoPassword) {
    const ScriptedSmtpServer server(Plain());
    EXPECT_EQ(Probe(server, SMTP_SECURITY_REQUIRED).WhyNotUsable(),
              "STARTTLS: not offered; with security required the driver gives the connection up");
    EXPECT_EQ(server.commandCount("AUTH"), 0);
}

TEST(CarrierTrialTest, WithoutStartTlsIfAvailableGoesOnWithAWarning) {
    const ScriptedSmtpServer server(Plain());
    const ProbeReport report = Probe(server, SMTP_SECURITY_IF_AVAILABLE);
    EXPECT_TRUE(report.IsUsable());
    EXPECT_THAT(StepsOf(report), Contains("STARTTLS warning"));
}

TEST(CarrierTrialTest, ARefusedStartTlsFailsWhereItIsRequired) {
    ScriptedSmtpServer server(WithTls());
    server.on("STARTTLS").reply("454 4.7.0 no TLS today\r\n");
    EXPECT_EQ(Probe(server, SMTP_SECURITY_REQUIRED).WhyNotUsable(),
              "STARTTLS: refused; the driver gives the connection up: 454 4.7.0 no TLS today");
    const ProbeReport report = Probe(server, SMTP_SECURITY_IF_AVAILABLE);
    EXPECT_TRUE(report.IsUsable()) << FormatProbe(report);
    EXPECT_THAT(StepsOf(report), Contains("STARTTLS warning"));
}

/// A probe against a server with this certificate, which it must not trust: it stops, and says no password.
void ExpectUnverified(const kvtest::CertificateFiles& files, const std::string& problem) {
    for (const SmtpSecurityType security : {SMTP_SECURITY_REQUIRED, SMTP_SECURITY_IF_AVAILABLE}) {
        SmtpServerOptions options = WithTls();
        options.tls = TestCertificates::Shared().tlsWith(files);
        const ScriptedSmtpServer server(options);
        const ProbeReport report = Probe(server, security);
        EXPECT_EQ(
            report.WhyNotUsable(),
            "STARTTLS: the certificate cannot be verified by ca_file; the driver gives the connection up: " +
                problem);
        EXPECT_EQ(server.commandCount("AUTH"), 0);
        EXPECT_FALSE(report.tls->IsVerified());
        EXPECT_THAT(report.tls->subject, Not(IsEmpty()));
    }
}

TEST(CarrierTrialTest, ACertificateOfAnotherAuthorityFails) {
    ExpectUnverified(TestCertificates::Shared().fromOtherCa(), "unable to get local issuer certificate");
}

TEST(CarrierTrialTest, ASelfSignedCertificateFails) {
    ExpectUnverified(TestCertificates::Shared().selfSigned(), "self-signed certificate");
}

TEST(CarrierTrialTest, AnExpiredCertificateFails) {
    ExpectUnverified(TestCertificates::Shared().expired(), "certificate has expired");
}

TEST(CarrierTrialTest, ACertificateForAnotherHostIsWarnedOf) {
    SmtpServerOptions options = WithTls();
    options.tls = TestCertificates::Shared().tlsWith(TestCertificates::Shared().client());
    const ScriptedSmtpServer server(options);
    const ProbeReport report = Probe(server, SMTP_SECURITY_REQUIRED);
    ASSERT_TRUE(report.tls);
    EXPECT_FALSE(report.tls->isForHost);
    EXPECT_THAT(
        StepOf(report, "STARTTLS").details,
        Contains("the certificate is not for 127.0.0.1; the driver verifies the chain alone and goes on"));
}

TEST(CarrierTrialTest, AServerThatBreaksTheHandshakeFails) {
    ScriptedSmtpServer server(WithTls());
    server.on("STARTTLS").reply(kvtest::Reply("220 go\r\n").thenStartTlsGarbage());
    EXPECT_THAT(Probe(server, SMTP_SECURITY_REQUIRED).WhyNotUsable(), HasSubstr("STARTTLS: TLS failed: "));
    server.on("STARTTLS").reply(kvtest::Reply("220 go\r\n").thenClose());
    EXPECT_EQ(Probe(server, SMTP_SECURITY_REQUIRED).WhyNotUsable(),
              "STARTTLS: the server closed the connection");
}

TEST(CarrierTrialTest, WhatComesInClearBehindTheReplyToStartTlsFails) {
    ScriptedSmtpServer server(WithTls());
    server.on("STARTTLS").reply(kvtest::Reply("220 go\r\n250 injected\r\n").thenStall());
    EXPECT_EQ(Probe(server, SMTP_SECURITY_REQUIRED).WhyNotUsable(),
              "STARTTLS: the server sent more than its reply before TLS");
}

TEST(CarrierTrialTest, TheClientCertificateIsShown) {
    const TestCertificates& certificates = TestCertificates::Shared();
    SmtpServerOptions options = Plain();
    options.tls = certificates.tlsDemandingClientCertificate();
    const ScriptedSmtpServer server(options);
    Carrier carrier = CarrierOf(server, SMTP_SECURITY_REQUIRED);
    EXPECT_FALSE(Probe(carrier).IsUsable());
    carrier.certFile = certificates.client().certificate;
    carrier.keyFile = certificates.client().key;
    const ProbeReport report = Probe(carrier);
    EXPECT_TRUE(report.IsUsable()) << FormatProbe(report);
}

TEST(CarrierTrialTest, FilesThatCannotBeUsedFail) {
    const TestCertificates& certificates = TestCertificates::Shared();
    const ScriptedSmtpServer server(WithTls());
    Carrier carrier = CarrierOf(server, SMTP_SECURITY_REQUIRED);
    carrier.certFile = certificates.client().certificate;
    carrier.keyFile = certificates.unrelatedKeyFile();
    EXPECT_THAT(Probe(carrier).WhyNotUsable(),
                HasSubstr("STARTTLS: the key_file has no key that can be used: "));
    carrier.certFile = certificates.unrelatedKeyFile();
    EXPECT_THAT(Probe(carrier).WhyNotUsable(),
                HasSubstr("STARTTLS: the cert_file has no certificate that can be used: "));
    carrier.caFile = certificates.unrelatedKeyFile();
    EXPECT_THAT(Probe(carrier).WhyNotUsable(),
                HasSubstr("STARTTLS: the ca_file has no certificate that can be used: "));
    carrier.caFile.clear();
    EXPECT_THAT(Probe(carrier).WhyNotUsable(), HasSubstr("STARTTLS: there is no ca_file"));
    carrier.caFile = certificates.caFile();
    carrier.certFile = certificates.clientWithPassPhrase().certificate;
    carrier.keyFile = certificates.clientWithPassPhrase().key;
    EXPECT_THAT(Probe(carrier).WhyNotUsable(),
                HasSubstr("STARTTLS: the key_file has no key that can be used: "));
}

TEST(CarrierTrialTest, ARefusedPasswordFailsAndStaysSecret) {
    for (const char* mechanism : {"PLAIN", "LOGIN"}) {
        SmtpServerOptions options = WithTls();
        options.accounts = {{kUser, "another"}};
        options.extensions = {{"STARTTLS"}};
        options.extensionsInsideTls = {{std::string("AUTH ") + mechanism}};
        ScriptedSmtpServer server(options);
        const std::string echo = std::string("535 5.7.8 not ") + kPassword + "\r\n";
        server.on(step::AuthPlain).reply(echo);
        server.on(step::AuthPassword).reply(echo);
        const ProbeReport report = Probe(server, SMTP_SECURITY_REQUIRED);
        EXPECT_EQ(report.WhyNotUsable(),
                  std::string("AUTH: ") + mechanism +
                      " refused; the driver gives the connection up: 535 5.7.8 not [masked]");
        EXPECT_FALSE(report.auth->isAccepted);
        EXPECT_THAT(FormatProbe(report) + FormatProbeJson(report, 1), Not(HasSubstr(kPassword)));
    }
}

TEST(CarrierTrialTest, AnAccountWithoutAnOfferOfAuthFails) {
    SmtpServerOptions options = Plain();
    options.extensions = {{"SIZE 1", "AUTH CRAM-MD5"}};
    const ScriptedSmtpServer server(options);
    EXPECT_EQ(
        Probe(server, SMTP_SECURITY_CLEAR).WhyNotUsable(),
        "AUTH: neither PLAIN nor LOGIN is offered; the driver goes on without user and password, which the "
        "carrier has");
}

TEST(CarrierTrialTest, AnOfferInLowerCaseIsNoneForTheDriver) {
    SmtpServerOptions options = Plain();
    options.extensions = {{"auth plain"}};
    const ScriptedSmtpServer server(options);
    EXPECT_THAT(Probe(server, SMTP_SECURITY_CLEAR).WhyNotUsable(),
                HasSubstr("AUTH: neither PLAIN nor LOGIN"));
}

TEST(CarrierTrialTest, AStrangeChallengeFails) {
    SmtpServerOptions options = Plain();
    options.extensions = {{"AUTH LOGIN"}};
    ScriptedSmtpServer server(options);
    server.on("AUTH").reply("334 dXNlcm5hbWU6\r\n");
    EXPECT_THAT(Probe(server, SMTP_SECURITY_CLEAR).WhyNotUsable(), HasSubstr("the driver does not know"));
    server.on("AUTH").reply("250 what?\r\n");
    EXPECT_THAT(Probe(server, SMTP_SECURITY_CLEAR).WhyNotUsable(), HasSubstr("the driver does not know"));
}

TEST(CarrierTrialTest, OnDemandUsesTlsWhereTheAccountNeedsIt) {
    SmtpServerOptions options = WithTls();
    options.extensions = {{"STARTTLS"}};
    options.extensionsInsideTls = {{"AUTH PLAIN"}};
    const ScriptedSmtpServer server(options);
    const ProbeReport report = Probe(server, SMTP_SECURITY_ON_DEMAND);
    EXPECT_TRUE(report.IsUsable()) << FormatProbe(report);
    EXPECT_THAT(StepsOf(report), Contains("EHLO in TLS ok"));
}

TEST(CarrierTrialTest, OnDemandWaitsForADemandOtherwise) {
    const ScriptedSmtpServer server(WithTls());
    const ProbeReport report = Probe(server, SMTP_SECURITY_ON_DEMAND);
    EXPECT_TRUE(report.IsUsable()) << FormatProbe(report);
    EXPECT_THAT(StepsOf(report), AllOf(Contains("STARTTLS skipped"), Contains("AUTH warning")));
}

TEST(CarrierTrialTest, OnDemandWarnsOfAnAuthThatDemandsTls) {
    ScriptedSmtpServer server(WithTls());
    server.on("AUTH").reply("530 5.7.0 Must issue a STARTTLS command first\r\n");
    const ProbeReport report = Probe(server, SMTP_SECURITY_ON_DEMAND);
    EXPECT_FALSE(report.IsUsable());
    EXPECT_THAT(StepOf(report, "AUTH").details,
                Contains(HasSubstr("the driver repeats AUTH without end here")));
}

TEST(CarrierTrialTest, AFailedQuitIsAWarningAlone) {
    ScriptedSmtpServer server(Plain());
    server.on("QUIT").reply(kvtest::Reply().thenClose());
    const ProbeReport report = Probe(server, SMTP_SECURITY_CLEAR);
    EXPECT_TRUE(report.IsUsable());
    EXPECT_THAT(StepOf(report, "QUIT").details,
                ElementsAre("the server closed the connection; the driver never says QUIT"));
}

}  // namespace
}  // namespace kvhost
