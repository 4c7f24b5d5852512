#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "KvEmailDriver.h"
#include "system/EngineDoubles.h"

// AUTH PLAIN and AUTH LOGIN.

namespace {

using kvtest::Gate;
using kvtest::OfferingAuth;
using kvtest::OpenEngine;
using kvtest::Reply;
using kvtest::ScriptedSmtpServer;
using kvtest::SmtpErrorOf;
using kvtest::SmtpServerOptions;
namespace step = kvtest::step;

constexpr const char* AskUserName = "334 VXNlcm5hbWU6\r\n";

void ConnectAs(OpenEngine& engine, const ScriptedSmtpServer& server, const std::string& user,
               const std::string& password) {
    engine.Connect(server.address(), user, password, KvEmailDriver::SecClear);
}

/// A greeted session that has not authenticated; the record carries the credentials.
void ConnectUnauthenticated(OpenEngine& engine, const ScriptedSmtpServer& server,
                            const std::string& user = "ann", const std::string& password = "secret") {
    ConnectAs(engine, server, "", "");
    engine.job().strUser = user;
    engine.job().strPassword = password;
}

std::string Repeated(const std::string& text, int times) {
    std::string result;
    for (int i = 0; i < times; ++i) {
        result += text;
    }
    return result;
}

// Choice of the mechanism

TEST(KvEmailDriverAuthTest, PlainIsPreferredWhenBothAreOffered) {
    for (const char* offer : {"LOGIN PLAIN", "PLAIN LOGIN"}) {
        ScriptedSmtpServer server(OfferingAuth(offer));
        OpenEngine engine;
        ConnectAs(engine, server, "ann", "secret");
        EXPECT_EQ(server.connection().clientBytes(),
                  "EHLO [127.0.0.1]\r\nAUTH PLAIN\r\nAGFubgBzZWNyZXQ=\r\n");
        EXPECT_TRUE(server.connection().authentications.at(0).accepted);
    }
}

TEST(KvEmailDriverAuthTest, LoginIsUsedWhenItAloneIsOffered) {
    ScriptedSmtpServer server(OfferingAuth("LOGIN"));
    OpenEngine engine;
    ConnectAs(engine, server, "ann", "secret");
    EXPECT_EQ(server.connection().clientBytes(), "EHLO [127.0.0.1]\r\nAUTH LOGIN\r\nYW5u\r\nc2VjcmV0\r\n");
    EXPECT_TRUE(server.connection().authentications.at(0).accepted);
}

TEST(KvEmailDriverAuthTest, AnotherMechanismLeavesTheSessionUnauthenticated) {
    ScriptedSmtpServer server(OfferingAuth("CRAM-MD5"));
    OpenEngine engine;
    ConnectAs(engine, server, "ann", "secret");
    EXPECT_EQ(server.connection().clientBytes(), "EHLO [127.0.0.1]\r\n");
}

TEST(KvEmailDriverAuthTest, WithoutAPasswordOrAUserNameNoAuthIsSent) {
    ScriptedSmtpServer server(OfferingAuth("PLAIN LOGIN"));
    OpenEngine withoutPassword;
    ConnectAs(withoutPassword, server, "ann", "");
    OpenEngine withoutUser;
    ConnectAs(withoutUser, server, "", "secret");
    EXPECT_EQ(server.connection(1).clientBytes(), "EHLO [127.0.0.1]\r\n");
    EXPECT_EQ(server.connection(2).clientBytes(), "EHLO [127.0.0.1]\r\n");
}

// AUTH PLAIN

TEST(KvEmailDriverAuthTest, CredentialsThatEncodeTo76CharactersAreOneLine) {
    SmtpServerOptions options = OfferingAuth("PLAIN");
    const std::string password(52, 'p');  // 2 NULs, "ann" and 52 characters are 57 bytes
    options.accounts = {{"ann", password}};
    ScriptedSmtpServer server(options);
    OpenEngine engine;
    ConnectAs(engine, server, "ann", password);
    const std::string line = server.connection().commands.at(2).line;
    EXPECT_EQ(line.size(), 76u);
    EXPECT_EQ(server.connection().clientBytes(), "EHLO [127.0.0.1]\r\nAUTH PLAIN\r\n" + line + "\r\n");
    EXPECT_TRUE(server.connection().authentications.at(0).accepted);
}

TEST(KvEmailDriverAuthTest, LongerCredentialsAreBrokenAfter76Characters) {
    ScriptedSmtpServer server(OfferingAuth("PLAIN"));
    server.on(step::AuthPlain).reply("235 2.7.0 welcome\r\n");
    OpenEngine engine;
    ConnectAs(engine, server, "ann", std::string(53, 'a'));
    const std::string sent =
        "EHLO [127.0.0.1]\r\nAUTH PLAIN\r\nAGFubgBhYWFh" + Repeated("YWFh", 16) + "\r\nYQ==\r\n";
    EXPECT_TRUE(server.waitUntil([&] { return server.connection().clientBytes() == sent; }))
        << server.toText();
}

TEST(KvEmailDriverAuthTest, TheReplyToAuthPlainIsNotLookedAt) {
    ScriptedSmtpServer server(OfferingAuth("PLAIN"));
    server.on("AUTH").reply("what?\r\n");
    OpenEngine engine;
    ConnectAs(engine, server, "ann", "secret");
    EXPECT_EQ(server.connection().clientBytes(), "EHLO [127.0.0.1]\r\nAUTH PLAIN\r\nAGFubgBzZWNyZXQ=\r\n");
}

TEST(KvEmailDriverAuthTest, PlainSucceedsWithAnyReplyButARefusal) {
    ScriptedSmtpServer server(OfferingAuth("PLAIN"));
    server.on(step::AuthPlain).reply("334 go on\r\n");
    OpenEngine engine;
    ConnectUnauthenticated(engine, server);
    EXPECT_TRUE(engine.DoPlainLogin(engine.job()));
}

TEST(KvEmailDriverAuthTest, ARefusedAuthPlainIsRaisedBeforeTheCredentialsAreSent) {
    ScriptedSmtpServer server(OfferingAuth("PLAIN"));
    server.on("AUTH").reply("454 4.7.0 later\r\n");
    OpenEngine engine;
    const KvSmtpException error = SmtpErrorOf([&] { ConnectAs(engine, server, "ann", "secret"); });
    EXPECT_EQ(error.m_nError, 454);
    ASSERT_TRUE(server.waitForOpenConnections(0));
    EXPECT_EQ(server.connection().clientBytes(), "EHLO [127.0.0.1]\r\nAUTH PLAIN\r\n");
}

TEST(KvEmailDriverAuthTest, WrongPlainCredentialsAreRaisedWithTheServersText) {
    ScriptedSmtpServer server(OfferingAuth("PLAIN"));
    OpenEngine engine;
    const KvSmtpException error = SmtpErrorOf([&] { ConnectAs(engine, server, "ann", "wrong"); });
    EXPECT_EQ(error.m_nError, 535);
    EXPECT_EQ(error.m_strError, "5.7.8 authentication failed\r\n");
}

// AUTH LOGIN

TEST(KvEmailDriverAuthTest, LoginAnswersTrueWhenTheServerAccepts) {
    ScriptedSmtpServer server(OfferingAuth("LOGIN"));
    OpenEngine engine;
    ConnectUnauthenticated(engine, server);
    EXPECT_TRUE(engine.DoLogin(engine.job()));
    EXPECT_EQ(engine.lastErrorText(), "");
}

TEST(KvEmailDriverAuthTest, AUserNameOfAnyLengthIsSentInLinesOf76Characters) {
    ScriptedSmtpServer server(OfferingAuth("LOGIN"));
    server.on(step::AuthUser).reply("535 5.7.8 who?\r\n");
    OpenEngine engine;
    ConnectUnauthenticated(engine, server, std::string(2000, 'a'));
    EXPECT_EQ(SmtpErrorOf([&] { engine.DoLogin(engine.job()); }).m_nError, 535);
    const std::string line = Repeated("YWFh", 19) + "\r\n";
    const std::string sent = "EHLO [127.0.0.1]\r\nAUTH LOGIN\r\n" + Repeated(line, 35) + "YWFhYWE=\r\n";
    EXPECT_TRUE(server.waitUntil([&] { return server.connection().clientBytes() == sent; }))
        << server.toText();
}

TEST(KvEmailDriverAuthTest, ALowerCaseUserNameChallengeStopsTheExchangeWithoutAnException) {
    ScriptedSmtpServer server(OfferingAuth("LOGIN"));
    server.on("AUTH").reply("334 dXNlcm5hbWU6\r\n");
    OpenEngine engine;
    ConnectAs(engine, server, "ann", "secret");
    EXPECT_EQ(engine.lastError(), 818);
    EXPECT_EQ(engine.lastErrorText(), "334 dXNlcm5hbWU6\r\n");
    EXPECT_EQ(server.connection().clientBytes(), "EHLO [127.0.0.1]\r\nAUTH LOGIN\r\n");
}

TEST(KvEmailDriverAuthTest, AfterAStoppedExchangeTheSessionGoesOnUnauthenticated) {
    ScriptedSmtpServer server(OfferingAuth("LOGIN"));
    server.on("AUTH").reply("334 dXNlcm5hbWU6\r\n");
    server.on(step::AuthUser).reply("503 5.5.1 not now\r\n");  // the RSET arrives where the user name is due
    OpenEngine engine;
    ConnectAs(engine, server, "ann", "secret");
    EXPECT_FALSE(engine.IsAlive());
    EXPECT_EQ(server.connection().clientBytes(), "EHLO [127.0.0.1]\r\nAUTH LOGIN\r\nRSET\r\n");
    EXPECT_TRUE(engine.IsAlive());
}

TEST(KvEmailDriverAuthTest, TheRecordedErrorOutlivesALaterSuccess) {
    ScriptedSmtpServer strange(OfferingAuth("LOGIN"));
    strange.on("AUTH").reply("334 dXNlcm5hbWU6\r\n");
    OpenEngine engine;
    ConnectAs(engine, strange, "ann", "secret");
    engine.Close();
    ScriptedSmtpServer server(OfferingAuth("LOGIN"));
    ConnectAs(engine, server, "ann", "secret");
    EXPECT_TRUE(server.connection().authentications.at(0).accepted);
    EXPECT_EQ(engine.lastError(), 818);
    EXPECT_EQ(engine.lastErrorText(), "334 dXNlcm5hbWU6\r\n");
}

TEST(KvEmailDriverAuthTest, AUserNameChallengeWithMoreBehindItIsUnexpected) {
    ScriptedSmtpServer server(OfferingAuth("LOGIN"));
    server.on("AUTH").reply("334 VXNlcm5hbWU6IA==\r\n");
    OpenEngine engine;
    ConnectUnauthenticated(engine, server);
    EXPECT_FALSE(engine.DoLogin(engine.job()));
    EXPECT_EQ(engine.lastError(), 818);
    EXPECT_EQ(engine.lastErrorText(), "334 VXNlcm5hbWU6IA==\r\n");
}

TEST(KvEmailDriverAuthTest, AChallengeThatIsNotBase64OrEmptyIsUnexpected) {
    for (const char* reply : {"334 Username:\r\n", "334 \r\n", "334\r\n", "334 ", "334\n", "334 x"}) {
        ScriptedSmtpServer server(OfferingAuth("LOGIN"));
        server.on("AUTH").reply(reply);
        OpenEngine engine;
        ConnectUnauthenticated(engine, server);
        EXPECT_FALSE(engine.DoLogin(engine.job())) << reply;
        EXPECT_EQ(engine.lastError(), 818) << reply;
        EXPECT_EQ(engine.lastErrorText(), reply);
    }
}

TEST(KvEmailDriverAuthTest, AChallengeEndedByABareLineFeedLosesItsLastCharacterAndIsUnexpected) {
    ScriptedSmtpServer server(OfferingAuth("LOGIN"));
    server.on("AUTH").reply("334 VXNlcm5hbWU6\n");
    OpenEngine engine;
    ConnectUnauthenticated(engine, server);
    EXPECT_FALSE(engine.DoLogin(engine.job()));
    EXPECT_EQ(engine.lastError(), 818);
}

TEST(KvEmailDriverAuthTest, AChallengeOfNearlyAThousandCharactersIsUnexpected) {
    ScriptedSmtpServer server(OfferingAuth("LOGIN"));
    server.on("AUTH").reply("334 " + std::string(994, 'A') + "\r\n");
    OpenEngine engine;
    ConnectUnauthenticated(engine, server);
    EXPECT_FALSE(engine.DoLogin(engine.job()));
    EXPECT_EQ(engine.lastError(), 818);
}

TEST(KvEmailDriverAuthTest, AChallengeOfThreeCharactersIsOutOfRange) {
    ScriptedSmtpServer server(OfferingAuth("LOGIN"));
    server.on("AUTH").reply("334");
    OpenEngine engine;
    EXPECT_THROW(ConnectAs(engine, server, "ann", "secret"), std::out_of_range);
    EXPECT_TRUE(server.waitForOpenConnections(0));
}

TEST(KvEmailDriverAuthTest, AReplyToAuthLoginThatIsNoChallengeIsRecordedAs819) {
    ScriptedSmtpServer server(OfferingAuth("LOGIN"));
    server.on("AUTH").reply("250 already\r\n");
    OpenEngine engine;
    ConnectUnauthenticated(engine, server);
    EXPECT_FALSE(engine.DoLogin(engine.job()));
    EXPECT_EQ(engine.lastError(), 819);
    EXPECT_EQ(engine.lastErrorText(), "250 already\r\n");
}

TEST(KvEmailDriverAuthTest, ARefusedAuthLoginIsRaisedAndNotRecorded) {
    ScriptedSmtpServer server(OfferingAuth("LOGIN"));
    server.on("AUTH").reply("504 5.5.4 no LOGIN\r\n");
    OpenEngine engine;
    ConnectUnauthenticated(engine, server);
    EXPECT_EQ(SmtpErrorOf([&] { engine.DoLogin(engine.job()); }).m_nError, 504);
    EXPECT_EQ(engine.lastErrorText(), "");
}

TEST(KvEmailDriverAuthTest, ARefusedUserNameIsRaised) {
    ScriptedSmtpServer server(OfferingAuth("LOGIN"));
    server.on(step::AuthUser).reply("535 5.7.8 who?\r\n");
    OpenEngine engine;
    const KvSmtpException error = SmtpErrorOf([&] { ConnectAs(engine, server, "ann", "secret"); });
    EXPECT_EQ(error.m_nError, 535);
    EXPECT_EQ(error.m_strError, "5.7.8 who?\r\n");
    ASSERT_TRUE(server.waitForOpenConnections(0));
    EXPECT_EQ(server.connection().clientBytes(), "EHLO [127.0.0.1]\r\nAUTH LOGIN\r\nYW5u\r\n");
}

TEST(KvEmailDriverAuthTest, AnotherSecondChallengeIsRecordedAs817) {
    ScriptedSmtpServer server(OfferingAuth("LOGIN"));
    server.on(step::AuthUser).reply("334 cGFzc3dvcmQ6\r\n");  // "password:"
    OpenEngine engine;
    ConnectUnauthenticated(engine, server);
    EXPECT_FALSE(engine.DoLogin(engine.job()));
    EXPECT_EQ(engine.lastError(), 817);
    EXPECT_EQ(engine.lastErrorText(), "334 cGFzc3dvcmQ6\r\n");
    EXPECT_EQ(server.connection().clientBytes(), "EHLO [127.0.0.1]\r\nAUTH LOGIN\r\nYW5u\r\n");
}

TEST(KvEmailDriverAuthTest, AFirstChallengeAskedTwiceIsUnexpectedTheSecondTime) {
    ScriptedSmtpServer server(OfferingAuth("LOGIN"));
    server.on(step::AuthUser).reply(AskUserName);
    OpenEngine engine;
    ConnectUnauthenticated(engine, server);
    EXPECT_FALSE(engine.DoLogin(engine.job()));
    EXPECT_EQ(engine.lastError(), 817);
}

TEST(KvEmailDriverAuthTest, AServerThatAcceptsTheUserNameAloneIsNotGivenThePassword) {
    ScriptedSmtpServer server(OfferingAuth("LOGIN"));
    server.on(step::AuthUser).reply("235 2.7.0 welcome\r\n");
    OpenEngine engine;
    ConnectUnauthenticated(engine, server);
    EXPECT_TRUE(engine.DoLogin(engine.job()));
    EXPECT_EQ(server.connection().clientBytes(), "EHLO [127.0.0.1]\r\nAUTH LOGIN\r\nYW5u\r\n");
}

TEST(KvEmailDriverAuthTest, AStrangeReplyToTheUserNameIsAFailureThatIsNotRecorded) {
    ScriptedSmtpServer server(OfferingAuth("LOGIN"));
    server.on(step::AuthUser).reply("199 hm\r\n");
    OpenEngine engine;
    ConnectUnauthenticated(engine, server);
    EXPECT_FALSE(engine.DoLogin(engine.job()));
    EXPECT_EQ(engine.lastErrorText(), "");
}

TEST(KvEmailDriverAuthTest, ARefusedPasswordIsRaisedWithTheTextBehindTheCode) {
    ScriptedSmtpServer server(OfferingAuth("LOGIN"));
    OpenEngine engine;
    const KvSmtpException error = SmtpErrorOf([&] { ConnectAs(engine, server, "ann", "wrong"); });
    EXPECT_EQ(error.m_nError, 535);
    EXPECT_EQ(error.m_strError, "5.7.8 authentication failed\r\n");
    EXPECT_EQ(engine.lastErrorText(), "");
    EXPECT_TRUE(server.waitForOpenConnections(0));
}

TEST(KvEmailDriverAuthTest, AStrangeReplyToThePasswordIsAFailureThatIsNotRecorded) {
    ScriptedSmtpServer server(OfferingAuth("LOGIN"));
    server.on(step::AuthPassword).reply("334 again\r\n");
    OpenEngine engine;
    ConnectUnauthenticated(engine, server);
    EXPECT_FALSE(engine.DoLogin(engine.job()));
    EXPECT_EQ(engine.lastErrorText(), "");
}

TEST(KvEmailDriverAuthTest, AFailureThatIsNotARefusalDoesNotFailTheConnect) {
    ScriptedSmtpServer server(OfferingAuth("LOGIN"));
    server.on(step::AuthPassword).reply("334 again\r\n");
    OpenEngine engine;
    ConnectAs(engine, server, "ann", "secret");
    EXPECT_TRUE(engine.IsAlive());
}

TEST(KvEmailDriverAuthTest, AChallengeSplitInTwoIsReadAsAnUnexpectedOne) {
    ScriptedSmtpServer server(OfferingAuth("LOGIN"));
    Gate gate;
    server.on("AUTH").reply(Reply(AskUserName).split({8}).restHeldBy(gate));
    OpenEngine engine;
    ConnectUnauthenticated(engine, server);
    EXPECT_FALSE(engine.DoLogin(engine.job()));
    EXPECT_EQ(engine.lastError(), 818);
    EXPECT_EQ(engine.lastErrorText(), "334 VXNl");
    gate.open();
}

}  // namespace
