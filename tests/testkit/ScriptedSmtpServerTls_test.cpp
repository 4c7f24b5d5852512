#include <gmock/gmock.h>
#include <openssl/ssl.h>

#include <stdexcept>
#include <thread>
#include <vector>

#include "PlainSmtpClient.h"
#include "ScriptedSmtpServer.h"
#include "TestCertificates.h"

using namespace kvtest;
using testing::HasSubstr;
using namespace std::chrono_literals;
using End = PlainSmtpClient::End;

// STARTTLS, the handshake and what can go wrong with it.

namespace {

const TestCertificates& Certificates() {
    return TestCertificates::Shared();
}

/// Greeting, EHLO and STARTTLS; the handshake is up to the test.
std::string AskForTls(PlainSmtpClient& client) {
    client.readReply();
    client.command("EHLO client");
    return client.command("STARTTLS");
}

std::string HandshakeWith(const CertificateFiles& identity, const std::string& caFile) {
    const ScriptedSmtpServer server({.tls = Certificates().tlsWith(identity)});
    PlainSmtpClient client(server.port());
    AskForTls(client);
    return client.startTls(caFile);
}

}  // namespace

TEST(ScriptedSmtpServerTlsTest, WithoutACertificateStartTlsIsNeitherOfferedNorDone) {
    const ScriptedSmtpServer server;
    PlainSmtpClient client(server.port());
    client.readReply();
    EXPECT_EQ(client.command("EHLO client"), "250 test.example\r\n");
    EXPECT_EQ(client.command("STARTTLS"), "454 4.7.0 TLS not available\r\n");
}

TEST(ScriptedSmtpServerTlsTest, WithACertificateStartTlsIsOfferedInClearOnly) {
    const ScriptedSmtpServer server({.tls = Certificates().serverTls()});
    PlainSmtpClient client(server.port());
    client.readReply();
    EXPECT_EQ(client.command("EHLO client"), "250-test.example\r\n250 STARTTLS\r\n");
    EXPECT_EQ(client.command("STARTTLS"), "220 2.0.0 ready for TLS\r\n");
    ASSERT_EQ(client.startTls(Certificates().caFile()), "");
    EXPECT_EQ(client.command("EHLO client"), "250 test.example\r\n");
    EXPECT_EQ(client.command("STARTTLS"), "503 5.5.1 already inside TLS\r\n");
}

TEST(ScriptedSmtpServerTlsTest, ExtensionsInsideTlsMayDiffer) {
    const ScriptedSmtpServer server({.extensions = {{"STARTTLS"}},
                                     .extensionsInsideTls = {{"AUTH PLAIN"}},
                                     .tls = Certificates().serverTls()});
    PlainSmtpClient client(server.port());
    AskForTls(client);
    ASSERT_EQ(client.startTls(Certificates().caFile()), "");
    EXPECT_EQ(client.command("EHLO client"), "250-test.example\r\n250 AUTH PLAIN\r\n");
}

TEST(ScriptedSmtpServerTlsTest, TheTranscriptIsDecryptedAndMarked) {
    const ScriptedSmtpServer server({.tls = Certificates().serverTls()});
    PlainSmtpClient client(server.port());
    AskForTls(client);
    ASSERT_EQ(client.startTls(Certificates().caFile()), "");
    client.command("NOOP");
    const ConnectionRecord record = server.connection();
    EXPECT_EQ(record.toText(),
              "S: 220 test.example ESMTP\\r\\n\n"
              "C: EHLO client\\r\\n\n"
              "S: 250-test.example\\r\\n250 STARTTLS\\r\\n\n"
              "C: STARTTLS\\r\\n\n"
              "S: 220 2.0.0 ready for TLS\\r\\n\n"
              "C (tls): NOOP\\r\\n\n"
              "S (tls): 250 2.0.0 ok\\r\\n\n");
    EXPECT_FALSE(record.commands[1].insideTls);
    EXPECT_TRUE(record.commands[2].insideTls);
}

TEST(ScriptedSmtpServerTlsTest, ATransactionInsideTlsIsMarked) {
    const ScriptedSmtpServer server({.tls = Certificates().serverTls()});
    PlainSmtpClient client(server.port());
    client.readReply();
    client.command("MAIL FROM:<ann@x>");
    client.command("STARTTLS");
    ASSERT_EQ(client.startTls(Certificates().caFile()), "");
    EXPECT_EQ(client.command("MAIL FROM:<ann@x>"), "250 2.1.0 sender ok\r\n");
    const auto mails = server.transactions();
    ASSERT_EQ(mails.size(), 2U);
    EXPECT_EQ(mails[0].end, TransactionEnd::Abandoned);
    EXPECT_FALSE(mails[0].insideTls);
    EXPECT_TRUE(mails[1].insideTls);
}

TEST(ScriptedSmtpServerTlsTest, VersionAndClientCertificateAreRecorded) {
    const ScriptedSmtpServer server({.tls = Certificates().tlsDemandingClientCertificate()});
    PlainSmtpClient client(server.port());
    AskForTls(client);
    ASSERT_EQ(client.startTls(Certificates().caFile(), Certificates().client().certificate,
                              Certificates().client().key),
              "");
    EXPECT_EQ(client.command("NOOP"), "250 2.0.0 ok\r\n");
    EXPECT_TRUE(server.connection().tls);
    EXPECT_EQ(server.connection().tlsVersion, "TLSv1.3");
    EXPECT_TRUE(server.connection().sentClientCertificate());
    EXPECT_EQ(server.connection().clientCertificate, "/CN=test client");
}

TEST(ScriptedSmtpServerTlsTest, AClientWithoutACertificateIsRecordedAsSuch) {
    TlsOptions tls = Certificates().tlsDemandingClientCertificate();
    tls.clientCertificate = ClientCertificate::Asked;
    const ScriptedSmtpServer server({.tls = tls});
    PlainSmtpClient client(server.port());
    AskForTls(client);
    ASSERT_EQ(client.startTls(Certificates().caFile()), "");
    EXPECT_EQ(client.command("NOOP"), "250 2.0.0 ok\r\n");
    EXPECT_FALSE(server.connection().sentClientCertificate());
}

TEST(ScriptedSmtpServerTlsTest, AMissingClientCertificateFailsTheHandshakeWhereItIsRequired) {
    const ScriptedSmtpServer server({.tls = Certificates().tlsDemandingClientCertificate()});
    PlainSmtpClient client(server.port());
    AskForTls(client);
    // In TLS 1.3 the client believes the handshake done before the server refuses it.
    client.startTls(Certificates().caFile());
    EXPECT_EQ(client.command("NOOP"), "");
    ASSERT_TRUE(server.waitForOpenConnections(0));
    EXPECT_EQ(server.connection().end, ConnectionEnd::TlsFailed);
    EXPECT_EQ(server.connection().tlsError, "peer did not return a certificate");
}

TEST(ScriptedSmtpServerTlsTest, TheVersionCanBeBounded) {
    TlsOptions tls = Certificates().serverTls();
    tls.maxVersion = TLS1_2_VERSION;
    const ScriptedSmtpServer server({.tls = tls});
    PlainSmtpClient client(server.port());
    AskForTls(client);
    ASSERT_EQ(client.startTls(Certificates().caFile()), "");
    EXPECT_EQ(client.tlsVersion(), "TLSv1.2");
    client.command("NOOP");
    EXPECT_EQ(server.connection().tlsVersion, "TLSv1.2");
}

TEST(ScriptedSmtpServerTlsTest, ACertificateOfTheCaIsTrusted) {
    EXPECT_EQ(HandshakeWith(Certificates().server(), Certificates().caFile()), "");
}

TEST(ScriptedSmtpServerTlsTest, AnotherCaIsNotTrusted) {
    EXPECT_EQ(HandshakeWith(Certificates().server(), Certificates().otherCaFile()),
              "unable to get local issuer certificate");
    EXPECT_EQ(HandshakeWith(Certificates().fromOtherCa(), Certificates().caFile()),
              "unable to get local issuer certificate");
    EXPECT_EQ(HandshakeWith(Certificates().fromOtherCa(), Certificates().otherCaFile()), "");
}

TEST(ScriptedSmtpServerTlsTest, AnExpiredCertificateIsRefused) {
    EXPECT_EQ(HandshakeWith(Certificates().expired(), Certificates().caFile()), "certificate has expired");
}

TEST(ScriptedSmtpServerTlsTest, ASelfSignedCertificateIsTrustedByItselfOnly) {
    EXPECT_EQ(HandshakeWith(Certificates().selfSigned(), Certificates().caFile()), "self-signed certificate");
    EXPECT_EQ(HandshakeWith(Certificates().selfSigned(), Certificates().selfSigned().certificate), "");
}

TEST(ScriptedSmtpServerTlsTest, AHandshakeThatTheClientRefusesIsRecorded) {
    const ScriptedSmtpServer server({.tls = Certificates().serverTls()});
    PlainSmtpClient client(server.port());
    AskForTls(client);
    EXPECT_NE(client.startTls(Certificates().otherCaFile()), "");
    ASSERT_TRUE(server.waitForOpenConnections(0));
    EXPECT_EQ(server.connection().end, ConnectionEnd::TlsFailed);
    EXPECT_EQ(server.connection().tlsError, "tlsv1 alert unknown ca");
    EXPECT_FALSE(server.connection().tls);
}

TEST(ScriptedSmtpServerTlsTest, AClientThatSpeaksNoTlsFailsTheHandshake) {
    const ScriptedSmtpServer server({.tls = Certificates().serverTls()});
    PlainSmtpClient client(server.port());
    AskForTls(client);
    client.send("EHLO client\r\n");
    client.waitForEnd();
    ASSERT_TRUE(server.waitForOpenConnections(0));
    EXPECT_EQ(server.connection().end, ConnectionEnd::TlsFailed);
    EXPECT_NE(server.connection().tlsError, "");
}

TEST(ScriptedSmtpServerTlsTest, GarbageInsteadOfAHandshakeFailsTheClient) {
    ScriptedSmtpServer server({.tls = Certificates().serverTls()});
    server.on("STARTTLS").reply(Reply("220 go\r\n").thenStartTlsGarbage());
    PlainSmtpClient client(server.port());
    EXPECT_EQ(AskForTls(client), "220 go\r\n");
    EXPECT_EQ(client.startTls(Certificates().caFile()), "wrong version number");
    EXPECT_THAT(server.connection().serverBytes(), HasSubstr("This is no TLS record."));
}

TEST(ScriptedSmtpServerTlsTest, TheGoAheadCanBeFollowedBySomethingElse) {
    ScriptedSmtpServer server({.tls = Certificates().serverTls()});
    server.on("STARTTLS").connection(1).reply(Reply("220 go\r\n").thenClose());
    server.on("STARTTLS").connection(2).reply(Reply("220 go\r\n").thenReset());
    PlainSmtpClient closed(server.port());
    AskForTls(closed);
    EXPECT_EQ(closed.startTls(Certificates().caFile()), "unexpected eof while reading");
    PlainSmtpClient reset(server.port());
    AskForTls(reset);
    EXPECT_NE(reset.startTls(Certificates().caFile()), "");
}

TEST(ScriptedSmtpServerTlsTest, AStalledHandshakeEndsWithTheServer) {
    ScriptedSmtpServer server({.tls = Certificates().serverTls()});
    server.on("STARTTLS").reply(Reply("220 go\r\n").thenStall());
    PlainSmtpClient client(server.port());
    AskForTls(client);
    std::thread handshake([&] { EXPECT_NE(client.startTls(Certificates().caFile()), ""); });
    server.stop();
    handshake.join();
}

TEST(ScriptedSmtpServerTlsTest, AServerWaitingForAHandshakeStopsPromptly) {
    ScriptedSmtpServer server({.tls = Certificates().serverTls()});
    PlainSmtpClient client(server.port());
    AskForTls(client);
    server.stop();
    EXPECT_EQ(server.connection().end, ConnectionEnd::Stopped);
}

TEST(ScriptedSmtpServerTlsTest, ARefusedStartTlsLeavesTheConversationInClear) {
    ScriptedSmtpServer server({.tls = Certificates().serverTls()});
    server.on("STARTTLS").reply("454 4.7.0 not now\r\n");
    PlainSmtpClient client(server.port());
    EXPECT_EQ(AskForTls(client), "454 4.7.0 not now\r\n");
    EXPECT_EQ(client.command("NOOP"), "250 2.0.0 ok\r\n");
    EXPECT_FALSE(server.connection().tls);
}

TEST(ScriptedSmtpServerTlsTest, StartTlsScriptedWithoutACertificateIsAScriptFailure) {
    ScriptedSmtpServer server;
    server.on("STARTTLS").reply("220 go\r\n");
    PlainSmtpClient client(server.port());
    AskForTls(client);
    ASSERT_TRUE(server.waitForOpenConnections(0));
    EXPECT_EQ(server.connection().end, ConnectionEnd::ScriptFailed);
    EXPECT_EQ(server.connection().scriptError, "STARTTLS is scripted, but the server has no certificate");
}

TEST(ScriptedSmtpServerTlsTest, WhatWasSentInClearBehindStartTlsIsDropped) {
    const ScriptedSmtpServer server({.tls = Certificates().serverTls()});
    PlainSmtpClient client(server.port());
    client.readReply();
    client.send("STARTTLS\r\nNOOP injected\r\n");
    EXPECT_EQ(client.readReply(), "220 2.0.0 ready for TLS\r\n");
    ASSERT_EQ(client.startTls(Certificates().caFile()), "");
    EXPECT_EQ(client.command("RSET"), "250 2.0.0 reset\r\n");
}

TEST(ScriptedSmtpServerTlsTest, AStepCanBeScriptedForClearAndForTls) {
    ScriptedSmtpServer server({.tls = Certificates().serverTls()});
    server.on("MAIL").inClear().reply("530 5.7.0 Must issue a STARTTLS command first\r\n");
    PlainSmtpClient client(server.port());
    client.readReply();
    EXPECT_EQ(client.command("MAIL FROM:<ann@x>"), "530 5.7.0 Must issue a STARTTLS command first\r\n");
    client.command("STARTTLS");
    ASSERT_EQ(client.startTls(Certificates().caFile()), "");
    EXPECT_EQ(client.command("MAIL FROM:<ann@x>"), "250 2.1.0 sender ok\r\n");
}

TEST(ScriptedSmtpServerTlsTest, ASplitReplyIsOneRecordForEachPiece) {
    ScriptedSmtpServer server({.tls = Certificates().serverTls()});
    server.on("NOOP").reply(Reply("250 ok\r\n").split({3}));
    PlainSmtpClient client(server.port());
    AskForTls(client);
    ASSERT_EQ(client.startTls(Certificates().caFile()), "");
    client.send("NOOP\r\n");
    EXPECT_EQ(client.readSome(), "250");
    EXPECT_EQ(client.readSome(), " ok\r\n");
}

TEST(ScriptedSmtpServerTlsTest, CloseSendsTheCloseNotificationAndCloseAbruptlyDoesNot) {
    ScriptedSmtpServer server({.tls = Certificates().serverTls()});
    server.on("NOOP").connection(1).reply(Reply().thenClose());
    server.on("NOOP").connection(2).reply(Reply().thenCloseAbruptly());
    for (const bool notified : {true, false}) {
        PlainSmtpClient client(server.port());
        AskForTls(client);
        ASSERT_EQ(client.startTls(Certificates().caFile()), "");
        client.send("NOOP\r\n");
        EXPECT_EQ(client.waitForEnd(), End::Closed);
        EXPECT_EQ(client.wasCloseNotified(), notified);
    }
}

TEST(ScriptedSmtpServerTlsTest, AResetInsideTlsIsSeenAsSuch) {
    ScriptedSmtpServer server({.tls = Certificates().serverTls()});
    server.on("NOOP").reply(Reply().thenReset());
    PlainSmtpClient client(server.port());
    AskForTls(client);
    ASSERT_EQ(client.startTls(Certificates().caFile()), "");
    client.send("NOOP\r\n");
    EXPECT_EQ(client.waitForEnd(), End::Reset);
}

TEST(ScriptedSmtpServerTlsTest, HowTheClientLeavesInsideTlsIsRecorded) {
    const ScriptedSmtpServer server({.tls = Certificates().serverTls()});
    for (int i = 1; i <= 2; ++i) {
        PlainSmtpClient client(server.port());
        AskForTls(client);
        ASSERT_EQ(client.startTls(Certificates().caFile()), "");
        client.command("NOOP");
        i == 1 ? client.close() : client.reset();
        ASSERT_TRUE(server.waitForConnections(i));
        ASSERT_TRUE(server.waitForOpenConnections(0));
    }
    EXPECT_EQ(server.connection(1).end, ConnectionEnd::ClientClosed);
    EXPECT_TRUE(server.connection(1).closeNotified);
    EXPECT_EQ(server.connection(2).end, ConnectionEnd::ClientReset);
    EXPECT_FALSE(server.connection(2).closeNotified);
}

TEST(ScriptedSmtpServerTlsTest, ManyClientsShakeHandsAtOnce) {
    const ScriptedSmtpServer server({.tls = Certificates().serverTls()});
    std::vector<std::thread> threads;
    for (int i = 0; i < 16; ++i) {
        threads.emplace_back([&] {
            PlainSmtpClient client(server.port());
            AskForTls(client);
            EXPECT_EQ(client.startTls(Certificates().caFile()), "");
            EXPECT_EQ(client.command("NOOP"), "250 2.0.0 ok\r\n");
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(server.commandCount("NOOP"), 16);
}

TEST(ScriptedSmtpServerTlsTest, CertificateFilesThatAreNoGoodAreRefusedAtOnce) {
    EXPECT_THROW(ScriptedSmtpServer({.tls = TlsOptions{.certificateFile = "/nowhere"}}), std::runtime_error);
    const CertificateFiles mismatch{Certificates().server().certificate, Certificates().unrelatedKeyFile()};
    EXPECT_THROW(ScriptedSmtpServer({.tls = Certificates().tlsWith(mismatch)}), std::runtime_error);
}
