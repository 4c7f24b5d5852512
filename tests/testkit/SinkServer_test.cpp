#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <deque>

#include "SinkClient.h"
#include "sink/Server.h"
#include "sink/StartError.h"

using namespace std::chrono_literals;
using sinktest::SinkClient;
using testing::ElementsAre;
using testing::EndsWith;

namespace {

const std::string GREETING = "220 localhost ESMTP kvsink\r\n";

/// A server with the options that the test sets before begin().
class SinkServerTest : public testing::Test {
protected:
    void begin() {
        m_server.emplace(m_options);
        m_server->start();
    }
    std::uint16_t port() const { return m_server->port(); }
    kvsink::Counts counts() const { return m_server->counters(); }

    const sinktest::ScratchDirectory m_directory;
    kvsink::Options m_options;
    std::optional<kvsink::Server> m_server;
};

/// Greets and delivers one mail; the reply to its end.
std::string deliver(SinkClient& client, const std::string& content) {
    client.reply();
    client.command("EHLO x");
    client.command("MAIL FROM:<a@b.example>");
    client.command("RCPT TO:<c@d.example>");
    client.command("DATA");
    return client.command(content + ".");
}

}  // namespace

TEST_F(SinkServerTest, TellsTheBoundAddress) {
    begin();
    EXPECT_NE(port(), 0);
    EXPECT_EQ(m_server->boundAddress(), "127.0.0.1:" + std::to_string(port()));
}

TEST_F(SinkServerTest, StoresTheContentByteForByte) {
    m_options.maildir = m_directory.file("mails");
    begin();
    SinkClient client(port());
    EXPECT_EQ(deliver(client, "Subject: x\r\n\r\n..dot\r\nbare\nfeed\r\n"),
              "250 2.0.0 Stored as 0000000001\r\n");
    EXPECT_THAT(sinktest::contentsOf(m_directory.file("mails/0000000001.eml")),
                EndsWith(" +0000\r\nSubject: x\r\n\r\n.dot\r\nbare\nfeed\r\n"));
}

TEST_F(SinkServerTest, StoresALargeMailByteForByte) {
    m_options.maildir = m_directory.file("mails");
    begin();
    std::string content;
    for (int i = 0; i < 100'000; ++i) {
        content += std::to_string(i) + " lines and counting\r\n";
    }
    SinkClient client(port());
    EXPECT_EQ(deliver(client, content), "250 2.0.0 Stored as 0000000001\r\n");
    const std::string stored = sinktest::contentsOf(m_directory.file("mails/0000000001.eml"));
    EXPECT_TRUE(stored.ends_with(" +0000\r\n" + content));
}

TEST_F(SinkServerTest, TheJournalHasALineForEachMailAlsoOfAnEarlierServer) {
    m_options.journal = m_directory.file("journal");
    for (int i = 0; i < 2; ++i) {
        begin();
        SinkClient client(port());
        EXPECT_EQ(deliver(client, "x\r\n"), "250 2.0.0 Counted\r\n");
        m_server.reset();
    }
    const std::string line = "[0-9]+\tESMTP\ta@b.example\tc@d.example\n";
    EXPECT_THAT(sinktest::contentsOf(m_options.journal), testing::MatchesRegex(line + line));
}

TEST_F(SinkServerTest, AJournalThatCannotBeOpenedIsToldAtTheStart) {
    m_options.journal = m_directory.file("missing/journal");
    EXPECT_THROW(begin(), kvsink::StartError);
}

TEST_F(SinkServerTest, AMailThatCannotBeNotedIsNotTaken) {
    m_options.journal = "/dev/full";
    begin();
    SinkClient client(port());
    EXPECT_EQ(deliver(client, "x\r\n"), "451 4.3.0 The mail could not be stored\r\n");
    EXPECT_EQ(counts().mails, 0U);
}

TEST_F(SinkServerTest, FailureToStoreIsATemporaryFailure) {
    m_options.maildir = m_directory.file("mails");
    begin();
    std::filesystem::remove_all(m_options.maildir);
    SinkClient client(port());
    EXPECT_EQ(deliver(client, "x\r\n"), "451 4.3.0 The mail could not be stored\r\n");
    EXPECT_EQ(counts().mails, 0U);
}

TEST_F(SinkServerTest, WholeConversationInOneSegment) {
    begin();
    SinkClient client(port());
    client.send(
        "EHLO x\r\nMAIL FROM:<a@b.example>\r\nRCPT "
        "TO:<c@d.example>\r\nDATA\r\ntext\r\n.\r\nNOOP\r\nQUIT\r\n");
    EXPECT_EQ(
        client.readToEnd(),
        GREETING +
            "250-localhost\r\n250-PIPELINING\r\n250-SIZE 33554432\r\n250-8BITMIME\r\n"
            "250-ENHANCEDSTATUSCODES\r\n250 HELP\r\n250 2.1.0 Sender ok\r\n250 2.1.5 Recipient ok\r\n"
            "354 End the mail with <CRLF>.<CRLF>\r\n250 2.0.0 Counted\r\n250 2.0.0 Ok\r\n221 2.0.0 Bye\r\n");
}

TEST_F(SinkServerTest, ConversationByteByByte) {
    begin();
    SinkClient client(port());
    for (const char c :
         std::string("HELO x\r\nMAIL FROM:<a@b.example>\r\nRCPT TO:<c@d.example>\r\nDATA\r\n.\r\n")) {
        client.send(std::string(1, c));
    }
    client.send("QUIT\r\n");
    EXPECT_EQ(client.readToEnd(), GREETING +
                                      "250 localhost\r\n250 2.1.0 Sender ok\r\n250 2.1.5 Recipient ok\r\n"
                                      "354 End the mail with <CRLF>.<CRLF>\r\n250 2.0.0 Counted\r\n"
                                      "221 2.0.0 Bye\r\n");
}

TEST_F(SinkServerTest, RepliesAreDeliveredToAClientThatHasFinishedSending) {
    begin();
    SinkClient client(port());
    client.send("NOOP\r\nNOOP\r\n");
    client.shutdownSending();
    EXPECT_EQ(client.readToEnd(), GREETING + "250 2.0.0 Ok\r\n250 2.0.0 Ok\r\n");
}

TEST_F(SinkServerTest, InputBehindQuitDoesNotDestroyTheReply) {
    begin();
    SinkClient client(port());
    client.send("QUIT\r\n" + std::string(300'000, 'x'));
    EXPECT_EQ(client.readToEnd(), GREETING + "221 2.0.0 Bye\r\n");
}

TEST_F(SinkServerTest, ClientThatDoesNotReadIsWaitedFor) {
    begin();
    SinkClient client(port());
    const int commands = 400'000;
    std::thread sender([&] {
        std::string batch;
        for (int i = 0; i < 1000; ++i) {
            batch += "NOOP\r\n";
        }
        for (int i = 0; i < commands / 1000; ++i) {
            client.send(batch);
        }
        client.shutdownSending();
    });
    SinkClient other(port());
    EXPECT_EQ(other.reply(), GREETING);
    EXPECT_EQ(other.command("NOOP"), "250 2.0.0 Ok\r\n");
    const std::string replies = client.readToEnd();
    sender.join();
    EXPECT_EQ(replies.size(), GREETING.size() + commands * std::string("250 2.0.0 Ok\r\n").size());
}

TEST_F(SinkServerTest, ThreeHundredConnectionsAtOnce) {
    begin();
    std::deque<SinkClient> clients;
    for (int i = 0; i < 300; ++i) {
        clients.emplace_back(port());
    }
    for (SinkClient& client : clients) {
        EXPECT_EQ(client.reply(), GREETING);
        client.send("HELO x\r\nMAIL FROM:<a@b.example>\r\nRCPT TO:<c@d.example>\r\nDATA\r\n");
    }
    for (SinkClient& client : clients) {
        client.send("text\r\n.\r\nQUIT\r\n");
    }
    for (SinkClient& client : clients) {
        EXPECT_THAT(client.readToEnd(), EndsWith("250 2.0.0 Counted\r\n221 2.0.0 Bye\r\n"));
    }
    EXPECT_EQ(counts().mails, 300U);
    EXPECT_EQ(counts().recipients, 300U);
    EXPECT_EQ(counts().connections, 300U);
}

TEST_F(SinkServerTest, SlowRepliesDoNotDelayOtherConnections) {
    m_options.replyDelay = 200ms;
    begin();
    const auto start = std::chrono::steady_clock::now();
    std::deque<SinkClient> clients;
    for (int i = 0; i < 50; ++i) {
        clients.emplace_back(port());
    }
    for (SinkClient& client : clients) {
        EXPECT_EQ(client.reply(), GREETING);
    }
    const auto elapsed = std::chrono::steady_clock::now() - start;
    EXPECT_GE(elapsed, 200ms);
    EXPECT_LT(elapsed, 5s);  // one after the other would be 10 s
}

TEST_F(SinkServerTest, EachPipelinedCommandIsHeldBack) {
    m_options.replyDelay = 50ms;
    begin();
    SinkClient client(port());
    client.reply();
    const auto start = std::chrono::steady_clock::now();
    client.send("NOOP\r\nNOOP\r\nNOOP\r\nQUIT\r\n");
    EXPECT_EQ(client.readToEnd(), "250 2.0.0 Ok\r\n250 2.0.0 Ok\r\n250 2.0.0 Ok\r\n221 2.0.0 Bye\r\n");
    EXPECT_GE(std::chrono::steady_clock::now() - start, 200ms);
}

TEST_F(SinkServerTest, IdleClientIsToldAndClosed) {
    m_options.idleTimeout = 100ms;
    begin();
    SinkClient client(port());
    EXPECT_EQ(client.readToEnd(), GREETING + "421 4.4.2 Idle for too long\r\n");
}

TEST_F(SinkServerTest, ActiveClientIsNotIdle) {
    m_options.idleTimeout = 400ms;
    begin();
    SinkClient client(port());
    client.reply();
    const auto end = std::chrono::steady_clock::now() + 800ms;
    while (std::chrono::steady_clock::now() < end) {
        ASSERT_EQ(client.command("NOOP"), "250 2.0.0 Ok\r\n");
        std::this_thread::sleep_for(20ms);  // real time is under test: twice the time-out, in small steps
    }
}

TEST_F(SinkServerTest, VanishedClientsAreForgotten) {
    begin();
    for (int i = 0; i < 20; ++i) {
        SinkClient client(port());
        client.send("HELO x\r\nMAIL FROM:<a@b.example>\r\nRCPT TO:<c@d.example>\r\nDATA\r\nhalf a mail");
    }
    EXPECT_TRUE(sinktest::eventually([&] { return counts().connections == 20; }));
    SinkClient client(port());
    EXPECT_EQ(deliver(client, "x\r\n"), "250 2.0.0 Counted\r\n");
    EXPECT_EQ(counts().mails, 1U);
}

TEST_F(SinkServerTest, CountersTellWhatWasReceived) {
    m_options.refused = {"bad@d.example"};
    begin();
    SinkClient client(port());
    client.send(
        "HELO x\r\nMAIL FROM:<a@b.example>\r\nRCPT TO:<bad@d.example>\r\nRCPT TO:<c@d.example>\r\n"
        "RCPT TO:<e@d.example>\r\nDATA\r\n.\r\nQUIT\r\n");
    client.readToEnd();
    EXPECT_EQ(counts().mails, 1U);
    EXPECT_EQ(counts().recipients, 2U);
    EXPECT_EQ(counts().connections, 1U);
    EXPECT_EQ(counts().refused, 1U);
}

TEST_F(SinkServerTest, StopTakesLeaveOfIdleClientsAtOnce) {
    begin();
    SinkClient client(port());
    client.reply();
    const auto start = std::chrono::steady_clock::now();
    m_server->stop();
    EXPECT_LT(std::chrono::steady_clock::now() - start, 1500ms);
    EXPECT_EQ(client.readToEnd(), "421 4.3.2 Shutting down\r\n");
}

TEST_F(SinkServerTest, StopLetsAMailUnderWayComplete) {
    begin();
    SinkClient client(port());
    client.reply();
    client.send("HELO x\r\nMAIL FROM:<a@b.example>\r\nRCPT TO:<c@d.example>\r\nDATA\r\n");
    for (int i = 0; i < 4; ++i) {
        client.reply();
    }
    std::thread stopper([&] { m_server->stop(); });
    const bool refusing = sinktest::eventually([&] {
        try {
            SinkClient late(port());
            return false;
        } catch (const std::runtime_error&) {
            return true;
        }
    });
    client.send("text\r\n.\r\n");
    EXPECT_EQ(client.readToEnd(), "250 2.0.0 Counted\r\n421 4.3.2 Shutting down\r\n");
    stopper.join();
    EXPECT_TRUE(refusing);
    EXPECT_EQ(counts().mails, 1U);
}

TEST_F(SinkServerTest, StopDoesNotWaitForEverForAMailUnderWay) {
    begin();
    SinkClient client(port());
    client.reply();
    client.command("HELO x");
    client.command("MAIL FROM:<a@b.example>");
    const auto start = std::chrono::steady_clock::now();
    m_server->stop();
    const auto elapsed = std::chrono::steady_clock::now() - start;  // real time is under test: 2 s
    EXPECT_GE(elapsed, 1900ms);
    EXPECT_LT(elapsed, 8s);
    EXPECT_TRUE(client.isClosed());
}

TEST_F(SinkServerTest, StopDeliversAReplyThatIsHeldBack) {
    m_options.replyDelay = 60s;
    begin();
    SinkClient client(port());
    EXPECT_TRUE(sinktest::eventually([&] { return counts().connections == 1; }));
    m_server->stop();
    EXPECT_EQ(client.readToEnd(), GREETING + "421 4.3.2 Shutting down\r\n");
}

TEST_F(SinkServerTest, StopTwiceAndNeverStartedAreHarmless) {
    kvsink::Server never(m_options);
    never.stop();
    begin();
    m_server->stop();
    m_server->stop();
}

TEST_F(SinkServerTest, DescriptorLimitIsRaisedToTheHardLimit) {
    rlimit before{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
    const rlimit lowered{std::min<rlim_t>(before.rlim_max, 512), before.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &lowered), 0);
    kvsink::raiseDescriptorLimit();
    rlimit raised{};
    ::getrlimit(RLIMIT_NOFILE, &raised);
    EXPECT_EQ(raised.rlim_cur, before.rlim_max);
    ::setrlimit(RLIMIT_NOFILE, &before);
}
