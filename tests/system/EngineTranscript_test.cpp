#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "KvEmailDriver.h"
#include "RecordingLog.h"
#include "system/EngineDoubles.h"
#include "system/ExpectedMail.h"
#include "system/Transcript.h"

// Whole conversations of the engine, both sides, byte for byte; also with replies cut at awkward places.

namespace {

using kvtest::CaFile;
using kvtest::Gate;
using kvtest::OfferingAuth;
using kvtest::OpenEngine;
using kvtest::RecordingLog;
using kvtest::Reply;
using kvtest::ScriptedSmtpServer;
using kvtest::SimpleMessage;
using kvtest::SmtpErrorOf;
using kvtest::SmtpServerOptions;
using kvtest::TestCertificates;
using kvtest::TranscriptOf;
namespace step = kvtest::step;

/// A server that offers STARTTLS and AUTH with `mechanisms` in clear, and AUTH inside TLS.
SmtpServerOptions OfferingBoth(const std::string& mechanisms) {
    SmtpServerOptions options;
    options.extensions = {{"STARTTLS", "AUTH " + mechanisms}};
    options.extensionsInsideTls = {{"AUTH " + mechanisms}};
    options.accounts = {{"ann", "secret"}};
    options.tls = TestCertificates::Shared().serverTls();
    return options;
}

/// Connects, sends one mail, probes and closes.
std::string Conversation(ScriptedSmtpServer& server, KvEmailDriver::SmtpSecType mode, const std::string& user,
                         const std::string& password) {
    OpenEngine engine(nullptr, CaFile());
    engine.Connect(server.address(), user, password, mode);
    engine.SendMail("ann@example.org", {"bob@example.org"}, "Subject", "Text", {});
    EXPECT_TRUE(engine.IsAlive());
    engine.Close();
    EXPECT_TRUE(server.waitForOpenConnections(0));
    return TranscriptOf(server.connection());
}

const std::string MailInClear =
    "C: MAIL FROM: <ann@example.org>\r\n"
    "S: 250 2.1.0 sender ok\r\n"
    "C: RCPT TO: <bob@example.org>\r\n"
    "S: 250 2.1.5 recipient ok\r\n"
    "C: DATA\r\n"
    "S: 354 go ahead\r\n"
    "C: " +
    SimpleMessage +
    ".\r\n"
    "S: 250 2.0.0 queued\r\n"
    "C: RSET\r\n"
    "S: 250 2.0.0 reset\r\n";

const std::string MailInsideTls =
    "C*: MAIL FROM: <ann@example.org>\r\n"
    "S*: 250 2.1.0 sender ok\r\n"
    "C*: RCPT TO: <bob@example.org>\r\n"
    "S*: 250 2.1.5 recipient ok\r\n"
    "C*: DATA\r\n"
    "S*: 354 go ahead\r\n"
    "C*: " +
    SimpleMessage +
    ".\r\n"
    "S*: 250 2.0.0 queued\r\n"
    "C*: RSET\r\n"
    "S*: 250 2.0.0 reset\r\n";

const std::string HelloInClear =
    "S: 220 test.example ESMTP\r\n"
    "C: EHLO [127.0.0.1]\r\n"
    "S: 250-test.example\r\n250-STARTTLS\r\n250 AUTH PLAIN\r\n";

const std::string PlainInClear =
    "C: AUTH PLAIN\r\n"
    "S: 334 \r\n"
    "C: AGFubgBzZWNyZXQ=\r\n"
    "S: 235 2.7.0 authenticated\r\n";

const std::string StartTls =
    "C: STARTTLS\r\n"
    "S: 220 2.0.0 ready for TLS\r\n"
    "C*: EHLO [127.0.0.1]\r\n"
    "S*: 250-test.example\r\n250 AUTH PLAIN\r\n";

const std::string PlainInsideTls =
    "C*: AUTH PLAIN\r\n"
    "S*: 334 \r\n"
    "C*: AGFubgBzZWNyZXQ=\r\n"
    "S*: 235 2.7.0 authenticated\r\n";

class EngineTranscriptInClear : public testing::TestWithParam<KvEmailDriver::SmtpSecType> {};

TEST_P(EngineTranscriptInClear, WithCredentials) {
    ScriptedSmtpServer server(OfferingBoth("PLAIN"));
    EXPECT_EQ(Conversation(server, GetParam(), "ann", "secret"), HelloInClear + PlainInClear + MailInClear);
}

TEST_P(EngineTranscriptInClear, WithoutCredentials) {
    ScriptedSmtpServer server(OfferingBoth("PLAIN"));
    EXPECT_EQ(Conversation(server, GetParam(), "", ""), HelloInClear + MailInClear);
}

TEST_P(EngineTranscriptInClear, WithLogin) {
    ScriptedSmtpServer server(OfferingBoth("LOGIN"));
    EXPECT_EQ(Conversation(server, GetParam(), "ann", "secret"),
              "S: 220 test.example ESMTP\r\n"
              "C: EHLO [127.0.0.1]\r\n"
              "S: 250-test.example\r\n250-STARTTLS\r\n250 AUTH LOGIN\r\n"
              "C: AUTH LOGIN\r\n"
              "S: 334 VXNlcm5hbWU6\r\n"
              "C: YW5u\r\n"
              "S: 334 UGFzc3dvcmQ6\r\n"
              "C: c2VjcmV0\r\n"
              "S: 235 2.7.0 authenticated\r\n" +
                  MailInClear);
}

INSTANTIATE_TEST_SUITE_P(Modes, EngineTranscriptInClear,
                         testing::Values(KvEmailDriver::SecNone, KvEmailDriver::SecTLSOnDemand,
                                         KvEmailDriver::SecClear));

class EngineTranscriptInsideTls : public testing::TestWithParam<KvEmailDriver::SmtpSecType> {};

TEST_P(EngineTranscriptInsideTls, WithCredentials) {
    ScriptedSmtpServer server(OfferingBoth("PLAIN"));
    EXPECT_EQ(Conversation(server, GetParam(), "ann", "secret"),
              HelloInClear + StartTls + PlainInsideTls + MailInsideTls);
}

TEST_P(EngineTranscriptInsideTls, WithoutCredentials) {
    ScriptedSmtpServer server(OfferingBoth("PLAIN"));
    EXPECT_EQ(Conversation(server, GetParam(), "", ""), HelloInClear + StartTls + MailInsideTls);
}

TEST_P(EngineTranscriptInsideTls, WithLogin) {
    ScriptedSmtpServer server(OfferingBoth("LOGIN"));
    EXPECT_EQ(Conversation(server, GetParam(), "ann", "secret"),
              "S: 220 test.example ESMTP\r\n"
              "C: EHLO [127.0.0.1]\r\n"
              "S: 250-test.example\r\n250-STARTTLS\r\n250 AUTH LOGIN\r\n"
              "C: STARTTLS\r\n"
              "S: 220 2.0.0 ready for TLS\r\n"
              "C*: EHLO [127.0.0.1]\r\n"
              "S*: 250-test.example\r\n250 AUTH LOGIN\r\n"
              "C*: AUTH LOGIN\r\n"
              "S*: 334 VXNlcm5hbWU6\r\n"
              "C*: YW5u\r\n"
              "S*: 334 UGFzc3dvcmQ6\r\n"
              "C*: c2VjcmV0\r\n"
              "S*: 235 2.7.0 authenticated\r\n" +
                  MailInsideTls);
}

INSTANTIATE_TEST_SUITE_P(Modes, EngineTranscriptInsideTls,
                         testing::Values(KvEmailDriver::SecTLSIfAvailable, KvEmailDriver::SecTLSRequired));

// Replies cut in two: each half is taken for a reply of its own, and the conversation runs one reply behind.

/// Opens `gate` once the engine has read `firstHalf`.
std::jthread OpenedAfterReading(const RecordingLog& log, const std::string& firstHalf, Gate gate) {
    return std::jthread([&log, firstHalf, gate]() mutable {
        EXPECT_TRUE(log.waitFor("=> " + firstHalf));
        gate.open();
    });
}

Reply CutAt(const std::string& reply, std::size_t at, const Gate& gate) {
    return Reply(reply).split({at}).restHeldBy(gate);
}

/// Holds back `reply`, or the default one, until the engine has read `bytes`, so that the two do not run
/// together.
kvtest::ReplyFunction OnceRead(const RecordingLog& log, const std::string& bytes,
                               const std::string& reply = "") {
    return [&log, bytes, reply](const kvtest::CommandContext& context) {
        EXPECT_TRUE(log.waitFor("=> " + bytes));
        return reply.empty() ? context.defaultReply : Reply(reply);
    };
}

TEST(EngineTranscriptTest, OfACutGreetingTheSecondHalfIsTakenForTheReplyToEhlo) {
    RecordingLog log;
    ScriptedSmtpServer server(OfferingAuth("PLAIN"));
    Gate gate;
    server.on(step::Greeting).reply(CutAt("220 test.example ESMTP\r\n", 8, gate));
    server.on("EHLO").answer(OnceRead(log, ".example ESMTP<CR><LF>"));
    const std::jthread opener = OpenedAfterReading(log, "220 test", gate);
    OpenEngine engine(&log);
    engine.Connect(server.address(), "ann", "secret", KvEmailDriver::SecClear);
    EXPECT_FALSE(engine.job().bAuthPlain);
    ASSERT_TRUE(server.waitForCommand("EHLO"));
    EXPECT_EQ(server.connection().clientBytes(), "EHLO [127.0.0.1]\r\n");
}

TEST(EngineTranscriptTest, OfACutEhloReplyTheOffersOfTheSecondHalfAreMissed) {
    ScriptedSmtpServer server(OfferingAuth("PLAIN"));
    Gate gate;
    server.on("EHLO").reply(CutAt("250-test.example\r\n250 AUTH PLAIN\r\n", 18, gate));
    OpenEngine engine;
    engine.Connect(server.address(), "ann", "secret", KvEmailDriver::SecClear);
    gate.open();
    EXPECT_FALSE(engine.job().bAuthPlain);
    engine.SendMail("ann@example.org", {"bob@example.org"}, "Subject", "Text", {});
    ASSERT_TRUE(server.waitForTransactions(1));
    EXPECT_EQ(server.connection().clientBytes(),
              "EHLO [127.0.0.1]\r\n"
              "MAIL FROM: <ann@example.org>\r\n"
              "RCPT TO: <bob@example.org>\r\n"
              "DATA\r\n" +
                  SimpleMessage + ".\r\n");
}

TEST(EngineTranscriptTest, ACutMailReplyHidesARefusedMessage) {
    RecordingLog log;
    ScriptedSmtpServer server;
    Gate gate;
    server.on("MAIL").reply(CutAt("250 2.1.0 sender ok\r\n", 3, gate));
    server.on("RCPT").answer(OnceRead(log, " 2.1.0 sender ok<CR><LF>"));
    server.on("DATA").answer(OnceRead(log, "250 2.1.5 recipient ok<CR><LF>"));
    server.on(step::EndOfData).answer(OnceRead(log, "354 go ahead<CR><LF>", "554 5.6.0 rejected\r\n"));
    const std::jthread opener = OpenedAfterReading(log, "250", gate);
    OpenEngine engine(&log);
    engine.connectTo(server);
    EXPECT_NO_THROW(engine.SendMail("ann@example.org", {"bob@example.org"}, "Subject", "Text", {}));
    ASSERT_TRUE(server.waitForTransactions(1));
    EXPECT_FALSE(server.transactions().at(0).accepted());
    EXPECT_FALSE(engine.IsAlive());  // reads the refusal of the message
}

TEST(EngineTranscriptTest, ARefusalCutInsideItsCodeIsOutOfRange) {
    ScriptedSmtpServer server;
    Gate gate;
    server.on("RCPT").reply(CutAt("550 5.1.1 no such user\r\n", 2, gate));
    OpenEngine engine;
    engine.connectTo(server);
    EXPECT_THROW(engine.SendMail("ann@example.org", {"bob@example.org"}, "Subject", "Text", {}),
                 std::out_of_range);
    gate.open();
}

TEST(EngineTranscriptTest, ARefusalCutInsideItsTextCarriesTheFirstHalf) {
    ScriptedSmtpServer server;
    Gate gate;
    server.on("RCPT").reply(CutAt("550 5.1.1 no such user\r\n", 12, gate));
    OpenEngine engine;
    engine.connectTo(server);
    const KvSmtpException error =
        SmtpErrorOf([&] { engine.SendMail("ann@example.org", {"bob@example.org"}, "Subject", "Text", {}); });
    EXPECT_EQ(error.m_nError, 550);
    EXPECT_EQ(error.m_strError, "5.1.1 no");
    gate.open();
    EXPECT_TRUE(engine.IsAlive());  // reads " such user"
}

TEST(EngineTranscriptTest, ARefusalBehindAnAcceptanceInOneSegmentIsNotSeen) {
    ScriptedSmtpServer server;
    server.on("RCPT").reply("250 2.1.5 recipient ok\r\n550 5.1.1 no, wait\r\n");
    OpenEngine engine;
    engine.connectTo(server);
    EXPECT_NO_THROW(engine.SendMail("ann@example.org", {"bob@example.org"}, "Subject", "Text", {}));
    EXPECT_TRUE(server.transactions().at(0).accepted());
}

TEST(EngineTranscriptTest, AGreetingAndAnEhloReplyInOneSegmentAreTheGreeting) {
    ScriptedSmtpServer server(OfferingAuth("PLAIN"));
    server.on(step::Greeting).reply("220 test.example ESMTP\r\n250 AUTH PLAIN\r\n");
    server.on("EHLO").reply("250 test.example\r\n");
    OpenEngine engine;
    engine.Connect(server.address(), "ann", "secret", KvEmailDriver::SecClear);
    EXPECT_EQ(server.connection().clientBytes(), "EHLO [127.0.0.1]\r\n");
}

}  // namespace
