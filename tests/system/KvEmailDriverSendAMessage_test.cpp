#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "KvEmailDriver.h"
#include "RecordingLog.h"
#include "TestPorts.h"
#include "system/EngineDoubles.h"

// The single shot: one plain message built from the session record, from connect to QUIT.

namespace {

using kvtest::CaFile;
using kvtest::IoErrorOf;
using kvtest::OfferingAuth;
using kvtest::OfferingStartTls;
using kvtest::OpenEngine;
using kvtest::RecordingLog;
using kvtest::ScriptedSmtpServer;
using kvtest::Severity;
using kvtest::SmtpErrorOf;
using kvtest::SmtpServerOptions;
using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;
namespace step = kvtest::step;

using Texts = std::vector<std::string>;

constexpr const char* MustStartTls = "530 5.7.0 Must issue a STARTTLS command first\r\n";

const std::string Hello = "EHLO [127.0.0.1]\r\n";
const std::string Envelope = "MAIL FROM: <ann@example.org>\r\nRCPT TO: <bob@example.org>\r\nDATA\r\n";

/// What follows DATA for a Simple() record, the date replaced by a hash sign.
const std::string MessageAndQuit =
    "Date: #\r\n"
    "From: ann@example.org\r\n"
    "To: bob@example.org\r\n"
    "Subject: Subject\r\n"
    "\r\n"
    "Text\r\n"
    ".\r\n"
    "QUIT";

KvEmailDriver::Job Simple(const ScriptedSmtpServer& server) {
    KvEmailDriver::Job job;
    job.strHost = server.address();
    job.strFrom = "ann@example.org";
    job.strTo = "bob@example.org";
    job.strSubject = "Subject";
    job.strBody = "Text";
    return job;
}

KvEmailDriver::Job WithAccount(const ScriptedSmtpServer& server, KvEmailDriver::SmtpSecType mode) {
    KvEmailDriver::Job job = Simple(server);
    job.strUser = "ann";
    job.strPassword = "secret";
    job.eSecType = mode;
    return job;
}

/// All that the client sent, once it has closed, with the date replaced by a hash sign.
std::string SentBytes(const ScriptedSmtpServer& server) {
    EXPECT_TRUE(server.waitForOpenConnections(0));
    std::string bytes = server.connection().clientBytes();
    const std::size_t begin = bytes.find("Date: ");
    if (begin != std::string::npos) {
        bytes.replace(begin, bytes.find("\r\n", begin) - begin, "Date: #");
    }
    return bytes;
}

/// The text lines of a message with that body, up to the line of the single dot.
std::string SentBody(const std::string& body) {
    ScriptedSmtpServer server;
    OpenEngine engine;
    KvEmailDriver::Job job = Simple(server);
    job.strBody = body;
    engine.SendAMessage(job);
    const std::string data = server.transactions().at(0).data;
    return data.substr(data.find("\r\n\r\n") + 4);
}

std::string EnvelopeLineOf(const std::string& from) {
    ScriptedSmtpServer server;
    OpenEngine engine;
    KvEmailDriver::Job job = Simple(server);
    job.strFrom = from;
    engine.SendAMessage(job);
    return server.connection().lines().at(1);
}

TEST(KvEmailDriverSendAMessageTest, TheWholeConversationIsByteExactButForTheDate) {
    ScriptedSmtpServer server;
    OpenEngine engine;
    KvEmailDriver::Job job = Simple(server);
    EXPECT_TRUE(engine.SendAMessage(job));
    EXPECT_EQ(SentBytes(server), Hello + Envelope + MessageAndQuit);
    EXPECT_TRUE(server.transactions().at(0).accepted());
}

TEST(KvEmailDriverSendAMessageTest, QuitIsSentWithoutALineEnd) {
    ScriptedSmtpServer server;
    OpenEngine engine;
    KvEmailDriver::Job job = Simple(server);
    engine.SendAMessage(job);
    ASSERT_TRUE(server.waitForOpenConnections(0));
    EXPECT_THAT(server.connection().clientBytes(), EndsWith("\r\n.\r\nQUIT"));
    EXPECT_EQ(server.connection().incompleteLine, "QUIT");
}

TEST(KvEmailDriverSendAMessageTest, TheDateHeaderHasTheFormOfGetDateString) {
    ScriptedSmtpServer server;
    OpenEngine engine;
    KvEmailDriver::Job job = Simple(server);
    const std::string before = engine.GetDateString();
    engine.SendAMessage(job);
    const std::string after = engine.GetDateString();
    const std::string data = server.transactions().at(0).data;
    const std::string date = data.substr(6, data.find("\r\n") - 6);
    EXPECT_THAT(date, MatchesRegex("[A-Z][a-z][a-z], [0-9][0-9] [A-Z][a-z][a-z] [0-9]+ "
                                   "[0-9][0-9]:[0-9][0-9]:[0-9][0-9] [+-][0-9][0-9]00"));
    EXPECT_EQ(date.size(), before.size());
    EXPECT_EQ(date.substr(date.size() - 5), after.substr(after.size() - 5));
}

TEST(KvEmailDriverSendAMessageTest, AnEmptySubjectGivesNoSubjectHeader) {
    ScriptedSmtpServer server;
    OpenEngine engine;
    KvEmailDriver::Job job = Simple(server);
    job.strSubject = "";
    engine.SendAMessage(job);
    EXPECT_THAT(server.transactions().at(0).data, Not(HasSubstr("Subject:")));
    EXPECT_THAT(server.transactions().at(0).data, EndsWith("\r\nTo: bob@example.org\r\n\r\nText\r\n"));
}

TEST(KvEmailDriverSendAMessageTest, TheHostIsReducedToItsNameAndTheRecordKeepsItsTexts) {
    ScriptedSmtpServer server;
    OpenEngine engine;
    KvEmailDriver::Job job = Simple(server);
    engine.SendAMessage(job);
    EXPECT_EQ(job.strHost, "127.0.0.1");
    EXPECT_EQ(job.nPort, server.port());
    EXPECT_EQ(job.strBody, "Text");
}

// Sender

TEST(KvEmailDriverSendAMessageTest, ASenderWithADisplayNameGetsDoubledAngleBrackets) {
    EXPECT_EQ(EnvelopeLineOf("Ann <ann@example.org>"), "MAIL FROM: <<ann@example.org>>");
}

TEST(KvEmailDriverSendAMessageTest, ASenderInAngleBracketsAloneLosesItsOwnClosingBracket) {
    EXPECT_EQ(EnvelopeLineOf("<ann@example.org>"), "MAIL FROM: <<ann@example.org>");
}

TEST(KvEmailDriverSendAMessageTest, WhatStandsBehindTheAngleBracketsIsSentAsFarAsTheLengthReaches) {
    EXPECT_EQ(EnvelopeLineOf("Ann <ann@example.org> (office)"), "MAIL FROM: <<ann@example.org> (o>");
}

TEST(KvEmailDriverSendAMessageTest, TheFromHeaderCarriesTheSenderUnchanged) {
    ScriptedSmtpServer server;
    OpenEngine engine;
    KvEmailDriver::Job job = Simple(server);
    job.strFrom = "Ann <ann@example.org>";
    engine.SendAMessage(job);
    EXPECT_THAT(server.transactions().at(0).data, HasSubstr("\r\nFrom: Ann <ann@example.org>\r\n"));
}

TEST(KvEmailDriverSendAMessageTest, ASenderWithoutAClosingBracketFailsWith820BeforeMailAndCloses) {
    ScriptedSmtpServer server(OfferingAuth("PLAIN"));
    OpenEngine engine;
    KvEmailDriver::Job job = WithAccount(server, KvEmailDriver::SecNone);
    job.strFrom = "Ann <ann@example.org";
    const KvSmtpException error = SmtpErrorOf([&] { engine.SendAMessage(job); });
    EXPECT_EQ(error.m_nError, 820);
    EXPECT_EQ(error.m_strError, "Malformed FROM email address: Ann <ann@example.org");
    EXPECT_EQ(SentBytes(server), Hello + "AUTH PLAIN\r\nAGFubgBzZWNyZXQ=\r\n");
}

// Body

TEST(KvEmailDriverSendAMessageTest, EveryLineOfTheBodyEndsInCrLf) {
    EXPECT_EQ(SentBody("a\nb\r\nc"), "a\r\nb\r\nc\r\n");
}

TEST(KvEmailDriverSendAMessageTest, ABodyThatEndsInALineEndGetsNoFurtherOne) {
    EXPECT_EQ(SentBody("a\r\n"), "a\r\n");
    EXPECT_EQ(SentBody("a\n\n"), "a\r\n\r\n");
}

TEST(KvEmailDriverSendAMessageTest, AnEmptyBodyIsNoLine) {
    EXPECT_EQ(SentBody(""), "");
}

TEST(KvEmailDriverSendAMessageTest, ALineThatBeginsWithADotGetsOneMore) {
    EXPECT_EQ(SentBody(".\n..a\nb.\n.c"), "..\r\n...a\r\nb.\r\n..c\r\n");
}

TEST(KvEmailDriverSendAMessageTest, LinesOfAnyLengthAreSentWhole) {
    const std::string line(5000, 'x');
    EXPECT_EQ(SentBody(line), line + "\r\n");
}

// Security and authentication

TEST(KvEmailDriverSendAMessageTest, AnOfferedMechanismIsUsed) {
    ScriptedSmtpServer plain(OfferingAuth("PLAIN LOGIN"));
    ScriptedSmtpServer login(OfferingAuth("LOGIN"));
    OpenEngine engine;
    KvEmailDriver::Job plainJob = WithAccount(plain, KvEmailDriver::SecNone);
    engine.SendAMessage(plainJob);
    EXPECT_EQ(SentBytes(plain), Hello + "AUTH PLAIN\r\nAGFubgBzZWNyZXQ=\r\n" + Envelope + MessageAndQuit);
    KvEmailDriver::Job loginJob = WithAccount(login, KvEmailDriver::SecClear);
    engine.SendAMessage(loginJob);
    EXPECT_EQ(SentBytes(login), Hello + "AUTH LOGIN\r\nYW5u\r\nc2VjcmV0\r\n" + Envelope + MessageAndQuit);
}

const std::string UpgradeAndAuth = "STARTTLS\r\n" + Hello + "AUTH PLAIN\r\nAGFubgBzZWNyZXQ=\r\n";

TEST(KvEmailDriverSendAMessageTest, ModesIfAvailableAndRequiredStartTlsFirst) {
    for (const auto mode : {KvEmailDriver::SecTLSIfAvailable, KvEmailDriver::SecTLSRequired}) {
        ScriptedSmtpServer server(OfferingStartTls());
        OpenEngine engine(nullptr, CaFile());
        KvEmailDriver::Job job = WithAccount(server, mode);
        EXPECT_TRUE(engine.SendAMessage(job));
        EXPECT_EQ(SentBytes(server), Hello + UpgradeAndAuth + Envelope + MessageAndQuit) << mode;
    }
}

TEST(KvEmailDriverSendAMessageTest, TheOtherModesStayInClear) {
    for (const auto mode : {KvEmailDriver::SecNone, KvEmailDriver::SecTLSOnDemand, KvEmailDriver::SecClear}) {
        ScriptedSmtpServer server(OfferingStartTls());
        OpenEngine engine(nullptr, CaFile());
        KvEmailDriver::Job job = WithAccount(server, mode);
        EXPECT_TRUE(engine.SendAMessage(job));
        EXPECT_EQ(SentBytes(server), Hello + Envelope + MessageAndQuit) << mode;
    }
}

TEST(KvEmailDriverSendAMessageTest, ModeIfAvailableWithoutAnOfferGoesOnInClear) {
    ScriptedSmtpServer server;
    OpenEngine engine;
    KvEmailDriver::Job job = WithAccount(server, KvEmailDriver::SecTLSIfAvailable);
    EXPECT_TRUE(engine.SendAMessage(job));
    EXPECT_EQ(SentBytes(server), Hello + Envelope + MessageAndQuit);
}

TEST(KvEmailDriverSendAMessageTest, ModeRequiredWithoutAnOfferFailsWith815AndCloses) {
    ScriptedSmtpServer server(OfferingAuth("PLAIN"));
    OpenEngine engine;
    KvEmailDriver::Job job = WithAccount(server, KvEmailDriver::SecTLSRequired);
    const KvSmtpException error = SmtpErrorOf([&] { engine.SendAMessage(job); });
    EXPECT_EQ(error.m_nError, 815);
    EXPECT_EQ(error.m_strError, "TLS Required but not supported");
    EXPECT_EQ(SentBytes(server), Hello);
}

TEST(KvEmailDriverSendAMessageTest, ADemandInModeOneStartsTlsAndGoesOnWithTheAuthentication) {
    ScriptedSmtpServer server(OfferingStartTls());
    server.on("RCPT").inClear().reply(MustStartTls);
    OpenEngine engine(nullptr, CaFile());
    KvEmailDriver::Job job = WithAccount(server, KvEmailDriver::SecTLSOnDemand);
    EXPECT_TRUE(engine.SendAMessage(job));
    EXPECT_EQ(SentBytes(server), Hello + "MAIL FROM: <ann@example.org>\r\nRCPT TO: <bob@example.org>\r\n" +
                                     UpgradeAndAuth + Envelope + MessageAndQuit);
}

TEST(KvEmailDriverSendAMessageTest, ADemandAtAuthInModeOneStartsTlsToo) {
    SmtpServerOptions options = OfferingStartTls();
    options.extensions = {{"STARTTLS", "AUTH PLAIN"}};
    ScriptedSmtpServer server(options);
    server.on("AUTH").inClear().reply(MustStartTls);
    OpenEngine engine(nullptr, CaFile());
    KvEmailDriver::Job job = WithAccount(server, KvEmailDriver::SecTLSOnDemand);
    EXPECT_TRUE(engine.SendAMessage(job));
    EXPECT_EQ(SentBytes(server), Hello + "AUTH PLAIN\r\n" + UpgradeAndAuth + Envelope + MessageAndQuit);
}

TEST(KvEmailDriverSendAMessageTest, ADemandWithoutAnOfferFailsWith816AndCloses) {
    ScriptedSmtpServer server;
    server.on("MAIL").reply(MustStartTls);
    OpenEngine engine;
    KvEmailDriver::Job job = WithAccount(server, KvEmailDriver::SecTLSOnDemand);
    const KvSmtpException error = SmtpErrorOf([&] { engine.SendAMessage(job); });
    EXPECT_EQ(error.m_nError, 816);
    EXPECT_EQ(error.m_strError, "STARTTLS Failed after Must Start TLS Response");
    EXPECT_EQ(SentBytes(server), Hello + "MAIL FROM: <ann@example.org>\r\n");
}

TEST(KvEmailDriverSendAMessageTest, ASecondDemandInsideTlsFailsWith816) {
    ScriptedSmtpServer server(OfferingStartTls());
    server.on("MAIL").reply(MustStartTls);
    OpenEngine engine(nullptr, CaFile());
    KvEmailDriver::Job job = WithAccount(server, KvEmailDriver::SecTLSOnDemand);
    EXPECT_EQ(SmtpErrorOf([&] { engine.SendAMessage(job); }).m_nError, 816);
    EXPECT_EQ(SentBytes(server), Hello + "MAIL FROM: <ann@example.org>\r\n" + UpgradeAndAuth +
                                     "MAIL FROM: <ann@example.org>\r\nSTARTTLS\r\n");
}

TEST(KvEmailDriverSendAMessageTest, InTheOtherModesADemandIsPassedOn) {
    for (const auto mode :
         {KvEmailDriver::SecNone, KvEmailDriver::SecClear, KvEmailDriver::SecTLSIfAvailable}) {
        ScriptedSmtpServer server;
        server.on("MAIL").reply(MustStartTls);
        OpenEngine engine;
        KvEmailDriver::Job job = WithAccount(server, mode);
        EXPECT_EQ(SmtpErrorOf([&] { engine.SendAMessage(job); }).m_nError, 530) << mode;
        EXPECT_EQ(SentBytes(server), Hello + "MAIL FROM: <ann@example.org>\r\n");
    }
}

// Failures

TEST(KvEmailDriverSendAMessageTest, EveryRefusalClosesTheConnectionWithoutQuit) {
    const std::vector<std::pair<std::string, Texts>> cases{
        {step::Greeting, {}},
        {"MAIL", {"EHLO", "MAIL"}},
        {"RCPT", {"EHLO", "MAIL", "RCPT"}},
        {"DATA", {"EHLO", "MAIL", "RCPT", "DATA"}},
        {step::EndOfData, {"EHLO", "MAIL", "RCPT", "DATA", "END-OF-DATA"}}};
    for (const auto& [refused, sent] : cases) {
        ScriptedSmtpServer server;
        server.on(refused).reply("554 5.0.0 no\r\n");
        OpenEngine engine;
        KvEmailDriver::Job job = Simple(server);
        const KvSmtpException error = SmtpErrorOf([&] { engine.SendAMessage(job); });
        EXPECT_EQ(error.m_nError, 554) << refused;
        EXPECT_EQ(error.m_strError, "5.0.0 no\r\n");
        EXPECT_THAT(SentBytes(server), Not(HasSubstr("QUIT")));
        EXPECT_EQ(server.connection().steps(), sent);
    }
}

TEST(KvEmailDriverSendAMessageTest, ARefusedConnectionIsPassedOn) {
    const kvtest::RefusingPort port;
    OpenEngine engine;
    KvEmailDriver::Job job;
    job.strHost = port.address();
    EXPECT_EQ(IoErrorOf([&] { engine.SendAMessage(job); }), "Socket Connecting Failed");
}

// Log

TEST(KvEmailDriverSendAMessageTest, EntryAndSuccessAreTraced) {
    ScriptedSmtpServer server;
    RecordingLog log;
    OpenEngine engine(&log);
    KvEmailDriver::Job job = Simple(server);
    engine.SendAMessage(job);
    EXPECT_EQ(log.texts().front(), "Entering KvEmailDriver::SendAMessage()");
    EXPECT_EQ(log.texts().back(), "Leaving KvEmailDriver::SendAMessage() with TRUE.");
    EXPECT_EQ(log.entries().front().severity, Severity::Trace);
    EXPECT_THAT(log.entries().back().file, EndsWith("system/src/KvEmailDriver"));
}

TEST(KvEmailDriverSendAMessageTest, AFailureIsNotTracedAsLeaving) {
    ScriptedSmtpServer server;
    server.on("MAIL").reply("554 5.0.0 no\r\n");
    RecordingLog log;
    OpenEngine engine(&log);
    KvEmailDriver::Job job = Simple(server);
    SmtpErrorOf([&] { engine.SendAMessage(job); });
    EXPECT_TRUE(log.has(Severity::Trace, "Entering KvEmailDriver::SendAMessage()"));
    EXPECT_EQ(log.countContaining("Leaving"), 0);
}

}  // namespace
