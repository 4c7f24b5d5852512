#include <gtest/gtest.h>

#include "EngineKit.h"
#include "TestPorts.h"

using namespace kvengine;
using kvtest::Severity;
using Sec = KvEmailDriver::SmtpSecType;

namespace {

KvEmailDriver::Job JobFor(const ScriptedSmtpServer& server) {
    KvEmailDriver::Job job;
    job.strHost = server.address();
    job.strFrom = "ann@example.org";
    job.strTo = "bob@example.org";
    job.strSubject = "Subject";
    job.strBody = "Text";
    return job;
}

/// What the client sent, with every date taken out.
std::string SentBytes(ScriptedSmtpServer& server) {
    EXPECT_TRUE(server.waitForOpenConnections(0));
    std::string bytes = server.connection().clientBytes();
    const std::string header = "\r\nDate: ";
    for (std::size_t at = bytes.find(header); at != std::string::npos; at = bytes.find(header, at)) {
        at += header.size();
        bytes.replace(at, bytes.find('\r', at) - at, "*");
    }
    return bytes;
}

const std::string kEnvelope = "MAIL FROM: <ann@example.org>\r\nRCPT TO: <bob@example.org>\r\nDATA\r\n";
const std::string kMessage =
    "Date: *\r\nFrom: ann@example.org\r\nTo: bob@example.org\r\nSubject: Subject\r\n\r\nText\r\n.\r\n";
const std::string kMail = kEnvelope + kMessage + "QUIT";

TEST(EngineSingleShot, SendsOnePlainMessageAndLeaves) {
    ScriptedSmtpServer server;
    KvEmailDriver::Job job = JobFor(server);
    Engine engine;
    EXPECT_TRUE(engine.SendAMessage(job));
    EXPECT_EQ(SentBytes(server), kEhlo + kMail);
    EXPECT_EQ(server.connection().incompleteLine, "QUIT");
    EXPECT_EQ(server.connection().end, kvtest::ConnectionEnd::ClientClosed);
    EXPECT_EQ(server.acceptedTransactions(), 1);
    EXPECT_EQ(job.strHost, "127.0.0.1");
    EXPECT_EQ(job.nPort, server.port());
    EXPECT_EQ(job.strFrom, "ann@example.org");
}

TEST(EngineSingleShot, TheDateIsThatOfGetDateString) {
    ScriptedSmtpServer server;
    KvEmailDriver::Job job = JobFor(server);
    Engine engine;
    const std::string before = engine.GetDateString();
    engine.SendAMessage(job);
    const std::string after = engine.GetDateString();
    const std::string data = server.transactions().at(0).data;
    EXPECT_TRUE(data.starts_with("Date: " + before + "\r\n") || data.starts_with("Date: " + after + "\r\n"))
        << data;
}

TEST(EngineSingleShot, WithoutASubjectThereIsNoSubjectLine) {
    ScriptedSmtpServer server;
    KvEmailDriver::Job job = JobFor(server);
    job.strSubject.clear();
    Engine engine;
    EXPECT_TRUE(engine.SendAMessage(job));
    EXPECT_EQ(SentBytes(server),
              kEhlo + kEnvelope +
                  "Date: *\r\nFrom: ann@example.org\r\nTo: bob@example.org\r\n\r\nText\r\n.\r\n"
                  "QUIT");
}

TEST(EngineSingleShot, IsTraced) {
    kvtest::RecordingLog log;
    ScriptedSmtpServer server;
    KvEmailDriver::Job job = JobFor(server);
    Engine engine(&log);
    engine.SendAMessage(job);
    const Texts lines = log.texts(Severity::Trace);
    ASSERT_GE(lines.size(), 3U);
    EXPECT_EQ(lines.front(), "Entering KvEmailDriver::SendAMessage()");
    EXPECT_EQ(lines.back(), "Leaving KvEmailDriver::SendAMessage() with TRUE.");
    EXPECT_EQ(lines[lines.size() - 2], "<= QUIT");
}

TEST(EngineSingleShot, AKnownPortIsKept) {
    ScriptedSmtpServer server;
    KvEmailDriver::Job job = JobFor(server);
    job.strHost = "127.0.0.1";
    job.nPort = server.port();
    Engine engine;
    EXPECT_TRUE(engine.SendAMessage(job));
    EXPECT_EQ(server.acceptedTransactions(), 1);
}

struct Sender {
    const char* name;
    std::string from, line;

    friend void PrintTo(const Sender& each, std::ostream* out) { *out << each.name; }
};

class EngineSender : public testing::TestWithParam<Sender> {};

TEST_P(EngineSender, IsCutOutOfItsText) {
    ScriptedSmtpServer server;
    KvEmailDriver::Job job = JobFor(server);
    job.strFrom = GetParam().from;
    Engine engine;
    EXPECT_TRUE(engine.SendAMessage(job));
    const std::string bytes = SentBytes(server);
    EXPECT_TRUE(bytes.starts_with(kEhlo + GetParam().line + "\r\nRCPT TO: <bob@example.org>\r\n")) << bytes;
    EXPECT_NE(bytes.find("\r\nFrom: " + GetParam().from + "\r\n"), std::string::npos) << bytes;
}

// The cut begins at the first "<" and is as long as the position of the last ">".
INSTANTIATE_TEST_SUITE_P(
    All, EngineSender,
    testing::Values(Sender{"Address", "ann@example.org", "MAIL FROM: <ann@example.org>"},
                    Sender{"DisplayName", "Ann <ann@example.org>", "MAIL FROM: <<ann@example.org>>"},
                    Sender{"BracketsOnly", "<ann@b>", "MAIL FROM: <<ann@b>"},
                    Sender{"TextBehindTheAddress", "Ann <a@b> or so", "MAIL FROM: <<a@b> or>"},
                    Sender{"TwoAddresses", "A <b> <c@d>", "MAIL FROM: <<b> <c@d>>"},
                    Sender{"OnlyAClosingBracket", "ann>", "MAIL FROM: <ann>>"},
                    Sender{"ClosedBeforeItOpens", "a>b<c", "MAIL FROM: <<>"}),
    [](const auto& each) { return each.param.name; });

TEST(EngineSingleShot, ASenderWithoutAClosingBracketIsRefusedAfterTheAuthentication) {
    ScriptedSmtpServer server(Offering({"AUTH PLAIN"}));
    KvEmailDriver::Job job = JobFor(server);
    job.strFrom = "Ann <ann@example.org";
    job.strUser = "ann";
    job.strPassword = "secret";
    Engine engine;
    EXPECT_EQ(OutcomeOf([&] { engine.SendAMessage(job); }),
              Smtp(820, "Malformed FROM email address: Ann <ann@example.org"));
    EXPECT_EQ(SentBytes(server), kEhlo + kAuthPlain);
}

struct Shot {
    const char* name;
    Sec mode;
    SmtpServerOptions options;
    std::string before;

    friend void PrintTo(const Shot& each, std::ostream* out) { *out << each.name; }
};

class EngineShot : public testing::TestWithParam<Shot> {};

TEST_P(EngineShot, PreparesTheSession) {
    ScriptedSmtpServer server(GetParam().options);
    KvEmailDriver::Job job = JobFor(server);
    job.eSecType = GetParam().mode;
    job.strUser = "ann";
    job.strPassword = "secret";
    TlsEngine engine;
    EXPECT_TRUE(engine.SendAMessage(job));
    EXPECT_EQ(SentBytes(server), kEhlo + GetParam().before + kMail);
    EXPECT_EQ(server.acceptedTransactions(), 1);
}

const std::string kSecure = "STARTTLS\r\n" + kEhlo;

INSTANTIATE_TEST_SUITE_P(
    All, EngineShot,
    testing::Values(Shot{"Plain", KvEmailDriver::SecNone, Offering({"AUTH LOGIN PLAIN"}), kAuthPlain},
                    Shot{"Login", KvEmailDriver::SecNone, Offering({"AUTH LOGIN"}), kAuthLogin},
                    Shot{"NoAuth", KvEmailDriver::SecNone, Offering({}), ""},
                    Shot{"OnDemandUndemanded", KvEmailDriver::SecTLSOnDemand, WithTls({{"ann", "secret"}}),
                         kAuthPlain},
                    Shot{"Clear", KvEmailDriver::SecClear, WithTls({{"ann", "secret"}}), kAuthPlain},
                    Shot{"IfAvailable", KvEmailDriver::SecTLSIfAvailable, WithTls({{"ann", "secret"}}),
                         kSecure + kAuthPlain},
                    Shot{"Required", KvEmailDriver::SecTLSRequired, WithTls(), kSecure},
                    Shot{"IfAvailableButNotOffered", KvEmailDriver::SecTLSIfAvailable,
                         Offering({"AUTH PLAIN"}), kAuthPlain},
                    Shot{"IfAvailableButRefused", KvEmailDriver::SecTLSIfAvailable, Offering({"STARTTLS"}),
                         "STARTTLS\r\n"}),
    [](const auto& each) { return each.param.name; });

TEST(EngineSingleShot, RequiredTlsThatIsNotOfferedEndsIt) {
    ScriptedSmtpServer server(Offering({"AUTH PLAIN"}));
    KvEmailDriver::Job job = JobFor(server);
    job.eSecType = KvEmailDriver::SecTLSRequired;
    Engine engine;
    EXPECT_EQ(OutcomeOf([&] { engine.SendAMessage(job); }), Smtp(815, "TLS Required but not supported"));
    EXPECT_EQ(SentBytes(server), kEhlo);
}

TEST(EngineSingleShot, ARefusedEhloIsFollowedByHelo) {
    ScriptedSmtpServer server;
    server.on("EHLO").reply("500 what\r\n");
    KvEmailDriver::Job job = JobFor(server);
    Engine engine;
    EXPECT_TRUE(engine.SendAMessage(job));
    EXPECT_EQ(SentBytes(server), kEhlo + kHelo + kMail);
}

class EngineShotRefused : public testing::TestWithParam<const char*> {};

TEST_P(EngineShotRefused, ClosesTheSocketAndIsPassedOn) {
    ScriptedSmtpServer server(Offering({"AUTH PLAIN"}));
    server.on(GetParam()).reply("554 no\r\n");
    KvEmailDriver::Job job = JobFor(server);
    job.strUser = "ann";
    job.strPassword = "secret";
    Engine engine;
    EXPECT_EQ(OutcomeOf([&] { engine.SendAMessage(job); }), Smtp(554, "no\r\n"));
    EXPECT_EQ(SentBytes(server).find("QUIT"), std::string::npos);
    EXPECT_EQ(server.connection().end, kvtest::ConnectionEnd::ClientClosed);
}

TEST_P(EngineShotRefused, ADemandForTlsIsPassedOnInEveryOtherMode) {
    ScriptedSmtpServer server(WithTls({{"ann", "secret"}}));
    server.on(GetParam()).reply(kDemand);
    for (const Sec mode : {KvEmailDriver::SecNone, KvEmailDriver::SecClear, KvEmailDriver::SecTLSIfAvailable,
                           KvEmailDriver::SecTLSRequired}) {
        KvEmailDriver::Job job = JobFor(server);
        job.eSecType = mode;
        job.strUser = "ann";
        job.strPassword = "secret";
        TlsEngine engine;
        EXPECT_EQ(OutcomeOf([&] { engine.SendAMessage(job); }), Smtp(530, kDemandText)) << mode;
        EXPECT_TRUE(server.waitForOpenConnections(0));
    }
}

INSTANTIATE_TEST_SUITE_P(All, EngineShotRefused,
                         testing::Values("AUTH", step::AuthPlain, "MAIL", "RCPT", "DATA", step::EndOfData),
                         [](const auto& each) {
                             std::string name = each.param;
                             std::erase(name, '-');
                             return name;
                         });

class EngineShotDemanded : public testing::TestWithParam<const char*> {};

TEST_P(EngineShotDemanded, StartsTlsAndGoesOnWithTheAuthentication) {
    ScriptedSmtpServer server(WithTls({{"ann", "secret"}}));
    server.on(GetParam()).inClear().reply(kDemand);
    KvEmailDriver::Job job = JobFor(server);
    job.eSecType = KvEmailDriver::SecTLSOnDemand;
    job.strUser = "ann";
    job.strPassword = "secret";
    TlsEngine engine;
    EXPECT_TRUE(engine.SendAMessage(job));
    const std::string bytes = SentBytes(server);
    EXPECT_TRUE(bytes.ends_with(kSecure + kAuthPlain + kMail)) << bytes;
    EXPECT_EQ(server.acceptedTransactions(), 1);
    EXPECT_TRUE(server.transactions().back().insideTls);
    EXPECT_TRUE(server.transactions().back().authenticated);
}

TEST_P(EngineShotDemanded, FailsWhenStartTlsIsNotOffered) {
    ScriptedSmtpServer server(Offering({"AUTH PLAIN"}));
    server.on(GetParam()).reply(kDemand);
    KvEmailDriver::Job job = JobFor(server);
    job.eSecType = KvEmailDriver::SecTLSOnDemand;
    job.strUser = "ann";
    job.strPassword = "secret";
    Engine engine;
    EXPECT_EQ(OutcomeOf([&] { engine.SendAMessage(job); }),
              Smtp(816, "STARTTLS Failed after Must Start TLS Response"));
    EXPECT_EQ(SentBytes(server).find("STARTTLS"), std::string::npos);
}

TEST_P(EngineShotDemanded, FailsWhenStartTlsIsRefused) {
    ScriptedSmtpServer server(WithTls({{"ann", "secret"}}));
    server.on(GetParam()).reply(kDemand);
    server.on("STARTTLS").reply("454 not now\r\n");
    KvEmailDriver::Job job = JobFor(server);
    job.eSecType = KvEmailDriver::SecTLSOnDemand;
    job.strUser = "ann";
    job.strPassword = "secret";
    TlsEngine engine;
    EXPECT_EQ(OutcomeOf([&] { engine.SendAMessage(job); }),
              Smtp(816, "STARTTLS Failed after Must Start TLS Response"));
    EXPECT_TRUE(SentBytes(server).ends_with("STARTTLS\r\n"));
}

TEST_P(EngineShotDemanded, ADemandInsideTlsEndsWithTheSecondStartTls) {
    ScriptedSmtpServer server(WithTls({{"ann", "secret"}}));
    server.on(GetParam()).reply(kDemand);
    KvEmailDriver::Job job = JobFor(server);
    job.eSecType = KvEmailDriver::SecTLSOnDemand;
    job.strUser = "ann";
    job.strPassword = "secret";
    TlsEngine engine;
    EXPECT_EQ(OutcomeOf([&] { engine.SendAMessage(job); }),
              Smtp(816, "STARTTLS Failed after Must Start TLS Response"));
    EXPECT_EQ(server.commandCount("STARTTLS"), 2);
    EXPECT_TRUE(server.waitForOpenConnections(0));
}

INSTANTIATE_TEST_SUITE_P(All, EngineShotDemanded,
                         testing::Values("AUTH", step::AuthPlain, "MAIL", "RCPT", "DATA", step::EndOfData),
                         [](const auto& each) {
                             std::string name = each.param;
                             std::erase(name, '-');
                             return name;
                         });

TEST(EngineSingleShot, ARefusedConnectionIsPassedOn) {
    const kvtest::RefusingPort port;
    KvEmailDriver::Job job;
    job.strHost = port.address();
    Engine engine;
    EXPECT_EQ(OutcomeOf([&] { engine.SendAMessage(job); }), Io("Socket Connecting Failed"));
}

TEST(EngineSingleShot, AnUnfinishedLoginIsNotAFailure) {
    ScriptedSmtpServer server(Offering({"AUTH LOGIN"}));
    server.on("AUTH").reply("235 who asks\r\n");
    KvEmailDriver::Job job = JobFor(server);
    job.strUser = "ann";
    job.strPassword = "secret";
    Engine engine;
    EXPECT_TRUE(engine.SendAMessage(job));
    EXPECT_EQ(SentBytes(server), kEhlo + "AUTH LOGIN\r\n" + kMail);
    EXPECT_EQ(engine.m_nLastError, 819);
    EXPECT_EQ(engine.m_strLastError, "235 who asks\r\n");
}

TEST(EngineSingleShot, AnIncompleteRecordIsLeftToTheServer) {
    ScriptedSmtpServer server;
    KvEmailDriver::Job job = JobFor(server);
    job.strFrom.clear();
    job.strTo.clear();
    job.strBody = "x";
    Engine engine;
    EXPECT_TRUE(engine.SendAMessage(job));
    EXPECT_TRUE(SentBytes(server).starts_with(kEhlo + "MAIL FROM: <>\r\nRCPT TO: <>\r\nDATA\r\nDate: *\r\n"
                                                      "From: \r\nTo: \r\n"));
}

}  // namespace
