#include "KvEmailDriver.h"

#include <gtest/gtest.h>

#include <string>

#include "system/EngineDoubles.h"

// The session record and the lines of a conversation; the connect sequence is in
// KvEmailDriverConnect_test.cpp.

namespace {

using kvtest::OpenEngine;
using kvtest::ScriptedSmtpServer;

using Job = KvEmailDriver::Job;

Job WithHost(const std::string& host, int port = -1) {
    Job job;
    job.strHost = host;
    job.nPort = port;
    return job;
}

Job Resolved(const std::string& host, int port = -1) {
    OpenEngine engine;
    Job job = WithHost(host, port);
    engine.SetHostPort(job);
    return job;
}

int SmtpServicePort() {
    const int port = KvioSocket::KvAsciiToPort("smtp", "tcp");
    return port < 1 ? 25 : port;
}

Job Offered(const std::string& ehloReply, const std::string& user = "ann",
            const std::string& password = "secret") {
    OpenEngine engine;
    Job& job = engine.job();
    job.strUser = user;
    job.strPassword = password;
    engine.UpdateSupportedMethods(job, ehloReply);
    return job;
}

// The session record

TEST(KvEmailDriverTest, TheSecurityModesHaveTheirFixedValues) {
    EXPECT_EQ(KvEmailDriver::SecNone, 0);
    EXPECT_EQ(KvEmailDriver::SecTLSOnDemand, 1);
    EXPECT_EQ(KvEmailDriver::SecClear, 2);
    EXPECT_EQ(KvEmailDriver::SecTLSIfAvailable, 3);
    EXPECT_EQ(KvEmailDriver::SecTLSRequired, 4);
}

void ExpectEmpty(const Job& job) {
    EXPECT_EQ(
        job.strHost + job.strFrom + job.strTo + job.strSubject + job.strBody + job.strUser + job.strPassword,
        "");
    EXPECT_EQ(job.nPort, -1);
    EXPECT_EQ(job.eSecType, KvEmailDriver::SecNone);
    EXPECT_FALSE(job.bReserved || job.bStartTLS || job.bAuthLogin || job.bAuthPlain);
}

TEST(KvEmailDriverTest, ANewEngineHasAnEmptyRecord) {
    OpenEngine engine;
    ExpectEmpty(engine.job());
}

TEST(KvEmailDriverTest, ResetEmptiesTheRecord) {
    Job job{"mx1", 25, "a", "b", "c", "d", "e", "f", KvEmailDriver::SecTLSRequired, true, true, true, true};
    job.Reset();
    ExpectEmpty(job);
}

TEST(KvEmailDriverTest, ValidateJobAcceptsEveryRecord) {
    OpenEngine engine;
    Job job;
    EXPECT_TRUE(engine.ValidateJob(job));
    job.strHost = "mx1";
    EXPECT_TRUE(engine.ValidateJob(job));
    job.nPort = 25;
    EXPECT_TRUE(engine.ValidateJob(job));
    job.strFrom = "ann@example.org";
    EXPECT_TRUE(engine.ValidateJob(job));
    job.strBody = "Text";
    EXPECT_TRUE(engine.ValidateJob(job));
}

// SetHostPort

TEST(KvEmailDriverTest, ANumberBehindTheColonIsThePort) {
    const Job job = Resolved("mx1.example.org:587");
    EXPECT_EQ(job.strHost, "mx1.example.org");
    EXPECT_EQ(job.nPort, 587);
}

TEST(KvEmailDriverTest, ABareHostNameGetsThePortOfTheSmtpService) {
    const Job job = Resolved("mx1.example.org");
    EXPECT_EQ(job.strHost, "mx1.example.org");
    EXPECT_EQ(job.nPort, SmtpServicePort());
}

TEST(KvEmailDriverTest, AUselessPortIsStrippedAndReplacedByThatOfTheSmtpService) {
    for (const char* host : {"mx1:0", "mx1:abc", "mx1:", "mx1:-5", "mx1:x25"}) {
        const Job job = Resolved(host);
        EXPECT_EQ(job.strHost, "mx1") << host;
        EXPECT_EQ(job.nPort, SmtpServicePort()) << host;
    }
}

TEST(KvEmailDriverTest, OnlyTheLeadingDigitsBehindTheColonCount) {
    EXPECT_EQ(Resolved("mx1:25abc").nPort, 25);
    EXPECT_EQ(Resolved("mx1: 26").nPort, 26);
}

TEST(KvEmailDriverTest, TheFirstColonEndsTheHostName) {
    const Job job = Resolved("mx1:26:27");
    EXPECT_EQ(job.strHost, "mx1");
    EXPECT_EQ(job.nPort, 26);
    EXPECT_EQ(Resolved("fe80::1").strHost, "fe80");
}

TEST(KvEmailDriverTest, AKnownPortLeavesTheRecordAlone) {
    const Job job = Resolved("mx1:587", 2525);
    EXPECT_EQ(job.strHost, "mx1:587");
    EXPECT_EQ(job.nPort, 2525);
}

TEST(KvEmailDriverTest, APortBelowOneIsNotAKnownOne) {
    EXPECT_EQ(Resolved("mx1:587", 0).nPort, 587);
}

// What an EHLO reply offers

TEST(KvEmailDriverTest, AnOfferOfStartTlsAndBothMechanismsSetsAllThreeFlags) {
    const Job job = Offered("250-test.example\r\n250-STARTTLS\r\n250 AUTH LOGIN PLAIN\r\n");
    EXPECT_TRUE(job.bStartTLS);
    EXPECT_TRUE(job.bAuthLogin);
    EXPECT_TRUE(job.bAuthPlain);
}

TEST(KvEmailDriverTest, WithoutAPasswordOnlyStartTlsIsRecorded) {
    const Job job = Offered("250-STARTTLS\r\n250 AUTH LOGIN PLAIN\r\n", "ann", "");
    EXPECT_TRUE(job.bStartTLS);
    EXPECT_FALSE(job.bAuthLogin || job.bAuthPlain);
}

TEST(KvEmailDriverTest, WithoutAUserNameOnlyStartTlsIsRecorded) {
    const Job job = Offered("250-STARTTLS\r\n250 AUTH LOGIN PLAIN\r\n", "", "secret");
    EXPECT_TRUE(job.bStartTLS);
    EXPECT_FALSE(job.bAuthLogin || job.bAuthPlain);
}

TEST(KvEmailDriverTest, EachMechanismIsRecordedForItself) {
    EXPECT_TRUE(Offered("250 AUTH LOGIN\r\n").bAuthLogin);
    EXPECT_FALSE(Offered("250 AUTH LOGIN\r\n").bAuthPlain);
    EXPECT_TRUE(Offered("250 AUTH PLAIN\r\n").bAuthPlain);
    EXPECT_FALSE(Offered("250 AUTH PLAIN\r\n").bAuthLogin);
    EXPECT_FALSE(Offered("250 AUTH CRAM-MD5\r\n").bAuthLogin);
}

TEST(KvEmailDriverTest, AMechanismCountsOnlyInALineWithAuth) {
    const Job job = Offered("250-AUTH\r\n250-LOGIN\r\n250 PLAIN\r\n");
    EXPECT_FALSE(job.bAuthLogin || job.bAuthPlain);
}

TEST(KvEmailDriverTest, ALineWithStartTlsIsNotSearchedForMechanisms) {
    const Job job = Offered("250 STARTTLS AUTH LOGIN PLAIN\r\n");
    EXPECT_TRUE(job.bStartTLS);
    EXPECT_FALSE(job.bAuthLogin || job.bAuthPlain);
}

TEST(KvEmailDriverTest, TheWordsAreFoundAnywhereInTheLine) {
    EXPECT_TRUE(Offered("250 XSTARTTLSX\r\n").bStartTLS);
    EXPECT_TRUE(Offered("250 AUTH=LOGIN\r\n").bAuthLogin);
    EXPECT_TRUE(Offered("PLAINAUTH").bAuthPlain);
}

TEST(KvEmailDriverTest, TheWordsAreLookedForInUpperCaseOnly) {
    const Job job = Offered("250-starttls\r\n250 auth login plain\r\n");
    EXPECT_FALSE(job.bStartTLS || job.bAuthLogin || job.bAuthPlain);
}

TEST(KvEmailDriverTest, LinesMayEndInABareLineFeed) {
    const Job job = Offered("250-STARTTLS\n250 AUTH LOGIN\n");
    EXPECT_TRUE(job.bStartTLS);
    EXPECT_TRUE(job.bAuthLogin);
}

TEST(KvEmailDriverTest, AnEmptyReplyOffersNothing) {
    const Job job = Offered("");
    EXPECT_FALSE(job.bStartTLS || job.bAuthLogin || job.bAuthPlain);
}

TEST(KvEmailDriverTest, ALaterReplyClearsNoFlag) {
    OpenEngine engine;
    engine.job().strUser = "ann";
    engine.job().strPassword = "secret";
    engine.UpdateSupportedMethods(engine.job(), "250-STARTTLS\r\n250 AUTH LOGIN\r\n");
    engine.UpdateSupportedMethods(engine.job(), "250 AUTH PLAIN\r\n");
    EXPECT_TRUE(engine.job().bStartTLS);
    EXPECT_TRUE(engine.job().bAuthLogin);
    EXPECT_TRUE(engine.job().bAuthPlain);
}

// IsAlive

TEST(KvEmailDriverTest, AServerThatAnswersRsetIsAlive) {
    ScriptedSmtpServer server;
    OpenEngine engine;
    engine.connectTo(server);
    EXPECT_TRUE(engine.IsAlive());
    EXPECT_EQ(server.connection().clientBytes(), "EHLO [127.0.0.1]\r\nRSET\r\n");
}

TEST(KvEmailDriverTest, AConnectionThatTheServerHasClosedIsNotAlive) {
    ScriptedSmtpServer server;
    OpenEngine engine;
    engine.connectTo(server);
    server.closeConnections();
    EXPECT_FALSE(engine.IsAlive());
    EXPECT_FALSE(engine.IsAlive());
}

TEST(KvEmailDriverTest, AConnectionThatTheServerHasResetIsNotAlive) {
    ScriptedSmtpServer server;
    OpenEngine engine;
    engine.connectTo(server);
    server.resetConnections();
    EXPECT_FALSE(engine.IsAlive());
}

TEST(KvEmailDriverTest, ARefusedRsetIsNotAlive) {
    ScriptedSmtpServer server;
    server.on("RSET").occurrence(1).reply("421 4.3.2 going down\r\n");
    server.on("RSET").occurrence(2).reply("500 what\r\n");
    server.on("RSET").occurrence(3).reply("421");
    OpenEngine engine;
    engine.connectTo(server);
    EXPECT_FALSE(engine.IsAlive());
    EXPECT_FALSE(engine.IsAlive());
    EXPECT_FALSE(engine.IsAlive());
}

TEST(KvEmailDriverTest, AnyReplyButARefusalToRsetIsAlive) {
    ScriptedSmtpServer server;
    server.on("RSET").reply("999 what\r\n");
    OpenEngine engine;
    engine.connectTo(server);
    EXPECT_TRUE(engine.IsAlive());
}

TEST(KvEmailDriverTest, ANewOrAClosedEngineIsNotAlive) {
    ScriptedSmtpServer server;
    OpenEngine engine;
    EXPECT_FALSE(engine.IsAlive());
    engine.connectTo(server);
    engine.Close();
    EXPECT_FALSE(engine.IsAlive());
}

// The end of a session

TEST(KvEmailDriverTest, CloseClosesTheConnectionWithoutQuitAndEmptiesTheRecord) {
    ScriptedSmtpServer server;
    OpenEngine engine;
    engine.Connect(server.address(), "ann", "secret", KvEmailDriver::SecClear);
    engine.Close();
    ASSERT_TRUE(server.waitForOpenConnections(0));
    EXPECT_EQ(server.connection().clientBytes(), "EHLO [127.0.0.1]\r\n");
    EXPECT_EQ(server.connection().end, kvtest::ConnectionEnd::ClientClosed);
    ExpectEmpty(engine.job());
}

TEST(KvEmailDriverTest, DestructionClosesTheConnectionWithoutQuit) {
    ScriptedSmtpServer server;
    {
        OpenEngine engine;
        engine.connectTo(server);
    }
    ASSERT_TRUE(server.waitForOpenConnections(0));
    EXPECT_EQ(server.connection().clientBytes(), "EHLO [127.0.0.1]\r\n");
}

TEST(KvEmailDriverTest, AClosedEngineCanBeConnectedAgain) {
    ScriptedSmtpServer one;
    ScriptedSmtpServer other;
    OpenEngine engine;
    engine.connectTo(one);
    engine.Close();
    engine.connectTo(other);
    EXPECT_TRUE(engine.IsAlive());
    EXPECT_EQ(other.connection().clientBytes(), "EHLO [127.0.0.1]\r\nRSET\r\n");
}

}  // namespace
