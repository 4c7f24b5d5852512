#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Descriptors.h"
#include "KvEmailDriver.h"
#include "RecordingLog.h"
#include "TestPorts.h"
#include "system/EngineDoubles.h"

// The connect sequence: greeting, EHLO or HELO, STARTTLS by mode, AUTH.

namespace {

using kvtest::CaFile;
using kvtest::IoErrorOf;
using kvtest::OfferingAuth;
using kvtest::OfferingStartTls;
using kvtest::OpenEngine;
using kvtest::RecordingLog;
using kvtest::RefusingPort;
using kvtest::Reply;
using kvtest::ScriptedSmtpServer;
using kvtest::SmtpErrorOf;
using kvtest::SmtpServerOptions;
using kvtest::TestCertificates;
using testing::HasSubstr;
namespace step = kvtest::step;

constexpr const char* MustStartTls = "530 5.7.0 Must issue a STARTTLS command first\r\n";

const std::string PlainExchange = "AUTH PLAIN\r\nAGFubgBzZWNyZXQ=\r\n";

/// The SMTP error of a connect as user "ann" with password "secret".
KvSmtpException ConnectError(OpenEngine& engine, const ScriptedSmtpServer& server,
                             KvEmailDriver::SmtpSecType mode) {
    return SmtpErrorOf([&] { engine.Connect(server.address(), "ann", "secret", mode); });
}

// The address

TEST(KvEmailDriverTest, ConnectRecordsWhatItWasGiven) {
    ScriptedSmtpServer server;
    OpenEngine engine;
    engine.Connect(server.address(), "ann", "secret", KvEmailDriver::SecClear);
    EXPECT_EQ(engine.job().strHost, "127.0.0.1");
    EXPECT_EQ(engine.job().nPort, server.port());
    EXPECT_EQ(engine.job().strUser, "ann");
    EXPECT_EQ(engine.job().strPassword, "secret");
    EXPECT_EQ(engine.job().eSecType, KvEmailDriver::SecClear);
}

TEST(KvEmailDriverTest, ASecondConnectKeepsThePortAndDoesNotStripThePortSuffix) {
    ScriptedSmtpServer server;
    OpenEngine engine;
    engine.job().nPort = server.port();
    engine.Connect("127.0.0.1", "", "", KvEmailDriver::SecNone);
    EXPECT_EQ(server.acceptedConnections(), 1);
    EXPECT_EQ(IoErrorOf([&] { engine.Connect("127.0.0.1:9", "", "", KvEmailDriver::SecNone); }),
              "Socket Unknown Remote Host");
    EXPECT_EQ(engine.job().strHost, "127.0.0.1:9");
    EXPECT_EQ(engine.job().nPort, server.port());
    EXPECT_EQ(engine.socket().GetRemoteAddress(), "127.0.0.1:9:" + std::to_string(server.port()));
}

TEST(KvEmailDriverTest, ARefusedConnectionIsAnIoErrorAndTheRecordStays) {
    const RefusingPort port;
    OpenEngine engine;
    EXPECT_EQ(IoErrorOf([&] { engine.Connect(port.address(), "ann", "secret", KvEmailDriver::SecClear); }),
              "Socket Connecting Failed");
    EXPECT_EQ(engine.job().strHost, "127.0.0.1");
    EXPECT_EQ(engine.job().nPort, port.port());
    EXPECT_EQ(engine.job().strUser, "ann");
}

TEST(KvEmailDriverTest, AFailedConnectLeavesNoDescriptorBehindItsEngine) {
    const RefusingPort port;
    const int before = kvtest::OpenDescriptorCount();
    {
        OpenEngine engine;
        IoErrorOf([&] { engine.Connect(port.address(), "", "", KvEmailDriver::SecNone); });
    }
    EXPECT_EQ(kvtest::OpenDescriptorCount(), before);
}

// Greeting and EHLO

TEST(KvEmailDriverTest, ANegativeGreetingIsRaisedAtOnceAndTheSocketStaysOpen) {
    ScriptedSmtpServer server;
    server.on(step::Greeting).reply("421 4.3.2 too busy\r\n");
    OpenEngine engine;
    const KvSmtpException error = ConnectError(engine, server, KvEmailDriver::SecNone);
    EXPECT_EQ(error.m_nError, 421);
    EXPECT_EQ(error.m_strError, "4.3.2 too busy\r\n");
    engine.SmtpWrite(std::string("NOOP\r\n"));
    ASSERT_TRUE(server.waitForCommand("NOOP"));
    EXPECT_EQ(server.connection().clientBytes(), "NOOP\r\n");
}

TEST(KvEmailDriverTest, AServerThatClosesInsteadOfGreetingIsAnIoError) {
    ScriptedSmtpServer server;
    server.on(step::Greeting).reply(Reply().thenClose());
    OpenEngine engine;
    EXPECT_EQ(IoErrorOf([&] { engine.connectTo(server); }), "Socket is closed");
}

TEST(KvEmailDriverTest, ARefusedEhloIsFollowedByHelo) {
    ScriptedSmtpServer server;
    server.on("EHLO").reply("502 5.5.1 not implemented\r\n");
    OpenEngine engine;
    engine.connectTo(server);
    EXPECT_EQ(server.connection().clientBytes(), "EHLO [127.0.0.1]\r\nHELO [127.0.0.1]\r\n");
}

TEST(KvEmailDriverTest, AfterARefusedEhloTheReplyToHeloSaysWhatIsOffered) {
    ScriptedSmtpServer server(OfferingAuth("LOGIN"));
    server.on("EHLO").reply("502 AUTH PLAIN\r\n");
    server.on("HELO").reply("250 AUTH LOGIN\r\n");
    OpenEngine engine;
    engine.Connect(server.address(), "ann", "secret", KvEmailDriver::SecNone);
    EXPECT_EQ(server.connection().steps(),
              (std::vector<std::string>{"EHLO", "HELO", "AUTH", "AUTH-USER", "AUTH-PASSWORD"}));
}

TEST(KvEmailDriverTest, WhenBothAreRefusedTheErrorIsThatOfHeloAndTheSocketStaysOpen) {
    ScriptedSmtpServer server;
    server.on("EHLO").reply("502 5.5.1 no EHLO\r\n");
    server.on("HELO").reply("504 5.5.4 no HELO\r\n");
    OpenEngine engine;
    const KvSmtpException error = ConnectError(engine, server, KvEmailDriver::SecNone);
    EXPECT_EQ(error.m_nError, 504);
    EXPECT_EQ(error.m_strError, "5.5.4 no HELO\r\n");
    engine.SmtpWrite(std::string("NOOP\r\n"));
    EXPECT_TRUE(server.waitForCommand("NOOP"));
}

TEST(KvEmailDriverTest, AReplyToEhloOfThreeCharactersIsFollowedByHelo) {
    ScriptedSmtpServer server;
    server.on("EHLO").reply("500");
    OpenEngine engine;
    engine.connectTo(server);
    EXPECT_EQ(server.connection().steps(), (std::vector<std::string>{"EHLO", "HELO"}));
}

TEST(KvEmailDriverTest, AConnectionLostAfterEhloFailsTheHeloAndIsAnIoError) {
    ScriptedSmtpServer server;
    server.on("EHLO").reply(Reply().thenReset());
    RecordingLog log;
    OpenEngine engine(&log);
    const std::string error = IoErrorOf([&] { engine.connectTo(server); });
    EXPECT_TRUE(log.contains("<= HELO [127.0.0.1]<CR><LF>"));
    EXPECT_THAT(error, testing::AnyOf("Socket Write Error", "Socket Read Error", "Socket is closed"));
    ASSERT_TRUE(server.waitForOpenConnections(0));
    EXPECT_EQ(server.connection().clientBytes(), "EHLO [127.0.0.1]\r\n");
}

// Authentication during connect

TEST(KvEmailDriverTest, WithoutAnOfferNothingIsSaidAboutAuthentication) {
    ScriptedSmtpServer server;
    OpenEngine engine;
    engine.Connect(server.address(), "ann", "secret", KvEmailDriver::SecNone);
    EXPECT_EQ(server.connection().clientBytes(), "EHLO [127.0.0.1]\r\n");
}

TEST(KvEmailDriverTest, ARefusedAuthClosesTheConnectionAndTheRecordStays) {
    ScriptedSmtpServer server(OfferingAuth("PLAIN"));
    OpenEngine engine;
    const KvSmtpException error =
        SmtpErrorOf([&] { engine.Connect(server.address(), "ann", "wrong", KvEmailDriver::SecTLSOnDemand); });
    EXPECT_EQ(error.m_nError, 535);
    EXPECT_EQ(error.m_strError, "5.7.8 authentication failed\r\n");
    EXPECT_TRUE(server.waitForOpenConnections(0));
    EXPECT_EQ(engine.job().strUser, "ann");
    EXPECT_EQ(engine.job().nPort, server.port());
}

TEST(KvEmailDriverTest, AuthDemandingStartTlsInModeOneIsRepeatedUntilItSucceeds) {
    ScriptedSmtpServer server(OfferingAuth("PLAIN"));
    server.on("AUTH").times(3).reply(MustStartTls);
    OpenEngine engine;
    engine.Connect(server.address(), "ann", "secret", KvEmailDriver::SecTLSOnDemand);
    EXPECT_EQ(server.connection().clientBytes(),
              "EHLO [127.0.0.1]\r\nAUTH PLAIN\r\nAUTH PLAIN\r\nAUTH PLAIN\r\n" + PlainExchange);
}

TEST(KvEmailDriverTest, TheRepetitionInModeOneEndsWithAnyOtherError) {
    ScriptedSmtpServer server(OfferingAuth("PLAIN"));
    server.on("AUTH").reply("534 5.7.9 too weak\r\n");
    server.on("AUTH").times(2).reply(MustStartTls);
    OpenEngine engine;
    EXPECT_EQ(ConnectError(engine, server, KvEmailDriver::SecTLSOnDemand).m_nError, 534);
    EXPECT_EQ(server.commandCount("AUTH"), 3);
    EXPECT_TRUE(server.waitForOpenConnections(0));
}

TEST(KvEmailDriverTest, ADemandForStartTlsAtAuthIsPassedOnInTheOtherModes) {
    for (const auto mode :
         {KvEmailDriver::SecNone, KvEmailDriver::SecClear, KvEmailDriver::SecTLSIfAvailable}) {
        ScriptedSmtpServer server(OfferingAuth("PLAIN"));
        server.on("AUTH").reply(MustStartTls);
        OpenEngine engine;
        const KvSmtpException error = ConnectError(engine, server, mode);
        EXPECT_EQ(error.m_nError, 530) << mode;
        EXPECT_EQ(error.m_strError, "5.7.0 Must issue a STARTTLS command first\r\n");
        EXPECT_EQ(server.commandCount("AUTH"), 1);
        EXPECT_TRUE(server.waitForOpenConnections(0));
    }
}

TEST(KvEmailDriverTest, AnotherCodeWithTheWordStartTlsIsNoDemand) {
    ScriptedSmtpServer server(OfferingAuth("PLAIN"));
    server.on("AUTH").reply("538 5.7.11 use STARTTLS\r\n");
    OpenEngine engine;
    EXPECT_EQ(ConnectError(engine, server, KvEmailDriver::SecTLSOnDemand).m_nError, 538);
    EXPECT_EQ(server.commandCount("AUTH"), 1);
}

TEST(KvEmailDriverTest, A530WithoutTheWordInUpperCaseIsNoDemand) {
    ScriptedSmtpServer server(OfferingAuth("PLAIN"));
    server.on("AUTH").reply("530 5.7.0 use starttls\r\n");
    OpenEngine engine;
    EXPECT_EQ(ConnectError(engine, server, KvEmailDriver::SecTLSOnDemand).m_nError, 530);
    EXPECT_EQ(server.commandCount("AUTH"), 1);
}

// STARTTLS during connect

TEST(KvEmailDriverTest, ModesNoneOnDemandAndClearDoNotUseAnOfferedStartTls) {
    for (const auto mode : {KvEmailDriver::SecNone, KvEmailDriver::SecTLSOnDemand, KvEmailDriver::SecClear}) {
        ScriptedSmtpServer server(OfferingStartTls());
        OpenEngine engine(nullptr, CaFile());
        engine.Connect(server.address(), "ann", "secret", mode);
        EXPECT_EQ(server.connection().clientBytes(), "EHLO [127.0.0.1]\r\n") << mode;
    }
}

TEST(KvEmailDriverTest, ModesIfAvailableAndRequiredStartTlsBeforeTheyAuthenticate) {
    for (const auto mode : {KvEmailDriver::SecTLSIfAvailable, KvEmailDriver::SecTLSRequired}) {
        ScriptedSmtpServer server(OfferingStartTls());
        OpenEngine engine(nullptr, CaFile());
        engine.Connect(server.address(), "ann", "secret", mode);
        EXPECT_EQ(server.connection().clientBytes(),
                  "EHLO [127.0.0.1]\r\nSTARTTLS\r\nEHLO [127.0.0.1]\r\n" + PlainExchange)
            << mode;
        EXPECT_TRUE(server.connection().tls);
        EXPECT_TRUE(server.connection().authentications.at(0).accepted);
    }
}

TEST(KvEmailDriverTest, ModeRequiredWithoutAnOfferFailsBeforeAnyAuthAndCloses) {
    ScriptedSmtpServer server(OfferingAuth("PLAIN"));
    OpenEngine engine;
    const KvSmtpException error = ConnectError(engine, server, KvEmailDriver::SecTLSRequired);
    EXPECT_EQ(error.m_nError, 815);
    EXPECT_EQ(error.m_strError, "TLS Required but not supported");
    ASSERT_TRUE(server.waitForOpenConnections(0));
    EXPECT_EQ(server.connection().clientBytes(), "EHLO [127.0.0.1]\r\n");
}

TEST(KvEmailDriverTest, ModeIfAvailableWithoutAnOfferGoesOnInClear) {
    ScriptedSmtpServer server(OfferingAuth("PLAIN"));
    OpenEngine engine;
    engine.Connect(server.address(), "ann", "secret", KvEmailDriver::SecTLSIfAvailable);
    EXPECT_EQ(server.connection().clientBytes(), "EHLO [127.0.0.1]\r\n" + PlainExchange);
    EXPECT_FALSE(server.connection().tls);
}

SmtpServerOptions RefusingStartTls() {
    SmtpServerOptions options = OfferingAuth("PLAIN");
    options.extensions = {{"STARTTLS", "AUTH PLAIN"}};
    return options;
}

TEST(KvEmailDriverTest, ARefusedStartTlsIsTakenAsNotSupported) {
    ScriptedSmtpServer server(RefusingStartTls());  // answers STARTTLS with 454
    OpenEngine available;
    available.Connect(server.address(), "ann", "secret", KvEmailDriver::SecTLSIfAvailable);
    EXPECT_EQ(server.connection(1).clientBytes(), "EHLO [127.0.0.1]\r\nSTARTTLS\r\n" + PlainExchange);
    OpenEngine required;
    EXPECT_EQ(ConnectError(required, server, KvEmailDriver::SecTLSRequired).m_nError, 815);
    ASSERT_TRUE(server.waitForOpenConnections(1));
    EXPECT_EQ(server.connection(2).clientBytes(), "EHLO [127.0.0.1]\r\nSTARTTLS\r\n");
}

TEST(KvEmailDriverTest, AReplyToStartTlsThatIsNot2yzIsTakenAsNotSupported) {
    ScriptedSmtpServer server(RefusingStartTls());
    server.on("STARTTLS").reply("320 perhaps\r\n");
    OpenEngine engine;
    EXPECT_EQ(ConnectError(engine, server, KvEmailDriver::SecTLSRequired).m_nError, 815);
}

TEST(KvEmailDriverTest, IsTlsSupportedSaysNothingWithoutAnOffer) {
    ScriptedSmtpServer server;
    OpenEngine engine;
    engine.connectTo(server);
    EXPECT_FALSE(engine.IsTLSSupported(engine.job()));
    EXPECT_EQ(server.connection().clientBytes(), "EHLO [127.0.0.1]\r\n");
}

TEST(KvEmailDriverTest, IsTlsSupportedPassesOnALostConnection) {
    ScriptedSmtpServer server(RefusingStartTls());
    server.on("STARTTLS").reply(Reply().thenClose());
    OpenEngine engine;
    engine.connectTo(server);
    EXPECT_EQ(IoErrorOf([&] { engine.IsTLSSupported(engine.job()); }), "Socket is closed");
}

TEST(KvEmailDriverTest, ProcessTlsWithoutSupportFailsByMode) {
    OpenEngine engine;
    engine.job().eSecType = KvEmailDriver::SecTLSOnDemand;
    const KvSmtpException onDemand = SmtpErrorOf([&] { engine.ProcessTLS(); });
    EXPECT_EQ(onDemand.m_nError, 816);
    EXPECT_EQ(onDemand.m_strError, "STARTTLS Failed after Must Start TLS Response");
    engine.job().eSecType = KvEmailDriver::SecTLSRequired;
    EXPECT_EQ(SmtpErrorOf([&] { engine.ProcessTLS(); }).m_nError, 815);
    for (const auto mode :
         {KvEmailDriver::SecNone, KvEmailDriver::SecClear, KvEmailDriver::SecTLSIfAvailable}) {
        engine.job().eSecType = mode;
        EXPECT_NO_THROW(engine.ProcessTLS()) << mode;
    }
}

TEST(KvEmailDriverTest, TheOffersOfBothEhloRepliesAddUp) {
    ScriptedSmtpServer server(OfferingStartTls());
    OpenEngine engine(nullptr, CaFile());
    engine.Connect(server.address(), "ann", "secret", KvEmailDriver::SecTLSRequired);
    EXPECT_TRUE(engine.job().bStartTLS);
    EXPECT_TRUE(engine.job().bAuthPlain);
    EXPECT_TRUE(engine.job().bAuthLogin);
}

TEST(KvEmailDriverTest, AMechanismOfferedInClearIsUsedInsideTls) {
    SmtpServerOptions options = OfferingStartTls();
    options.extensions = {{"STARTTLS", "AUTH PLAIN"}};
    options.extensionsInsideTls = std::vector<std::string>{};
    ScriptedSmtpServer server(options);
    OpenEngine engine(nullptr, CaFile());
    engine.Connect(server.address(), "ann", "secret", KvEmailDriver::SecTLSIfAvailable);
    EXPECT_EQ(server.connection().steps(),
              (std::vector<std::string>{"EHLO", "STARTTLS", "EHLO", "AUTH", "AUTH-PLAIN"}));
}

TEST(KvEmailDriverTest, AnEhloRefusedInsideTlsIsFollowedByHelo) {
    ScriptedSmtpServer server(OfferingStartTls());
    server.on("EHLO").insideTls().reply("502 5.5.1 not again\r\n");
    OpenEngine engine(nullptr, CaFile());
    engine.Connect(server.address(), "ann", "secret", KvEmailDriver::SecTLSRequired);
    EXPECT_EQ(server.connection().clientBytes(),
              "EHLO [127.0.0.1]\r\nSTARTTLS\r\nEHLO [127.0.0.1]\r\nHELO [127.0.0.1]\r\n");
}

TEST(KvEmailDriverTest, AnUntrustedServerCertificateFailsTheConnectAndCloses) {
    for (const auto mode : {KvEmailDriver::SecTLSIfAvailable, KvEmailDriver::SecTLSRequired}) {
        ScriptedSmtpServer server(OfferingStartTls());
        OpenEngine engine(nullptr, TestCertificates::Shared().otherCaFile());
        EXPECT_THAT(IoErrorOf([&] { engine.Connect(server.address(), "ann", "secret", mode); }),
                    HasSubstr("SSL: SSL Connect Failed. Details: SSL_ERROR_SSL."));
        ASSERT_TRUE(server.waitForOpenConnections(0));
        EXPECT_EQ(server.connection().clientBytes(), "EHLO [127.0.0.1]\r\nSTARTTLS\r\n");
        EXPECT_FALSE(server.connection().tls);
    }
}

TEST(KvEmailDriverTest, StartTlsWithoutACaFileFailsTheConnectAndCloses) {
    ScriptedSmtpServer server(OfferingStartTls());
    OpenEngine engine;
    EXPECT_EQ(IoErrorOf([&] {
                  engine.Connect(server.address(), "ann", "secret", KvEmailDriver::SecTLSIfAvailable);
              }),
              "SSL: Verify Location Failed");
    EXPECT_TRUE(server.waitForOpenConnections(0));
}

TEST(KvEmailDriverTest, TheClientCertificateIsShownToAServerThatDemandsOne) {
    const TestCertificates& certificates = TestCertificates::Shared();
    SmtpServerOptions options = OfferingStartTls();
    options.tls = certificates.tlsDemandingClientCertificate();
    ScriptedSmtpServer server(options);
    OpenEngine engine(nullptr, CaFile(), certificates.client().certificate, certificates.client().key);
    engine.Connect(server.address(), "ann", "secret", KvEmailDriver::SecTLSRequired);
    EXPECT_EQ(server.connection().clientCertificate, "/CN=test client");
}

TEST(KvEmailDriverTest, AnEngineInsideTlsAnswersIsAliveAndClosesCleanly) {
    ScriptedSmtpServer server(OfferingStartTls());
    OpenEngine engine(nullptr, CaFile());
    engine.Connect(server.address(), "", "", KvEmailDriver::SecTLSRequired);
    EXPECT_TRUE(engine.IsAlive());
    engine.Close();
    ASSERT_TRUE(server.waitForOpenConnections(0));
    EXPECT_EQ(server.connection().clientBytes(),
              "EHLO [127.0.0.1]\r\nSTARTTLS\r\nEHLO [127.0.0.1]\r\nRSET\r\n");
    EXPECT_TRUE(server.connection().closeNotified);
}

}  // namespace
