#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <deque>

#include "SinkClient.h"
#include "sink/Server.h"

using namespace std::chrono_literals;
using sinktest::SinkClient;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

namespace {

/// A server with a certificate of its own, and the options that the test sets before begin().
class SinkServerTlsTest : public testing::Test {
protected:
    void begin() {
        m_options.selfSignedDir = m_directory.path();
        m_server.emplace(m_options);
        m_server->start();
    }
    std::uint16_t port() const { return m_server->port(); }
    void upgrade(SinkClient& client) const {
        client.reply();
        client.command("EHLO x");
        ASSERT_EQ(client.command("STARTTLS"), "220 2.0.0 Ready to start TLS\r\n");
        client.startTls(m_directory.file("ca.pem"));
    }

    const sinktest::ScratchDirectory m_directory;
    kvsink::Options m_options;
    std::optional<kvsink::Server> m_server;
};

}  // namespace

TEST_F(SinkServerTlsTest, MailIsTakenOverTls) {
    m_options.maildir = m_directory.file("mails");
    m_options.accounts = {{"u", "p"}};
    m_options.requireTls = true;
    m_options.requireAuth = true;
    begin();
    SinkClient client(port());
    upgrade(client);
    EXPECT_THAT(client.command("EHLO x"), Not(HasSubstr("STARTTLS")));
    EXPECT_EQ(client.command("AUTH LOGIN"), "334 VXNlcm5hbWU6\r\n");
    EXPECT_EQ(client.command("dQ=="), "334 UGFzc3dvcmQ6\r\n");
    EXPECT_EQ(client.command("cA=="), "235 2.7.0 Authentication successful\r\n");
    client.send("MAIL FROM:<a@b.example>\r\nRCPT TO:<c@d.example>\r\nDATA\r\ntext\r\n.\r\nQUIT\r\n");
    EXPECT_EQ(client.readToEnd(),
              "250 2.1.0 Sender ok\r\n250 2.1.5 Recipient ok\r\n354 End the mail with <CRLF>.<CRLF>\r\n"
              "250 2.0.0 Stored as 0000000001\r\n221 2.0.0 Bye\r\n");
    const std::string stored = sinktest::contentsOf(m_directory.file("mails/0000000001.eml"));
    EXPECT_THAT(stored, HasSubstr(" by localhost with ESMTPSA; "));
    EXPECT_THAT(stored, EndsWith(" +0000\r\ntext\r\n"));
}

TEST_F(SinkServerTlsTest, LargeMailIsTakenOverTls) {
    m_options.maildir = m_directory.file("mails");
    begin();
    SinkClient client(port());
    upgrade(client);
    std::string content;
    while (content.size() < 3'000'000) {
        content += std::to_string(content.size()) + " bytes so far\r\n";
    }
    client.send("HELO x\r\nMAIL FROM:<a@b.example>\r\nRCPT TO:<c@d.example>\r\nDATA\r\n" + content +
                ".\r\nQUIT\r\n");
    EXPECT_THAT(client.readToEnd(), EndsWith("250 2.0.0 Stored as 0000000001\r\n221 2.0.0 Bye\r\n"));
    EXPECT_TRUE(
        sinktest::contentsOf(m_directory.file("mails/0000000001.eml")).ends_with(" +0000\r\n" + content));
}

TEST_F(SinkServerTlsTest, CommandsInClearBehindStartTlsAreDropped) {
    begin();
    SinkClient client(port());
    client.reply();
    client.command("EHLO x");
    client.send("STARTTLS\r\nEHLO evil\r\nMAIL FROM:<evil@b.example>\r\n");
    EXPECT_EQ(client.reply(), "220 2.0.0 Ready to start TLS\r\n");
    client.startTls(m_directory.file("ca.pem"));
    EXPECT_EQ(client.command("NOOP"), "250 2.0.0 Ok\r\n");
    EXPECT_EQ(client.command("RCPT TO:<c@d.example>"), "503 5.5.1 Send MAIL first\r\n");
    EXPECT_EQ(client.command("MAIL FROM:<a@b.example>"), "503 5.5.1 Send EHLO or HELO first\r\n");
}

TEST_F(SinkServerTlsTest, PlainTextInsteadOfAHandshakeEndsTheConnection) {
    begin();
    SinkClient client(port());
    client.reply();
    client.command("EHLO x");
    client.command("STARTTLS");
    client.send("MAIL FROM:<a@b.example>\r\n");
    EXPECT_THAT(client.readToEnd(), Not(HasSubstr("250")));
}

TEST_F(SinkServerTlsTest, SlowHandshakeDoesNotDelayOthers) {
    begin();
    SinkClient stuck(port());
    stuck.reply();
    stuck.command("EHLO x");
    stuck.command("STARTTLS");
    SinkClient other(port());
    upgrade(other);
    EXPECT_EQ(other.command("NOOP"), "250 2.0.0 Ok\r\n");
}

TEST_F(SinkServerTlsTest, UnfinishedHandshakeIsClosedWhenItIdles) {
    m_options.idleTimeout = 100ms;
    begin();
    SinkClient client(port());
    client.reply();
    client.command("EHLO x");
    client.command("STARTTLS");
    EXPECT_TRUE(client.isClosed());
}

TEST_F(SinkServerTlsTest, StartTlsWorksWithSlowReplies) {
    m_options.replyDelay = 20ms;
    begin();
    SinkClient client(port());
    upgrade(client);
    EXPECT_EQ(client.command("NOOP"), "250 2.0.0 Ok\r\n");
}

TEST_F(SinkServerTlsTest, EndOfTlsEndsTheConnection) {
    begin();
    SinkClient client(port());
    upgrade(client);
    EXPECT_EQ(client.command("NOOP"), "250 2.0.0 Ok\r\n");
    client.closeTls();
    EXPECT_TRUE(client.isClosed());
}

TEST_F(SinkServerTlsTest, StopTakesLeaveOverTls) {
    begin();
    SinkClient client(port());
    upgrade(client);
    EXPECT_EQ(client.command("NOOP"), "250 2.0.0 Ok\r\n");
    m_server->stop();
    EXPECT_EQ(client.readToEnd(), "421 4.3.2 Shutting down\r\n");
}

TEST_F(SinkServerTlsTest, FiftyTlsConnectionsAtOnce) {
    begin();
    std::deque<SinkClient> clients;
    for (int i = 0; i < 50; ++i) {
        clients.emplace_back(port());
        upgrade(clients.back());
    }
    for (SinkClient& client : clients) {
        client.send("HELO x\r\nMAIL FROM:<a@b.example>\r\nRCPT TO:<c@d.example>\r\nDATA\r\n.\r\nQUIT\r\n");
    }
    for (SinkClient& client : clients) {
        EXPECT_THAT(client.readToEnd(), EndsWith("250 2.0.0 Counted\r\n221 2.0.0 Bye\r\n"));
    }
    EXPECT_EQ(m_server->counters().mails, 50U);
}
