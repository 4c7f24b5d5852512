#include <gmock/gmock.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <cerrno>
#include <chrono>
#include <list>
#include <system_error>
#include <thread>

#include "LoopbackSocket.h"
#include "PlainSmtpClient.h"
#include "ScriptedSmtpServer.h"

using namespace kvtest;
using testing::ElementsAre;
using namespace std::chrono_literals;
using End = PlainSmtpClient::End;
using Clock = std::chrono::steady_clock;

// How the server cuts up, delays and breaks off a conversation.

namespace {

std::vector<std::string> ServerChunks(const ScriptedSmtpServer& server) {
    std::vector<std::string> result;
    for (const Chunk& chunk : server.connection().chunks) {
        if (chunk.direction == Direction::FromServer) {
            result.push_back(chunk.bytes);
        }
    }
    return result;
}

/// Walks through a delivery as far as the server lets it.
void Deliver(PlainSmtpClient& client) {
    client.readReply();
    for (const char* line :
         {"EHLO client", "MAIL FROM:<ann@x>", "RCPT TO:<bob@x>", "DATA", "text\r\n.", "QUIT"}) {
        if (client.command(line).empty()) {
            return;
        }
    }
}

/// The steps of a delivery at which a server may fail.
class ServerFaultTest : public testing::TestWithParam<const char*> {
protected:
    ScriptedSmtpServer m_server;
};

std::string NameOf(const testing::TestParamInfo<const char*>& info) {
    std::string name = info.param;
    std::erase(name, '-');
    return name;
}

INSTANTIATE_TEST_SUITE_P(Steps, ServerFaultTest,
                         testing::Values(step::Greeting, "EHLO", "MAIL", "RCPT", "DATA", step::EndOfData,
                                         "QUIT"),
                         NameOf);

}  // namespace

TEST_P(ServerFaultTest, AClosedConnectionEndsInOrder) {
    m_server.on(GetParam()).reply(Reply("421 4.3.2 closing\r\n").thenClose());
    PlainSmtpClient client(m_server.port());
    Deliver(client);
    EXPECT_EQ(client.waitForEnd(), End::Closed);
    EXPECT_TRUE(m_server.connection().serverBytes().ends_with("421 4.3.2 closing\r\n"));
    ASSERT_TRUE(m_server.waitForOpenConnections(0));
    EXPECT_EQ(m_server.connection().end, ConnectionEnd::ServerClosed);
}

TEST_P(ServerFaultTest, AConnectionClosedWithoutAWordEndsInOrder) {
    m_server.on(GetParam()).reply(Reply().thenCloseAbruptly());
    PlainSmtpClient client(m_server.port());
    Deliver(client);
    EXPECT_EQ(client.waitForEnd(), End::Closed);
}

TEST_P(ServerFaultTest, AResetConnectionEndsWithAnError) {
    m_server.on(GetParam()).reply(Reply().thenReset());
    PlainSmtpClient client(m_server.port());
    Deliver(client);
    EXPECT_EQ(client.waitForEnd(), End::Reset);
    ASSERT_TRUE(m_server.waitForOpenConnections(0));
    EXPECT_EQ(m_server.connection().end, ConnectionEnd::ServerReset);
}

TEST_P(ServerFaultTest, AStalledConnectionStaysOpenUntilTheServerStops) {
    m_server.on(GetParam()).reply(Reply("2").thenStall());
    PlainSmtpClient client(m_server.port());
    std::thread delivery([&] { Deliver(client); });
    EXPECT_TRUE(m_server.waitUntil([&] { return m_server.connection().serverBytes().ends_with("2"); }));
    EXPECT_EQ(m_server.openConnections(), 1);
    m_server.stop();
    delivery.join();
    EXPECT_EQ(client.waitForEnd(), End::Closed);
    EXPECT_EQ(m_server.connection().end, ConnectionEnd::Stopped);
}

TEST(ScriptedSmtpServerFaultsTest, AStalledConnectionIsGivenUpWhenTheClientLeaves) {
    ScriptedSmtpServer server;
    server.on("NOOP").reply(Reply().thenStall());
    PlainSmtpClient client(server.port());
    client.readReply();
    client.send("NOOP\r\n");
    ASSERT_TRUE(server.waitForCommand("NOOP"));
    client.close();
    ASSERT_TRUE(server.waitForOpenConnections(0));
    EXPECT_EQ(server.connection().end, ConnectionEnd::ClientClosed);
}

TEST(ScriptedSmtpServerFaultsTest, AServerWithoutAGreetingStillAnswersCommands) {
    ScriptedSmtpServer server;
    server.on(step::Greeting).reply(Reply());
    PlainSmtpClient client(server.port());
    EXPECT_TRUE(client.staysSilentFor(20ms));
    EXPECT_EQ(client.command("NOOP"), "250 2.0.0 ok\r\n");
}

TEST(ScriptedSmtpServerFaultsTest, ASilentReplyLetsTheConversationGoOn) {
    ScriptedSmtpServer server;
    server.on("MAIL").reply(Reply());
    PlainSmtpClient client(server.port());
    client.readReply();
    client.send("MAIL FROM:<ann@x>\r\nRCPT TO:<bob@x>\r\n");
    EXPECT_EQ(client.readReply(), "250 2.1.5 recipient ok\r\n");
}

TEST(ScriptedSmtpServerFaultsTest, SeveralRepliesGoOutInOneSegment) {
    ScriptedSmtpServer server;
    server.on("NOOP").reply("250 one\r\n250 two\r\n");
    PlainSmtpClient client(server.port());
    client.readReply();
    client.send("NOOP\r\n");
    EXPECT_EQ(client.readSome(), "250 one\r\n250 two\r\n");
}

TEST(ScriptedSmtpServerFaultsTest, ASplitReplyGoesOutInItsPieces) {
    ScriptedSmtpServer server;
    server.on(step::Greeting).reply(Reply("220 hello\r\n").split({1, 4}));
    PlainSmtpClient client(server.port());
    EXPECT_EQ(client.readReply(), "220 hello\r\n");
    EXPECT_THAT(ServerChunks(server), ElementsAre("2", "20 ", "hello\r\n"));
}

TEST(ScriptedSmtpServerFaultsTest, AReplyByteByByteGoesOutInSingleBytes) {
    ScriptedSmtpServer server;
    server.on(step::Greeting).reply(Reply("220\r\n").byteByByte());
    PlainSmtpClient client(server.port());
    EXPECT_EQ(client.readReply(), "220\r\n");
    EXPECT_THAT(ServerChunks(server), ElementsAre("2", "2", "0", "\r", "\n"));
}

TEST(ScriptedSmtpServerFaultsTest, ThePiecesAreAPauseApart) {
    ScriptedSmtpServer server;
    server.on(step::Greeting).reply(Reply("220 hello\r\n").split({4}, 30ms));
    const auto begin = Clock::now();
    PlainSmtpClient client(server.port());
    client.readReply();
    EXPECT_GE(Clock::now() - begin, 30ms);
}

TEST(ScriptedSmtpServerFaultsTest, ADelayedReplyComesNoEarlier) {
    ScriptedSmtpServer server;
    server.on("NOOP").reply(Reply("250 late\r\n").delayed(30ms));
    PlainSmtpClient client(server.port());
    client.readReply();
    const auto begin = Clock::now();
    EXPECT_EQ(client.command("NOOP"), "250 late\r\n");
    EXPECT_GE(Clock::now() - begin, 30ms);
}

TEST(ScriptedSmtpServerFaultsTest, AGateHoldsAReplyBack) {
    ScriptedSmtpServer server;
    Gate gate;
    server.on("NOOP").reply(Reply("250 at last\r\n").heldBy(gate));
    PlainSmtpClient client(server.port());
    client.readReply();
    client.send("NOOP\r\n");
    ASSERT_TRUE(server.waitForCommand("NOOP"));
    EXPECT_TRUE(client.staysSilentFor(20ms));
    gate.open();
    EXPECT_EQ(client.readReply(), "250 at last\r\n");
}

TEST(ScriptedSmtpServerFaultsTest, AGateHoldsBackWhatFollowsTheFirstPiece) {
    ScriptedSmtpServer server;
    Gate gate;
    server.on("NOOP").reply(Reply("250 in parts\r\n").split({4}).restHeldBy(gate));
    PlainSmtpClient client(server.port());
    client.readReply();
    client.send("NOOP\r\n");
    EXPECT_EQ(client.readSome(), "250 ");
    EXPECT_TRUE(client.staysSilentFor(20ms));
    gate.open();
    EXPECT_EQ(client.readSome(), "in parts\r\n");
}

TEST(ScriptedSmtpServerFaultsTest, AConnectionIsClosedBeforeTheGreeting) {
    ScriptedSmtpServer server;
    server.cutAfter(0);
    PlainSmtpClient client(server.port());
    EXPECT_EQ(client.readToEnd(), "");
    EXPECT_EQ(client.waitForEnd(), End::Closed);
}

TEST(ScriptedSmtpServerFaultsTest, AConnectionIsCutAfterExactlySoManyBytes) {
    ScriptedSmtpServer server;
    server.cutAfter(8, Then::Reset);
    PlainSmtpClient client(server.port());
    client.readReply();
    EXPECT_EQ(client.command("NOOP"), "250 2.0.0 ok\r\n");
    client.send("NOOP\r\n");
    EXPECT_EQ(client.waitForEnd(), End::Reset);
    ASSERT_TRUE(server.waitForOpenConnections(0));
    EXPECT_EQ(server.connection().clientBytes(), "NOOP\r\nNO");
    EXPECT_EQ(server.connection().end, ConnectionEnd::ServerReset);
}

TEST(ScriptedSmtpServerFaultsTest, ACutInTheMessageLeavesItIncomplete) {
    ScriptedSmtpServer server;
    const std::string before = "MAIL FROM:<ann@x>\r\nRCPT TO:<bob@x>\r\nDATA\r\n";
    server.cutAfter(before.size() + 4);
    PlainSmtpClient client(server.port());
    client.readReply();
    client.send(before + "half a message");
    client.waitForEnd();
    ASSERT_TRUE(server.waitForOpenConnections(0));
    EXPECT_EQ(server.transactions().at(0).data, "half");
}

TEST(ScriptedSmtpServerFaultsTest, ACutCanBeMeantForOneConnection) {
    ScriptedSmtpServer server;
    server.cutAfter(0, Then::Close, 2);
    EXPECT_EQ(PlainSmtpClient(server.port()).readReply(), "220 test.example ESMTP\r\n");
    EXPECT_EQ(PlainSmtpClient(server.port()).readReply(), "");
}

TEST(ScriptedSmtpServerFaultsTest, TheTestClosesAConnectionThatIsIdle) {
    ScriptedSmtpServer server;
    PlainSmtpClient first(server.port());
    first.readReply();
    PlainSmtpClient second(server.port());
    second.readReply();
    server.closeConnections(1);
    EXPECT_EQ(first.waitForEnd(), End::Closed);
    EXPECT_EQ(second.command("NOOP"), "250 2.0.0 ok\r\n");
    server.closeConnections();
    EXPECT_EQ(second.waitForEnd(), End::Closed);
}

TEST(ScriptedSmtpServerFaultsTest, TheTestResetsAConnectionThatIsStalled) {
    ScriptedSmtpServer server;
    server.on(step::Greeting).reply(Reply("2").thenStall());
    PlainSmtpClient client(server.port());
    EXPECT_EQ(client.readSome(), "2");
    server.resetConnections();
    EXPECT_EQ(client.waitForEnd(), End::Reset);
}

TEST(ScriptedSmtpServerFaultsTest, AServerThatNoLongerListensKeepsItsConnections) {
    ScriptedSmtpServer server;
    PlainSmtpClient client(server.port());
    client.readReply();
    server.stopListening();
    EXPECT_THROW(PlainSmtpClient(server.port()), std::system_error);
    EXPECT_EQ(client.command("NOOP"), "250 2.0.0 ok\r\n");
}

TEST(ScriptedSmtpServerFaultsTest, AnotherServerCanTakeOverThePort) {
    int port = 0;
    {
        const ScriptedSmtpServer first;
        port = first.port();
        PlainSmtpClient client(port);
        client.readReply();
    }
    const ScriptedSmtpServer second({.hostName = "second.example", .port = port});
    EXPECT_EQ(PlainSmtpClient(port).readReply(), "220 second.example ESMTP\r\n");
}

TEST(ScriptedSmtpServerFaultsTest, StopIsPromptWhateverTheConnectionsWaitFor) {
    ScriptedSmtpServer server;
    server.on(step::Greeting).connection(1).reply(Reply().thenStall());
    server.on(step::Greeting).connection(2).reply(Reply("220 late\r\n").delayed(60s));
    server.on(step::Greeting).connection(3).reply(Reply("220 parts\r\n").byteByByte(60s));
    server.on(step::Greeting).connection(4).reply(Reply("220 held\r\n").heldBy(Gate()));
    server.on(step::Greeting).connection(5).reply(Reply(std::string(16U * 1024 * 1024, '2')));
    std::list<PlainSmtpClient> clients;
    for (int i = 1; i <= 6; ++i) {
        clients.emplace_back(server.port());
        ASSERT_TRUE(server.waitForConnections(i));
    }
    ASSERT_TRUE(server.waitUntil([&] { return !server.connection(5).chunks.empty(); }));
    const auto begin = Clock::now();
    server.stop();
    // Nothing but the shortest of the waits above would be over by then.
    EXPECT_LT(Clock::now() - begin, 10s);
    EXPECT_EQ(server.openConnections(), 0);
    EXPECT_EQ(server.connection(1).end, ConnectionEnd::Stopped);
}

TEST(ScriptedSmtpServerFaultsTest, StopMayBeCalledTwiceAndLeavesTheRecords) {
    ScriptedSmtpServer server;
    PlainSmtpClient client(server.port());
    client.readReply();
    server.stop();
    server.stop();
    EXPECT_EQ(server.acceptedConnections(), 1);
    EXPECT_EQ(server.connection().serverBytes(), "220 test.example ESMTP\r\n");
}

TEST(ScriptedSmtpServerFaultsTest, AHalfClosedConnectionIsReadToTheEnd) {
    ScriptedSmtpServer server;
    server.on("DATA").reply(Reply("354 go ahead\r\n").thenHalfClose());
    PlainSmtpClient client(server.port());
    Deliver(client);
    EXPECT_EQ(client.waitForEnd(), End::Closed);
    EXPECT_TRUE(client.send("more\r\n"));
    client.close();
    ASSERT_TRUE(server.waitForOpenConnections(0));
    EXPECT_TRUE(server.connection().clientBytes().ends_with("more\r\n"));
    EXPECT_EQ(server.connection().end, ConnectionEnd::ClientClosed);
}

TEST(ScriptedSmtpServerFaultsTest, AServerThatHasVanishedAcknowledgesNothing) {
    ScriptedSmtpServer server;
    server.on(step::Greeting).reply(Reply("220 here and gone\r\n").thenVanish());
    const ScopedDescriptor client = ConnectingSocket(server.port());
    char greeting[64];
    ASSERT_GT(recv(client.get(), greeting, sizeof greeting, 0), 0);
    const int limitMs = 100;
    setsockopt(client.get(), IPPROTO_TCP, TCP_USER_TIMEOUT, &limitMs, sizeof limitMs);
    ASSERT_TRUE(server.waitUntil([&] { return server.connection().vanished; }));
    EXPECT_EQ(send(client.get(), "x", 1, MSG_NOSIGNAL), 1);
    EXPECT_EQ(recv(client.get(), greeting, 1, 0), -1);
    EXPECT_EQ(errno, ETIMEDOUT);
}
