#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <string>

#include "driver/SmtpDoubles.h"
#include "system/ExpectedMail.h"
#include "system/Transcript.h"

// Whole conversations of the real driver, from Configure to Cleanup, both sides, byte for byte.

namespace {

using kvtest::FileShelf;
using kvtest::Gate;
using kvtest::HostDoubles;
using kvtest::MailThrough;
using kvtest::MessageBuilder;
using kvtest::Reply;
using kvtest::ReturnsOf;
using kvtest::ScriptedSmtpServer;
using kvtest::Severity;
using kvtest::SimpleMessage;
using kvtest::Strings;
using kvtest::TestCertificates;
using kvtest::TranscriptOf;
using kvtest::WithAuth;
using kvtest::WithStartTlsAndAuth;
namespace step = kvtest::step;

constexpr const char* MustStartTls = "530 5.7.0 Must issue a STARTTLS command first\r\n";

/// A driver between Setup and Cleanup, and its host.
class RunningDriver {
public:
    RunningDriver() {
        m_host.lendTo(m_driver);
        std::map<std::string, std::string> settings;
        EXPECT_TRUE(m_driver.Configure(settings));
        EXPECT_TRUE(m_driver.Setup(&m_host.instanceConf));
    }
    ~RunningDriver() { cleanUp(); }

    RunningDriver(const RunningDriver&) = delete;
    RunningDriver& operator=(const RunningDriver&) = delete;

    void accept(const MessageBuilder& builder) {
        auto status = KvMessengerReportsMngrInterface::REPORT_NONE;
        EXPECT_TRUE(m_driver.SendAMessage(m_files.add(builder), status));
        EXPECT_EQ(status, KvMessengerReportsMngrInterface::REPORT_ACCEPTED);
        ++m_accepted;
    }
    /// One tick; waits until everything that was accepted so far has come back.
    void tick() {
        EXPECT_TRUE(m_driver.PeriodicEvent());
        EXPECT_TRUE(m_host.queue.waitFor(m_accepted));
    }
    /// One tick that waits for nothing.
    void dispatchOnly() { EXPECT_TRUE(m_driver.PeriodicEvent()); }
    void cleanUp() {
        if (m_running) {
            EXPECT_TRUE(m_driver.Cleanup());
            m_running = false;
        }
    }
    Strings returns() { return ReturnsOf(m_host.queue); }
    kvtest::RecordingLog& log() { return m_host.log; }

private:
    HostDoubles m_host;
    FileShelf m_files;
    KvSMTPDriver m_driver;
    int m_accepted = 0;
    bool m_running = true;
};

/// The conversation with `server` once everyone has left.
std::string WholeConversation(const ScriptedSmtpServer& server, int connection = 1) {
    EXPECT_TRUE(server.waitForOpenConnections(0));
    return TranscriptOf(server.connection(connection));
}

/// Sends what `builder` says as one job and ends.
std::string ConversationOf(ScriptedSmtpServer& server, const MessageBuilder& builder,
                           const Strings& expectedReturns = {"1001_1:3"}) {
    RunningDriver driver;
    driver.accept(builder);
    driver.tick();
    driver.cleanUp();
    EXPECT_EQ(driver.returns(), expectedReturns);
    return WholeConversation(server);
}

MessageBuilder Secured(const ScriptedSmtpServer& server, int security) {
    return MailThrough(server)
        .security(static_cast<SmtpSecurityType>(security))
        .caFile(TestCertificates::Shared().caFile());
}

const std::string ProbeInClear =
    "C: RSET\r\n"
    "S: 250 2.0.0 reset\r\n";

const std::string MailToBobInClear =
    "C: MAIL FROM: <ann@example.org>\r\n"
    "S: 250 2.1.0 sender ok\r\n"
    "C: RCPT TO: <bob@example.org>\r\n"
    "S: 250 2.1.5 recipient ok\r\n"
    "C: DATA\r\n"
    "S: 354 go ahead\r\n"
    "C: " +
    SimpleMessage +
    ".\r\n"
    "S: 250 2.0.0 queued\r\n";

const std::string ProbeAndMailInsideTls =
    "C*: RSET\r\n"
    "S*: 250 2.0.0 reset\r\n"
    "C*: MAIL FROM: <ann@example.org>\r\n"
    "S*: 250 2.1.0 sender ok\r\n"
    "C*: RCPT TO: <bob@example.org>\r\n"
    "S*: 250 2.1.5 recipient ok\r\n"
    "C*: DATA\r\n"
    "S*: 354 go ahead\r\n"
    "C*: " +
    SimpleMessage +
    ".\r\n"
    "S*: 250 2.0.0 queued\r\n";

const std::string HelloOfferingPlain =
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

// One job, in each security setting of the host

class TranscriptInClear : public testing::TestWithParam<int> {};

TEST_P(TranscriptInClear, OneJobWithAnAccount) {
    ScriptedSmtpServer server(WithStartTlsAndAuth("PLAIN"));
    EXPECT_EQ(ConversationOf(server, Secured(server, GetParam()).account("ann", "secret")),
              HelloOfferingPlain + PlainInClear + ProbeInClear + MailToBobInClear);
}

TEST_P(TranscriptInClear, OneJobWithoutAnAccount) {
    ScriptedSmtpServer server(WithStartTlsAndAuth("PLAIN"));
    EXPECT_EQ(ConversationOf(server, Secured(server, GetParam())),
              HelloOfferingPlain + ProbeInClear + MailToBobInClear);
}

INSTANTIATE_TEST_SUITE_P(Settings, TranscriptInClear, testing::Values(0, 1, 5));

class TranscriptInsideTls : public testing::TestWithParam<int> {};

TEST_P(TranscriptInsideTls, OneJobWithAnAccount) {
    ScriptedSmtpServer server(WithStartTlsAndAuth("PLAIN"));
    EXPECT_EQ(ConversationOf(server, Secured(server, GetParam()).account("ann", "secret")),
              HelloOfferingPlain + StartTls + PlainInsideTls + ProbeAndMailInsideTls);
}

TEST_P(TranscriptInsideTls, OneJobWithoutAnAccount) {
    ScriptedSmtpServer server(WithStartTlsAndAuth("PLAIN"));
    EXPECT_EQ(ConversationOf(server, Secured(server, GetParam())),
              HelloOfferingPlain + StartTls + ProbeAndMailInsideTls);
}

INSTANTIATE_TEST_SUITE_P(Settings, TranscriptInsideTls, testing::Values(2, 3));

TEST(TranscriptTest, OneJobOverAuthLogin) {
    ScriptedSmtpServer server(WithAuth("LOGIN"));
    EXPECT_EQ(ConversationOf(server, MailThrough(server).account("ann", "secret")),
              "S: 220 test.example ESMTP\r\n"
              "C: EHLO [127.0.0.1]\r\n"
              "S: 250-test.example\r\n250 AUTH LOGIN\r\n"
              "C: AUTH LOGIN\r\n"
              "S: 334 VXNlcm5hbWU6\r\n"
              "C: YW5u\r\n"
              "S: 334 UGFzc3dvcmQ6\r\n"
              "C: c2VjcmV0\r\n"
              "S: 235 2.7.0 authenticated\r\n" +
                  ProbeInClear + MailToBobInClear);
}

TEST(TranscriptTest, ARefusedEhloAndTheHeloThatFollows) {
    ScriptedSmtpServer server;
    server.on("EHLO").reply("502 5.5.1 not implemented\r\n");
    EXPECT_EQ(ConversationOf(server, MailThrough(server)),
              "S: 220 test.example ESMTP\r\n"
              "C: EHLO [127.0.0.1]\r\n"
              "S: 502 5.5.1 not implemented\r\n"
              "C: HELO [127.0.0.1]\r\n"
              "S: 250 test.example\r\n" +
                  ProbeInClear + MailToBobInClear);
}

TEST(TranscriptTest, RequiredTlsThatIsNotOfferedSaysNothingMoreAndFailsTheJob) {
    ScriptedSmtpServer server;
    EXPECT_EQ(
        ConversationOf(
            server, MailThrough(server).security(SMTP_SECURITY_REQUIRED),
            {"1001_1:2 Failed to create connection. Bad carrier configuration or carrier unreachable."}),
        "S: 220 test.example ESMTP\r\n"
        "C: EHLO [127.0.0.1]\r\n"
        "S: 250 test.example\r\n");
}

TEST(TranscriptTest, ARefusedAuthEndsTheConversationAndFailsTheJob) {
    ScriptedSmtpServer server(WithAuth("PLAIN"));
    EXPECT_EQ(
        ConversationOf(
            server, MailThrough(server).account("ann", "wrong"),
            {"1001_1:2 Failed to create connection. Bad carrier configuration or carrier unreachable."}),
        "S: 220 test.example ESMTP\r\n"
        "C: EHLO [127.0.0.1]\r\n"
        "S: 250-test.example\r\n250 AUTH PLAIN\r\n"
        "C: AUTH PLAIN\r\n"
        "S: 334 \r\n"
        "C: AGFubgB3cm9uZw==\r\n"
        "S: 535 5.7.8 authentication failed\r\n");
}

// Groups and further jobs

const std::string Hello =
    "S: 220 test.example ESMTP\r\n"
    "C: EHLO [127.0.0.1]\r\n"
    "S: 250 test.example\r\n";

void AcceptGroupOfThree(RunningDriver& driver, const ScriptedSmtpServer& server) {
    driver.accept(MailThrough(server).id("m_1").recipient("a@example.org"));
    driver.accept(MailThrough(server).id("m_2").recipient("b@example.org"));
    driver.accept(MailThrough(server).id("m_3").recipient("c@example.org"));
}

TEST(TranscriptTest, AGroupIsOneTransaction) {
    ScriptedSmtpServer server;
    RunningDriver driver;
    AcceptGroupOfThree(driver, server);
    driver.tick();
    driver.cleanUp();
    EXPECT_EQ(driver.returns(), (Strings{"m_1:3", "m_2:3", "m_3:3"}));
    EXPECT_EQ(WholeConversation(server), Hello + ProbeInClear +
                                             "C: MAIL FROM: <ann@example.org>\r\n"
                                             "S: 250 2.1.0 sender ok\r\n"
                                             "C: RCPT TO: <a@example.org>\r\n"
                                             "S: 250 2.1.5 recipient ok\r\n"
                                             "C: RCPT TO: <b@example.org>\r\n"
                                             "S: 250 2.1.5 recipient ok\r\n"
                                             "C: RCPT TO: <c@example.org>\r\n"
                                             "S: 250 2.1.5 recipient ok\r\n"
                                             "C: DATA\r\n"
                                             "S: 354 go ahead\r\n"
                                             "C: " +
                                             SimpleMessage +
                                             ".\r\n"
                                             "S: 250 2.0.0 queued\r\n");
}

TEST(TranscriptTest, ARefusedRecipientFailsTheGroupAndTheNextOneIsNeverOffered) {
    ScriptedSmtpServer server;
    server.on("RCPT").recipient("b@example.org").reply("550 5.1.1 no such user\r\n");
    RunningDriver driver;
    AcceptGroupOfThree(driver, server);
    driver.tick();
    driver.cleanUp();
    EXPECT_EQ(driver.returns(), (Strings{"m_1:2 5.1.1 no such user\r\n", "m_2:2 5.1.1 no such user\r\n",
                                         "m_3:2 5.1.1 no such user\r\n"}));
    EXPECT_EQ(WholeConversation(server), Hello + ProbeInClear +
                                             "C: MAIL FROM: <ann@example.org>\r\n"
                                             "S: 250 2.1.0 sender ok\r\n"
                                             "C: RCPT TO: <a@example.org>\r\n"
                                             "S: 250 2.1.5 recipient ok\r\n"
                                             "C: RCPT TO: <b@example.org>\r\n"
                                             "S: 550 5.1.1 no such user\r\n");
}

TEST(TranscriptTest, TwoSingleJobsOfOneTickShareTheConnection) {
    ScriptedSmtpServer server;
    RunningDriver driver;
    driver.accept(MailThrough(server).id("m1"));
    driver.accept(MailThrough(server).id("m2"));
    driver.tick();
    driver.cleanUp();
    EXPECT_EQ(driver.returns(), (Strings{"m1:3", "m2:3"}));
    EXPECT_EQ(WholeConversation(server),
              Hello + ProbeInClear + MailToBobInClear + ProbeInClear + MailToBobInClear);
}

TEST(TranscriptTest, AReusedConnectionIsProbedTwiceBeforeItsNextMail) {
    ScriptedSmtpServer server;
    RunningDriver driver;
    driver.accept(MailThrough(server).id("m1"));
    driver.tick();
    // The connection is back in the cache once the delegate has ended, which follows the return of the file.
    ASSERT_TRUE(driver.log().waitFor(
        "Leaving KvSmartAsynProtocolDriverMultiThreaded::ReleaseConnToCache() with TRUE."));
    driver.accept(MailThrough(server).id("m2"));
    driver.tick();
    driver.cleanUp();
    EXPECT_EQ(server.acceptedConnections(), 1);
    EXPECT_EQ(WholeConversation(server),
              Hello + ProbeInClear + MailToBobInClear + ProbeInClear + ProbeInClear + MailToBobInClear);
}

TEST(TranscriptTest, AfterAFailedMailTheSameConnectionIsResetAndUsedAgain) {
    ScriptedSmtpServer server;
    server.on("RCPT").occurrence(1).reply("450 4.2.1 try later\r\n");
    RunningDriver driver;
    driver.accept(MailThrough(server).id("m1"));
    driver.accept(MailThrough(server).id("m2"));
    driver.tick();
    driver.cleanUp();
    EXPECT_EQ(driver.returns(), (Strings{"m1:2 4.2.1 try later\r\n", "m2:3"}));
    EXPECT_EQ(WholeConversation(server), Hello + ProbeInClear +
                                             "C: MAIL FROM: <ann@example.org>\r\n"
                                             "S: 250 2.1.0 sender ok\r\n"
                                             "C: RCPT TO: <bob@example.org>\r\n"
                                             "S: 450 4.2.1 try later\r\n" +
                                             ProbeInClear + MailToBobInClear);
}

TEST(TranscriptTest, ATwoWayJobIsOnlyProbedForAndDoesNotComeBack) {
    ScriptedSmtpServer server;
    RunningDriver driver;
    driver.accept(MailThrough(server).id("m1").twoWay());
    driver.log().clear();
    driver.dispatchOnly();
    ASSERT_TRUE(driver.log().waitFor(" >>>>>> Failed to dispatch 2way message."));
    driver.cleanUp();
    EXPECT_EQ(driver.returns(), Strings{});
    EXPECT_EQ(WholeConversation(server), Hello + ProbeInClear);
}

// STARTTLS on demand

TEST(TranscriptTest, ADemandForStartTlsRepeatsTheWholeTransactionInsideTls) {
    ScriptedSmtpServer server(WithStartTlsAndAuth("PLAIN"));
    server.on("MAIL").inClear().reply(MustStartTls);
    RunningDriver driver;
    driver.accept(Secured(server, SMTP_SECURITY_ON_DEMAND));
    driver.tick();
    driver.cleanUp();
    EXPECT_EQ(driver.returns(), Strings{"1001_1:3"});
    EXPECT_EQ(driver.log().countEqual("Attempting TLS Hand Shake..."), 1);
    EXPECT_EQ(driver.log().countEqual("Authorizing if required..."), 1);
    EXPECT_EQ(driver.log().countEqual("Re-Attempting message sending..."), 1);
    EXPECT_EQ(WholeConversation(server),
              HelloOfferingPlain + ProbeInClear +
                  "C: MAIL FROM: <ann@example.org>\r\n"
                  "S: 530 5.7.0 Must issue a STARTTLS command first\r\n" +
                  StartTls + ProbeAndMailInsideTls.substr(ProbeAndMailInsideTls.find("C*: MAIL")));
}

TEST(TranscriptTest, ADemandForStartTlsIsFollowedByTheAuthenticationInsideTls) {
    ScriptedSmtpServer server(WithStartTlsAndAuth("PLAIN"));
    server.on("MAIL").inClear().reply(MustStartTls);
    EXPECT_EQ(ConversationOf(server, Secured(server, SMTP_SECURITY_ON_DEMAND).account("ann", "secret")),
              HelloOfferingPlain + PlainInClear + ProbeInClear +
                  "C: MAIL FROM: <ann@example.org>\r\n"
                  "S: 530 5.7.0 Must issue a STARTTLS command first\r\n" +
                  StartTls + PlainInsideTls +
                  ProbeAndMailInsideTls.substr(ProbeAndMailInsideTls.find("C*: MAIL")));
}

TEST(TranscriptTest, ASecondDemandInsideTlsFailsTheJob) {
    ScriptedSmtpServer server(WithStartTlsAndAuth("PLAIN"));
    server.on("MAIL").reply(MustStartTls);
    EXPECT_EQ(ConversationOf(server, Secured(server, SMTP_SECURITY_ON_DEMAND),
                             {"1001_1:2 STARTTLS Failed after Must Start TLS Response"}),
              HelloOfferingPlain + ProbeInClear +
                  "C: MAIL FROM: <ann@example.org>\r\n"
                  "S: 530 5.7.0 Must issue a STARTTLS command first\r\n" +
                  StartTls +
                  "C*: MAIL FROM: <ann@example.org>\r\n"
                  "S*: 530 5.7.0 Must issue a STARTTLS command first\r\n"
                  "C*: STARTTLS\r\n"
                  "S*: 503 5.5.1 already inside TLS\r\n");
}

TEST(TranscriptTest, InTheSettingIfAvailableADemandIsNotAnswered) {
    ScriptedSmtpServer server;
    server.on("MAIL").reply(MustStartTls);
    EXPECT_EQ(ConversationOf(server, Secured(server, SMTP_SECURITY_IF_AVAILABLE),
                             {"1001_1:2 5.7.0 Must issue a STARTTLS command first\r\n"}),
              Hello + ProbeInClear +
                  "C: MAIL FROM: <ann@example.org>\r\n"
                  "S: 530 5.7.0 Must issue a STARTTLS command first\r\n");
}

// Replies cut or run together

TEST(TranscriptTest, ARefusalCutInsideItsCodeFailsTheJobWithoutAReason) {
    ScriptedSmtpServer server;
    Gate gate;
    server.on("RCPT").reply(Reply("550 5.1.1 no such user\r\n").split({3}).restHeldBy(gate));
    RunningDriver driver;
    driver.accept(MailThrough(server));
    driver.tick();
    gate.open();
    ASSERT_TRUE(server.waitUntil([&] { return server.connection().serverBytes().ends_with("user\r\n"); }));
    driver.cleanUp();
    EXPECT_EQ(driver.returns(), Strings{"1001_1:2"});
    EXPECT_TRUE(driver.log().has(Severity::Error, "Unknown error occurred"));
    EXPECT_EQ(WholeConversation(server), Hello + ProbeInClear +
                                             "C: MAIL FROM: <ann@example.org>\r\n"
                                             "S: 250 2.1.0 sender ok\r\n"
                                             "C: RCPT TO: <bob@example.org>\r\n"
                                             "S: 550 5.1.1 no such user\r\n");
}

TEST(TranscriptTest, ARefusalBehindAnAcceptanceInOneSegmentCountsAsAccepted) {
    ScriptedSmtpServer server;
    server.on(step::EndOfData).reply("250 2.0.0 queued\r\n554 5.6.0 no, rejected\r\n");
    EXPECT_EQ(ConversationOf(server, MailThrough(server)),
              Hello + ProbeInClear + MailToBobInClear + "554 5.6.0 no, rejected\r\n");
}

}  // namespace
