#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "KvEmailDriver.h"
#include "RecordingLog.h"
#include "TempDir.h"
#include "system/EngineDoubles.h"
#include "system/ExpectedMail.h"

// One mail transaction on an open session, and its repetition when the server demands STARTTLS.

namespace {

using kvtest::CaFile;
using kvtest::IoErrorOf;
using kvtest::MessageWithText;
using kvtest::OfferingStartTls;
using kvtest::OpenEngine;
using kvtest::RecordingLog;
using kvtest::Reply;
using kvtest::ScriptedSmtpServer;
using kvtest::Severity;
using kvtest::SimpleMessage;
using kvtest::SmtpErrorOf;
using kvtest::TempDir;
using testing::EndsWith;
using testing::HasSubstr;
namespace step = kvtest::step;

using Texts = std::vector<std::string>;

constexpr const char* MustStartTls = "530 5.7.0 Must issue a STARTTLS command first\r\n";

const std::string Hello = "EHLO [127.0.0.1]\r\n";
const std::string Envelope = "MAIL FROM: <ann@example.org>\r\nRCPT TO: <bob@example.org>\r\nDATA\r\n";

void SendSimple(KvEmailDriver& engine, const Texts& recipients = {"bob@example.org"}) {
    engine.SendMail("ann@example.org", recipients, "Subject", "Text", {});
}

void SendText(KvEmailDriver& engine, const std::string& body) {
    engine.SendMail("ann@example.org", {"bob@example.org"}, "Subject", body, {});
}

// The transaction

TEST(KvEmailDriverSendMailTest, TheWholeMessageIsByteExact) {
    ScriptedSmtpServer server;
    OpenEngine engine;
    engine.connectTo(server);
    SendSimple(engine);
    EXPECT_EQ(server.connection().clientBytes(),
              "EHLO [127.0.0.1]\r\n"
              "MAIL FROM: <ann@example.org>\r\n"
              "RCPT TO: <bob@example.org>\r\n"
              "DATA\r\n"
              "Mime-Version: 1.0\r\n"
              "Subject: Subject\r\n"
              "From: ann@example.org\r\n"
              "Content-Type: multipart/mixed;\r\n"
              "\tboundary=\"MujheKaamBataoMaiKiaKaronMaiKisKoKhaon\"\r\n"
              "\r\n"
              "--MujheKaamBataoMaiKiaKaronMaiKisKoKhaon\r\n"
              "Content-Type: text/plain\r\n"
              "\r\n"
              "Text\r\n"
              "--MujheKaamBataoMaiKiaKaronMaiKisKoKhaon--\r\n"
              ".\r\n");
    EXPECT_TRUE(server.transactions().at(0).accepted());
}

TEST(KvEmailDriverSendMailTest, TwoRecipientsAreOfferedInTheGivenOrder) {
    ScriptedSmtpServer server;
    OpenEngine engine;
    engine.connectTo(server);
    SendSimple(engine, {"zoe@example.org", "bob@example.org"});
    EXPECT_EQ(server.transactions().at(0).recipientAddresses(),
              (Texts{"zoe@example.org", "bob@example.org"}));
}

TEST(KvEmailDriverSendMailTest, ARecipientNamedTwiceIsOfferedTwice) {
    ScriptedSmtpServer server;
    OpenEngine engine;
    engine.connectTo(server);
    SendSimple(engine, {"bob@example.org", "bob@example.org"});
    EXPECT_EQ(server.transactions().at(0).recipientAddresses(),
              (Texts{"bob@example.org", "bob@example.org"}));
}

TEST(KvEmailDriverSendMailTest, WithoutRecipientsNoRcptIsSent) {
    ScriptedSmtpServer server;
    OpenEngine engine;
    engine.connectTo(server);
    EXPECT_EQ(SmtpErrorOf([&] { SendSimple(engine, {}); }).m_nError, 503);
    EXPECT_EQ(server.connection().clientBytes(), Hello + "MAIL FROM: <ann@example.org>\r\nDATA\r\n");
}

TEST(KvEmailDriverSendMailTest, AddressesAreSentAsTheyAreGiven) {
    ScriptedSmtpServer server;
    OpenEngine engine;
    engine.connectTo(server);
    engine.SendMail("Ann <ann@example.org>", {" bob@example.org ", "<eve@example.org>", ""}, "", "Text", {});
    EXPECT_EQ(server.connection().lines(),
              (Texts{"EHLO [127.0.0.1]", "MAIL FROM: <Ann <ann@example.org>>", "RCPT TO: < bob@example.org >",
                     "RCPT TO: <<eve@example.org>>", "RCPT TO: <>", "DATA", "."}));
}

TEST(KvEmailDriverSendMailTest, AnEmptySenderIsTheNullReturnPath) {
    ScriptedSmtpServer server;
    OpenEngine engine;
    engine.connectTo(server);
    engine.SendMail("", {"bob@example.org"}, "Subject", "Text", {});
    EXPECT_EQ(server.connection().lines().at(1), "MAIL FROM: <>");
}

TEST(KvEmailDriverSendMailTest, SeveralTransactionsFollowEachOtherOnOneSession) {
    ScriptedSmtpServer server;
    OpenEngine engine;
    engine.connectTo(server);
    SendSimple(engine);
    SendSimple(engine);
    const std::string once = Envelope + SimpleMessage + ".\r\n";
    EXPECT_EQ(server.connection().clientBytes(), Hello + once + once);
    EXPECT_EQ(server.acceptedTransactions(), 2);
}

TEST(KvEmailDriverSendMailTest, AnEmptySubjectGivesNoSubjectHeader) {
    ScriptedSmtpServer server;
    OpenEngine engine;
    engine.connectTo(server);
    engine.SendMail("ann@example.org", {"bob@example.org"}, "", "Text", {});
    EXPECT_THAT(server.transactions().at(0).data,
                testing::StartsWith("Mime-Version: 1.0\r\nFrom: ann@example.org\r\nContent-Type: "));
}

TEST(KvEmailDriverSendMailTest, BareLineFeedsOfTheTextAreSentAsCrLf) {
    ScriptedSmtpServer server;
    OpenEngine engine;
    engine.connectTo(server);
    SendText(engine, "\na\nb\r\nc");
    EXPECT_EQ(server.transactions().at(0).data, MessageWithText("\r\na\r\nb\r\nc"));
}

TEST(KvEmailDriverSendMailTest, LinesThatBeginWithADotAreSentAsTheyAre) {
    ScriptedSmtpServer server;
    OpenEngine engine;
    engine.connectTo(server);
    SendText(engine, ".a\n..b\n. c");
    EXPECT_EQ(server.transactions().at(0).data, MessageWithText(".a\r\n..b\r\n. c"));
}

TEST(KvEmailDriverSendMailTest, ALineOfOneDotEndsTheMessageEarly) {
    ScriptedSmtpServer server;
    OpenEngine engine;
    engine.connectTo(server);
    SendText(engine, "before\n.\nafter");
    EXPECT_THAT(server.transactions().at(0).data, EndsWith("\r\nbefore\r\n"));
    EXPECT_TRUE(server.waitForCommand("AFTER"));
}

TEST(KvEmailDriverSendMailTest, AnAttachedFileFollowsTheText) {
    ScriptedSmtpServer server;
    const TempDir dir;
    OpenEngine engine;
    engine.connectTo(server);
    engine.SendMail("ann@example.org", {"bob@example.org"}, "Subject", "Text",
                    {dir.write("note.txt", "hello")});
    EXPECT_THAT(server.transactions().at(0).data,
                EndsWith("\r\nText\r\n"
                         "--MujheKaamBataoMaiKiaKaronMaiKisKoKhaon\r\n"
                         "Content-Type: application/octet-stream; name=\"note.txt\"\r\n"
                         "Content-Transfer-Encoding: Base64\r\n"
                         "Content-Disposition: attachment; filename=\"note.txt\"\r\n"
                         "\r\n"
                         "aGVsbG8=\r\n"
                         "--MujheKaamBataoMaiKiaKaronMaiKisKoKhaon--\r\n"));
}

TEST(KvEmailDriverSendMailTest, AMessageOfSeveralMegabytesArrivesComplete) {
    ScriptedSmtpServer server;
    OpenEngine engine;
    engine.connectTo(server);
    const std::string body(5000000, 'x');
    SendText(engine, body);
    EXPECT_TRUE(server.transactions().at(0).data == MessageWithText(body));
}

// Refusals

struct Refusal {
    const char* refusedStep;
    Texts stepsSent;
};

class KvEmailDriverRefusalTest : public testing::TestWithParam<Refusal> {};

TEST_P(KvEmailDriverRefusalTest, ARefusedStepEndsTheTransactionAtOnceAndLeavesTheSessionOpen) {
    ScriptedSmtpServer server;
    server.on(GetParam().refusedStep).occurrence(1).reply("552 5.2.2 no\r\n");
    OpenEngine engine;
    engine.connectTo(server);
    const KvSmtpException error = SmtpErrorOf([&] { SendSimple(engine); });
    EXPECT_EQ(error.m_nError, 552);
    EXPECT_EQ(error.m_strError, "5.2.2 no\r\n");
    EXPECT_EQ(server.connection().steps(), GetParam().stepsSent);
    EXPECT_EQ(server.openConnections(), 1);
    EXPECT_TRUE(engine.IsAlive());
}

INSTANTIATE_TEST_SUITE_P(
    Steps, KvEmailDriverRefusalTest,
    testing::Values(Refusal{"MAIL", {"EHLO", "MAIL"}}, Refusal{"RCPT", {"EHLO", "MAIL", "RCPT"}},
                    Refusal{"DATA", {"EHLO", "MAIL", "RCPT", "DATA"}},
                    Refusal{"END-OF-DATA", {"EHLO", "MAIL", "RCPT", "DATA", "END-OF-DATA"}}),
    [](const auto& param) {
        std::string name = param.param.refusedStep;
        std::erase(name, '-');
        return name;
    });

TEST(KvEmailDriverSendMailTest, TheFirstRefusedRecipientEndsTheTransactionWithoutDataOrRset) {
    ScriptedSmtpServer server;
    server.on("RCPT").recipient("eve@example.org").reply("550 5.1.1 no such user\r\n");
    OpenEngine engine;
    engine.connectTo(server);
    const KvSmtpException error = SmtpErrorOf([&] {
        SendSimple(engine, {"bob@example.org", "eve@example.org", "zoe@example.org"});
    });
    EXPECT_EQ(error.m_nError, 550);
    EXPECT_EQ(error.m_strError, "5.1.1 no such user\r\n");
    EXPECT_EQ(server.connection().clientBytes(), Hello +
                                                     "MAIL FROM: <ann@example.org>\r\n"
                                                     "RCPT TO: <bob@example.org>\r\n"
                                                     "RCPT TO: <eve@example.org>\r\n");
}

TEST(KvEmailDriverSendMailTest, RepliesOf2yzAnd3yzAreNotToldApart) {
    ScriptedSmtpServer server;
    server.on("MAIL").reply("354 what\r\n");
    server.on("RCPT").reply("199 hm\r\n");
    server.on("DATA").reply("250 fine\r\n");
    server.on(step::EndOfData).reply("354 more?\r\n");
    OpenEngine engine;
    engine.connectTo(server);
    SendSimple(engine);
    EXPECT_EQ(server.connection().clientBytes(), Hello + Envelope + SimpleMessage + ".\r\n");
}

TEST(KvEmailDriverSendMailTest, AConnectionLostInDataIsAnIoErrorAndTheSessionIsNotClosedHere) {
    ScriptedSmtpServer server;
    server.on("DATA").reply(Reply().thenClose());
    OpenEngine engine;
    engine.connectTo(server);
    EXPECT_EQ(IoErrorOf([&] { SendSimple(engine); }), "Socket is closed");
    EXPECT_EQ(engine.job().strHost, "127.0.0.1");
    EXPECT_FALSE(engine.IsAlive());
}

// STARTTLS on demand

const std::string Upgrade = "STARTTLS\r\n" + Hello + "AUTH PLAIN\r\nAGFubgBzZWNyZXQ=\r\n";

void ConnectInMode(OpenEngine& engine, const ScriptedSmtpServer& server, KvEmailDriver::SmtpSecType mode) {
    engine.Connect(server.address(), "ann", "secret", mode);
}

struct Demand {
    const char* demandingStep;
    std::string sentInClear;
};

class KvEmailDriverStartTlsDemandTest : public testing::TestWithParam<Demand> {};

TEST_P(KvEmailDriverStartTlsDemandTest, StartsTlsAuthenticatesAndRepeatsTheWholeTransaction) {
    ScriptedSmtpServer server(OfferingStartTls());
    server.on(GetParam().demandingStep).inClear().reply(MustStartTls);
    OpenEngine engine(nullptr, CaFile());
    ConnectInMode(engine, server, KvEmailDriver::SecTLSOnDemand);
    SendSimple(engine);
    EXPECT_EQ(server.connection().clientBytes(),
              Hello + GetParam().sentInClear + Upgrade + Envelope + SimpleMessage + ".\r\n");
    EXPECT_TRUE(server.transactions().back().accepted());
    EXPECT_TRUE(server.transactions().back().insideTls);
    EXPECT_TRUE(server.transactions().back().authenticated);
}

INSTANTIATE_TEST_SUITE_P(
    Steps, KvEmailDriverStartTlsDemandTest,
    testing::Values(Demand{"MAIL", "MAIL FROM: <ann@example.org>\r\n"},
                    Demand{"RCPT", "MAIL FROM: <ann@example.org>\r\nRCPT TO: <bob@example.org>\r\n"},
                    Demand{"DATA", Envelope}, Demand{"END-OF-DATA", Envelope + SimpleMessage + ".\r\n"}),
    [](const auto& param) {
        std::string name = param.param.demandingStep;
        std::erase(name, '-');
        return name;
    });

TEST(KvEmailDriverSendMailTest, TheThreeStepsOfTheRepetitionAreLoggedAsDebug) {
    ScriptedSmtpServer server(OfferingStartTls());
    server.on("MAIL").inClear().reply(MustStartTls);
    RecordingLog log;
    OpenEngine engine(&log, CaFile());
    ConnectInMode(engine, server, KvEmailDriver::SecTLSOnDemand);
    SendSimple(engine);
    EXPECT_EQ(log.texts(Severity::Debug), (Texts{"Attempting TLS Hand Shake...", "Authorizing if required...",
                                                 "Re-Attempting message sending..."}));
    for (const kvtest::LogEntry& entry : log.entriesContaining("ing")) {
        if (entry.severity == Severity::Debug) {
            EXPECT_THAT(entry.file, EndsWith("system/src/KvEmailDriver"));
        }
    }
}

TEST(KvEmailDriverSendMailTest, ASecondDemandInsideTlsEndsWith816) {
    ScriptedSmtpServer server(OfferingStartTls());
    server.on("MAIL").reply(MustStartTls);
    RecordingLog log;
    OpenEngine engine(&log, CaFile());
    ConnectInMode(engine, server, KvEmailDriver::SecTLSOnDemand);
    const KvSmtpException error = SmtpErrorOf([&] { SendSimple(engine); });
    EXPECT_EQ(error.m_nError, 816);
    EXPECT_EQ(error.m_strError, "STARTTLS Failed after Must Start TLS Response");
    EXPECT_EQ(server.connection().clientBytes(), Hello + "MAIL FROM: <ann@example.org>\r\n" + Upgrade +
                                                     "MAIL FROM: <ann@example.org>\r\nSTARTTLS\r\n");
    EXPECT_EQ(log.texts(Severity::Debug),
              (Texts{"Attempting TLS Hand Shake...", "Authorizing if required...",
                     "Re-Attempting message sending...", "Attempting TLS Hand Shake..."}));
}

TEST(KvEmailDriverSendMailTest, ADemandWithoutAnOfferEndsWith816AndSendsNoStartTls) {
    ScriptedSmtpServer server;
    server.on("MAIL").reply(MustStartTls);
    OpenEngine engine;
    ConnectInMode(engine, server, KvEmailDriver::SecTLSOnDemand);
    EXPECT_EQ(SmtpErrorOf([&] { SendSimple(engine); }).m_nError, 816);
    EXPECT_EQ(server.connection().clientBytes(), Hello + "MAIL FROM: <ann@example.org>\r\n");
}

TEST(KvEmailDriverSendMailTest, InEveryOtherModeTheDemandIsPassedOn) {
    for (const auto mode :
         {KvEmailDriver::SecNone, KvEmailDriver::SecClear, KvEmailDriver::SecTLSIfAvailable}) {
        ScriptedSmtpServer server;
        server.on("MAIL").reply(MustStartTls);
        RecordingLog log;
        OpenEngine engine(&log);
        ConnectInMode(engine, server, mode);
        const KvSmtpException error = SmtpErrorOf([&] { SendSimple(engine); });
        EXPECT_EQ(error.m_nError, 530) << mode;
        EXPECT_EQ(error.m_strError, "5.7.0 Must issue a STARTTLS command first\r\n");
        EXPECT_EQ(server.connection().clientBytes(), Hello + "MAIL FROM: <ann@example.org>\r\n");
        EXPECT_EQ(log.count(Severity::Debug), 0);
    }
}

TEST(KvEmailDriverSendMailTest, InModeRequiredADemandInsideTlsIsPassedOn) {
    ScriptedSmtpServer server(OfferingStartTls());
    server.on("MAIL").reply(MustStartTls);
    OpenEngine engine(nullptr, CaFile());
    ConnectInMode(engine, server, KvEmailDriver::SecTLSRequired);
    EXPECT_EQ(SmtpErrorOf([&] { SendSimple(engine); }).m_nError, 530);
    EXPECT_EQ(server.commandCount("STARTTLS"), 1);
}

TEST(KvEmailDriverSendMailTest, A530WithoutTheWordStartTlsIsPassedOn) {
    ScriptedSmtpServer server(OfferingStartTls());
    server.on("MAIL").reply("530 5.7.0 authentication required\r\n");
    OpenEngine engine(nullptr, CaFile());
    ConnectInMode(engine, server, KvEmailDriver::SecTLSOnDemand);
    EXPECT_EQ(SmtpErrorOf([&] { SendSimple(engine); }).m_nError, 530);
    EXPECT_EQ(server.commandCount("STARTTLS"), 0);
}

TEST(KvEmailDriverSendMailTest, AnotherCodeWithTheWordStartTlsIsPassedOn) {
    ScriptedSmtpServer server(OfferingStartTls());
    server.on("MAIL").reply("550 5.7.0 use STARTTLS\r\n");
    OpenEngine engine(nullptr, CaFile());
    ConnectInMode(engine, server, KvEmailDriver::SecTLSOnDemand);
    EXPECT_EQ(SmtpErrorOf([&] { SendSimple(engine); }).m_nError, 550);
    EXPECT_EQ(server.commandCount("STARTTLS"), 0);
}

TEST(KvEmailDriverSendMailTest, AFailedHandshakeOnDemandIsPassedOn) {
    ScriptedSmtpServer server(OfferingStartTls());
    server.on("MAIL").reply(MustStartTls);
    OpenEngine engine(nullptr, kvtest::TestCertificates::Shared().otherCaFile());
    ConnectInMode(engine, server, KvEmailDriver::SecTLSOnDemand);
    EXPECT_THAT(IoErrorOf([&] { SendSimple(engine); }), HasSubstr("SSL: SSL Connect Failed. Details: "));
}

TEST(KvEmailDriverSendMailTest, ARefusedAuthOnDemandIsPassedOn) {
    ScriptedSmtpServer server(OfferingStartTls());
    server.on("MAIL").reply(MustStartTls);
    OpenEngine engine(nullptr, CaFile());
    engine.Connect(server.address(), "ann", "wrong", KvEmailDriver::SecTLSOnDemand);
    EXPECT_EQ(SmtpErrorOf([&] { SendSimple(engine); }).m_nError, 535);
    EXPECT_EQ(server.commandCount("MAIL"), 1);
}

TEST(KvEmailDriverSendMailTest, WithoutCredentialsOnlyTlsIsStartedOnDemand) {
    ScriptedSmtpServer server(OfferingStartTls());
    server.on("MAIL").inClear().reply(MustStartTls);
    OpenEngine engine(nullptr, CaFile());
    engine.Connect(server.address(), "", "", KvEmailDriver::SecTLSOnDemand);
    SendSimple(engine);
    EXPECT_EQ(server.connection().clientBytes(), Hello + "MAIL FROM: <ann@example.org>\r\nSTARTTLS\r\n" +
                                                     Hello + Envelope + SimpleMessage + ".\r\n");
}

}  // namespace
