#include <gmock/gmock.h>

#include "PlainSmtpClient.h"
#include "ScriptedSmtpServer.h"

using namespace kvtest;
using testing::ElementsAre;
using testing::IsEmpty;

// AUTH PLAIN and AUTH LOGIN for the account "ann" with the password "secret".

namespace {

constexpr const char* GoodPlain = "AGFubgBzZWNyZXQ=";        // NUL ann NUL secret
constexpr const char* BadPlain = "AGFubgB3cm9uZw==";         // NUL ann NUL wrong
constexpr const char* User = "YW5u";                         // ann
constexpr const char* GoodPassword = "c2VjcmV0";             // secret
constexpr const char* BadPassword = "d3Jvbmc=";              // wrong
constexpr const char* AskUser = "334 VXNlcm5hbWU6\r\n";      // Username:
constexpr const char* AskPassword = "334 UGFzc3dvcmQ6\r\n";  // Password:
constexpr const char* Accepted = "235 2.7.0 authenticated\r\n";
constexpr const char* Refused = "535 5.7.8 authentication failed\r\n";

class ScriptedSmtpServerAuthTest : public testing::Test {
protected:
    ScriptedSmtpServerAuthTest() { m_client.readReply(); }

    AuthRecord onlyAttempt() const {
        const auto attempts = m_server.connection().authentications;
        return attempts.size() == 1 ? attempts[0] : AuthRecord();
    }

    ScriptedSmtpServer m_server{SmtpServerOptions{.accounts = {{"ann", "secret"}, {"eve", "apple"}}}};
    PlainSmtpClient m_client{m_server.port()};
};

}  // namespace

TEST_F(ScriptedSmtpServerAuthTest, EhloOffersBothMechanisms) {
    EXPECT_EQ(m_client.command("EHLO client"), "250-test.example\r\n250 AUTH PLAIN LOGIN\r\n");
}

TEST_F(ScriptedSmtpServerAuthTest, PlainWithGoodCredentialsIsAccepted) {
    EXPECT_EQ(m_client.command("AUTH PLAIN"), "334 \r\n");
    EXPECT_EQ(m_client.command(GoodPlain), Accepted);
    EXPECT_THAT(m_server.connection().steps(), ElementsAre("AUTH", step::AuthPlain));
    EXPECT_EQ(onlyAttempt().mechanism, "PLAIN");
    EXPECT_EQ(onlyAttempt().user, "ann");
    EXPECT_EQ(onlyAttempt().password, "secret");
    EXPECT_TRUE(onlyAttempt().accepted);
}

TEST_F(ScriptedSmtpServerAuthTest, PlainWithABadPasswordIsRefused) {
    m_client.command("AUTH PLAIN");
    EXPECT_EQ(m_client.command(BadPlain), Refused);
    EXPECT_EQ(onlyAttempt().password, "wrong");
    EXPECT_FALSE(onlyAttempt().accepted);
}

TEST_F(ScriptedSmtpServerAuthTest, PlainTakesTheCredentialsOnTheCommandLineToo) {
    EXPECT_EQ(m_client.command(std::string("AUTH PLAIN ") + GoodPlain), Accepted);
    EXPECT_TRUE(onlyAttempt().accepted);
}

TEST_F(ScriptedSmtpServerAuthTest, PlainThatCannotBeReadIsRefusedAndNotRecorded) {
    m_client.command("AUTH PLAIN");
    EXPECT_EQ(m_client.command("not base64"), "501 5.5.2 cannot read the credentials\r\n");
    m_client.command("AUTH PLAIN");
    EXPECT_EQ(m_client.command("YW5u"), "501 5.5.2 cannot read the credentials\r\n");
    EXPECT_THAT(m_server.connection().authentications, IsEmpty());
}

TEST_F(ScriptedSmtpServerAuthTest, LoginWithGoodCredentialsIsAccepted) {
    EXPECT_EQ(m_client.command("AUTH LOGIN"), AskUser);
    EXPECT_EQ(m_client.command(User), AskPassword);
    EXPECT_EQ(m_client.command(GoodPassword), Accepted);
    EXPECT_THAT(m_server.connection().steps(), ElementsAre("AUTH", step::AuthUser, step::AuthPassword));
    EXPECT_EQ(onlyAttempt().mechanism, "LOGIN");
    EXPECT_EQ(onlyAttempt().user, "ann");
    EXPECT_EQ(onlyAttempt().password, "secret");
    EXPECT_TRUE(onlyAttempt().accepted);
}

TEST_F(ScriptedSmtpServerAuthTest, LoginWithABadPasswordIsRefused) {
    m_client.command("AUTH LOGIN");
    m_client.command(User);
    EXPECT_EQ(m_client.command(BadPassword), Refused);
    EXPECT_FALSE(onlyAttempt().accepted);
}

TEST_F(ScriptedSmtpServerAuthTest, LoginTakesTheUserNameOnTheCommandLineToo) {
    EXPECT_EQ(m_client.command(std::string("AUTH LOGIN ") + User), AskPassword);
    EXPECT_EQ(m_client.command(GoodPassword), Accepted);
}

TEST_F(ScriptedSmtpServerAuthTest, AUserNameThatIsNoBase64EndsTheExchange) {
    m_client.command("AUTH LOGIN");
    EXPECT_EQ(m_client.command("not base64"), "501 5.5.2 not base64\r\n");
    EXPECT_EQ(m_client.command("NOOP"), "250 2.0.0 ok\r\n");
}

TEST_F(ScriptedSmtpServerAuthTest, ASecondAuthenticationIsRefused) {
    m_client.command("AUTH PLAIN");
    m_client.command(GoodPlain);
    EXPECT_EQ(m_client.command("AUTH PLAIN"), "503 5.5.1 already authenticated\r\n");
}

TEST_F(ScriptedSmtpServerAuthTest, AnotherMechanismIsRefused) {
    EXPECT_EQ(m_client.command("AUTH CRAM-MD5"), "504 5.5.4 mechanism not supported\r\n");
}

TEST_F(ScriptedSmtpServerAuthTest, ATransactionSaysWhetherItWasAuthenticated) {
    m_client.command("MAIL FROM:<ann@x>");
    m_client.command("RSET");
    m_client.command("AUTH PLAIN");
    m_client.command(GoodPlain);
    m_client.command("MAIL FROM:<ann@x>");
    EXPECT_FALSE(m_server.transactions().at(0).authenticated);
    EXPECT_TRUE(m_server.transactions().at(1).authenticated);
}

TEST_F(ScriptedSmtpServerAuthTest, ARefusedAuthCommandIsFollowedByCommands) {
    m_server.on("AUTH").reply("534 5.7.9 too weak\r\n");
    EXPECT_EQ(m_client.command("AUTH PLAIN"), "534 5.7.9 too weak\r\n");
    EXPECT_EQ(m_client.command("NOOP"), "250 2.0.0 ok\r\n");
}

TEST_F(ScriptedSmtpServerAuthTest, AnAuthCommandAnsweredWith2EndsTheExchange) {
    m_server.on("AUTH").reply("235 come in\r\n");
    EXPECT_EQ(m_client.command("AUTH LOGIN"), "235 come in\r\n");
    m_client.command("MAIL FROM:<ann@x>");
    EXPECT_TRUE(m_server.transactions().at(0).authenticated);
}

TEST_F(ScriptedSmtpServerAuthTest, AnOddAnswerToAuthIsFollowedByTheCredentials) {
    m_server.on("AUTH").reply("hm\r\n");
    EXPECT_EQ(m_client.command("AUTH PLAIN"), "hm\r\n");
    EXPECT_EQ(m_client.command(GoodPlain), Accepted);
}

TEST_F(ScriptedSmtpServerAuthTest, TheChallengesCanBeScripted) {
    m_server.on("AUTH").reply("334 dXNlcm5hbWU6\r\n");
    m_server.on(step::AuthUser).reply("235 no password needed\r\n");
    EXPECT_EQ(m_client.command("AUTH LOGIN"), "334 dXNlcm5hbWU6\r\n");
    EXPECT_EQ(m_client.command(User), "235 no password needed\r\n");
    EXPECT_EQ(m_client.command("NOOP"), "250 2.0.0 ok\r\n");
}

TEST_F(ScriptedSmtpServerAuthTest, TheVerdictCanBeScripted) {
    m_server.on(step::AuthPassword).reply("454 4.7.0 try later\r\n");
    m_client.command("AUTH LOGIN");
    m_client.command(User);
    EXPECT_EQ(m_client.command(GoodPassword), "454 4.7.0 try later\r\n");
    EXPECT_FALSE(onlyAttempt().accepted);
}

TEST(ScriptedSmtpServerWithoutAccountsTest, AuthIsRefused) {
    const ScriptedSmtpServer server;
    PlainSmtpClient client(server.port());
    client.readReply();
    EXPECT_EQ(client.command("AUTH PLAIN"), "503 5.5.1 authentication not enabled\r\n");
    EXPECT_EQ(client.command("AUTH LOGIN"), "503 5.5.1 authentication not enabled\r\n");
}
