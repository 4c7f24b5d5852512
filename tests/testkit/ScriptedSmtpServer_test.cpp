#include "ScriptedSmtpServer.h"

#include <gmock/gmock.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "Descriptors.h"
#include "PlainSmtpClient.h"

using namespace kvtest;
using testing::ElementsAre;
using testing::IsEmpty;
using namespace std::chrono_literals;

namespace {

/// Greeting and EHLO, without looking at the replies.
void SayHello(PlainSmtpClient& client) {
    client.readReply();
    client.command("EHLO client");
}

std::string Deliver(PlainSmtpClient& client, const std::string& recipient, const std::string& message) {
    client.command("MAIL FROM: <ann@example.org>");
    client.command("RCPT TO: <" + recipient + ">");
    client.command("DATA");
    client.send(message + ".\r\n");
    return client.readReply();
}

}  // namespace

TEST(ScriptedSmtpServerTest, TheAddressIsLoopbackAndThePort) {
    const ScriptedSmtpServer server;
    EXPECT_GT(server.port(), 0);
    EXPECT_EQ(server.address(), "127.0.0.1:" + std::to_string(server.port()));
}

TEST(ScriptedSmtpServerTest, AnOrdinaryConversationGetsTheDefaultReplies) {
    const ScriptedSmtpServer server;
    PlainSmtpClient client(server.port());
    EXPECT_EQ(client.readReply(), "220 test.example ESMTP\r\n");
    EXPECT_EQ(client.command("EHLO client"), "250 test.example\r\n");
    EXPECT_EQ(client.command("MAIL FROM:<ann@example.org>"), "250 2.1.0 sender ok\r\n");
    EXPECT_EQ(client.command("RCPT TO:<bob@example.org>"), "250 2.1.5 recipient ok\r\n");
    EXPECT_EQ(client.command("DATA"), "354 go ahead\r\n");
    EXPECT_EQ(client.command("Hello\r\n."), "250 2.0.0 queued\r\n");
    EXPECT_EQ(client.command("RSET"), "250 2.0.0 reset\r\n");
    EXPECT_EQ(client.command("NOOP"), "250 2.0.0 ok\r\n");
    EXPECT_EQ(client.command("QUIT"), "221 2.0.0 bye\r\n");
    EXPECT_EQ(client.waitForEnd(), PlainSmtpClient::End::Closed);
}

TEST(ScriptedSmtpServerTest, HeloIsAnsweredWithOneLine) {
    const ScriptedSmtpServer server({.extensions = {{"SIZE 1000"}}});
    PlainSmtpClient client(server.port());
    client.readReply();
    EXPECT_EQ(client.command("HELO client"), "250 test.example\r\n");
}

TEST(ScriptedSmtpServerTest, EhloListsTheExtensionsAsGiven) {
    const ScriptedSmtpServer server({.extensions = {{"AUTH LOGIN", "SIZE 1000"}}});
    PlainSmtpClient client(server.port());
    client.readReply();
    EXPECT_EQ(client.command("EHLO client"), "250-test.example\r\n250-AUTH LOGIN\r\n250 SIZE 1000\r\n");
}

TEST(ScriptedSmtpServerTest, TheHostNameIsConfigurable) {
    const ScriptedSmtpServer server({.hostName = "mx.example.net"});
    PlainSmtpClient client(server.port());
    EXPECT_EQ(client.readReply(), "220 mx.example.net ESMTP\r\n");
    EXPECT_EQ(client.command("HELO client"), "250 mx.example.net\r\n");
}

TEST(ScriptedSmtpServerTest, VerbsAreReadInAnyCase) {
    const ScriptedSmtpServer server;
    PlainSmtpClient client(server.port());
    SayHello(client);
    EXPECT_EQ(client.command("noop"), "250 2.0.0 ok\r\n");
    EXPECT_THAT(server.connection().steps(), ElementsAre("EHLO", "NOOP"));
    EXPECT_THAT(server.connection().lines(), ElementsAre("EHLO client", "noop"));
}

TEST(ScriptedSmtpServerTest, CommandsOutOfOrderAreRefused) {
    const ScriptedSmtpServer server;
    PlainSmtpClient client(server.port());
    SayHello(client);
    EXPECT_EQ(client.command("RCPT TO:<bob@x>"), "503 5.5.1 need MAIL first\r\n");
    EXPECT_EQ(client.command("DATA"), "503 5.5.1 need MAIL first\r\n");
    client.command("MAIL FROM:<ann@x>");
    EXPECT_EQ(client.command("DATA"), "503 5.5.1 need RCPT first\r\n");
    EXPECT_EQ(client.command("MAIL FROM:<ann@x>"), "503 5.5.1 nested MAIL\r\n");
    EXPECT_EQ(client.command("VRFY bob"), "500 5.5.1 unknown command\r\n");
}

TEST(ScriptedSmtpServerTest, PipelinedCommandsAreAnsweredOneByOne) {
    const ScriptedSmtpServer server;
    PlainSmtpClient client(server.port());
    SayHello(client);
    client.send("NOOP\r\nRSET\r\nQUIT\r\n");
    EXPECT_EQ(client.readToEnd(), "250 2.0.0 ok\r\n250 2.0.0 reset\r\n221 2.0.0 bye\r\n");
}

TEST(ScriptedSmtpServerTest, TheMessageIsRecordedAsItCame) {
    const ScriptedSmtpServer server;
    PlainSmtpClient client(server.port());
    SayHello(client);
    client.command("MAIL FROM: <ann@example.org> SIZE=9");
    client.command("RCPT TO: <bob@example.org>");
    client.command("RCPT TO: <eve@example.org>");
    client.command("DATA");
    EXPECT_EQ(client.command("..stuffed\r\nbare\nline\r\n."), "250 2.0.0 queued\r\n");

    ASSERT_EQ(server.transactions().size(), 1U);
    const TransactionRecord mail = server.transactions()[0];
    EXPECT_EQ(mail.connection, 1);
    EXPECT_EQ(mail.number, 1);
    EXPECT_EQ(mail.mailFrom, "FROM: <ann@example.org> SIZE=9");
    EXPECT_EQ(mail.sender, "ann@example.org");
    EXPECT_THAT(mail.recipientAddresses(), ElementsAre("bob@example.org", "eve@example.org"));
    EXPECT_EQ(mail.recipients[1].argument, "TO: <eve@example.org>");
    EXPECT_EQ(mail.data, "..stuffed\r\nbare\nline\r\n");
    EXPECT_TRUE(mail.dataComplete);
    EXPECT_TRUE(mail.accepted());
}

TEST(ScriptedSmtpServerTest, AnAddressWithoutAngleBracketsIsWhatFollowsTheColon) {
    const ScriptedSmtpServer server;
    PlainSmtpClient client(server.port());
    SayHello(client);
    client.command("MAIL FROM: ann@x");
    client.command("RCPT TO:bob@x");
    EXPECT_EQ(server.transactions()[0].sender, "ann@x");
    EXPECT_THAT(server.transactions()[0].recipientAddresses(), ElementsAre("bob@x"));
}

TEST(ScriptedSmtpServerTest, AnEmptyMessageEndsWithItsFirstLine) {
    const ScriptedSmtpServer server;
    PlainSmtpClient client(server.port());
    SayHello(client);
    EXPECT_EQ(Deliver(client, "bob@x", ""), "250 2.0.0 queued\r\n");
    EXPECT_EQ(server.transactions()[0].data, "");
    EXPECT_TRUE(server.transactions()[0].dataComplete);
}

TEST(ScriptedSmtpServerTest, TheEndOfDataIsFoundHoweverItIsCutUp) {
    const ScriptedSmtpServer server;
    PlainSmtpClient client(server.port());
    SayHello(client);
    client.command("MAIL FROM:<ann@x>");
    client.command("RCPT TO:<bob@x>");
    client.command("DATA");
    std::size_t sent = server.connection().clientBytes().size();
    for (const char byte : std::string("a\r\n.\r\n")) {
        client.send(std::string(1, byte));
        ++sent;
        // The next byte leaves when this one has arrived, so that each comes in a read of its own.
        ASSERT_TRUE(server.waitUntil([&] { return server.connection().clientBytes().size() == sent; }));
    }
    EXPECT_EQ(client.readReply(), "250 2.0.0 queued\r\n");
    EXPECT_EQ(server.transactions()[0].data, "a\r\n");
}

TEST(ScriptedSmtpServerTest, CommandsBehindTheEndOfDataAreNotLost) {
    const ScriptedSmtpServer server;
    PlainSmtpClient client(server.port());
    SayHello(client);
    client.command("MAIL FROM:<ann@x>");
    client.command("RCPT TO:<bob@x>");
    client.command("DATA");
    client.send("a\r\n.\r\nQUIT\r\n");
    EXPECT_EQ(client.readToEnd(), "250 2.0.0 queued\r\n221 2.0.0 bye\r\n");
}

TEST(ScriptedSmtpServerTest, ATransactionThatIsResetIsRecordedAsAbandoned) {
    const ScriptedSmtpServer server;
    PlainSmtpClient client(server.port());
    SayHello(client);
    client.command("MAIL FROM:<ann@x>");
    EXPECT_EQ(server.transactions()[0].end, TransactionEnd::Open);
    client.command("RSET");
    EXPECT_EQ(server.transactions()[0].end, TransactionEnd::Abandoned);
    Deliver(client, "bob@x", "a\r\n");
    ASSERT_EQ(server.transactions().size(), 2U);
    EXPECT_EQ(server.transactions()[1].number, 2);
    EXPECT_EQ(server.transactions()[1].end, TransactionEnd::Accepted);
}

TEST(ScriptedSmtpServerTest, ATransactionCutShortKeepsTheDataThatCame) {
    const ScriptedSmtpServer server;
    PlainSmtpClient client(server.port());
    SayHello(client);
    client.command("MAIL FROM:<ann@x>");
    client.command("RCPT TO:<bob@x>");
    client.command("DATA");
    client.send("half a mess");
    client.close();
    ASSERT_TRUE(server.waitForOpenConnections(0));
    const TransactionRecord mail = server.transactions()[0];
    EXPECT_EQ(mail.data, "half a mess");
    EXPECT_FALSE(mail.dataComplete);
    EXPECT_EQ(mail.end, TransactionEnd::Abandoned);
}

TEST(ScriptedSmtpServerTest, ALineWithoutItsEndIsKept) {
    const ScriptedSmtpServer server;
    PlainSmtpClient client(server.port());
    SayHello(client);
    client.send("QUIT");
    client.close();
    ASSERT_TRUE(server.waitForOpenConnections(0));
    EXPECT_EQ(server.connection().incompleteLine, "QUIT");
    EXPECT_THAT(server.connection().steps(), ElementsAre("EHLO"));
}

TEST(ScriptedSmtpServerTest, TheTranscriptHoldsEveryByteInOrder) {
    const ScriptedSmtpServer server;
    PlainSmtpClient client(server.port());
    client.readReply();
    client.command("NOOP");
    client.command("QUIT");
    ASSERT_TRUE(server.waitForOpenConnections(0));
    const ConnectionRecord record = server.connection();
    EXPECT_EQ(record.clientBytes(), "NOOP\r\nQUIT\r\n");
    EXPECT_EQ(record.serverBytes(), "220 test.example ESMTP\r\n250 2.0.0 ok\r\n221 2.0.0 bye\r\n");
    EXPECT_EQ(record.toText(),
              "S: 220 test.example ESMTP\\r\\n\n"
              "C: NOOP\\r\\n\n"
              "S: 250 2.0.0 ok\\r\\n\n"
              "C: QUIT\\r\\n\n"
              "S: 221 2.0.0 bye\\r\\n\n");
    EXPECT_FALSE(record.chunks[0].insideTls);
    EXPECT_EQ(record.end, ConnectionEnd::ServerClosed);
}

TEST(ScriptedSmtpServerTest, BytesThatAreNoTextAreRecordedToo) {
    const ScriptedSmtpServer server;
    PlainSmtpClient client(server.port());
    client.readReply();
    const std::string odd("\0\xff\x01\\\r\n", 6);
    client.send(odd);
    EXPECT_EQ(client.readReply(), "500 5.5.1 unknown command\r\n");
    EXPECT_EQ(server.connection().clientBytes(), odd);
    EXPECT_THAT(server.connection().toText(), testing::HasSubstr("C: \\x00\\xff\\x01\\\\\\r\\n\n"));
}

TEST(ScriptedSmtpServerTest, ACommandIsRecordedWithItsReply) {
    ScriptedSmtpServer server;
    server.on("RCPT").reply("550 5.1.1 no such user\r\n");
    PlainSmtpClient client(server.port());
    SayHello(client);
    client.command("MAIL FROM:<ann@x>");
    client.command("RCPT TO:<bob@x>");
    const CommandRecord rcpt = server.connection().commands.at(2);
    EXPECT_EQ(rcpt.connection, 1);
    EXPECT_EQ(rcpt.step, "RCPT");
    EXPECT_EQ(rcpt.line, "RCPT TO:<bob@x>");
    EXPECT_EQ(rcpt.argument, "TO:<bob@x>");
    EXPECT_EQ(rcpt.reply, "550 5.1.1 no such user\r\n");
}

TEST(ScriptedSmtpServerTest, AConnectionThatIsNotMadeYetHasAnEmptyRecord) {
    const ScriptedSmtpServer server;
    EXPECT_EQ(server.connection(1).number, 0);
    EXPECT_EQ(server.connection(0).number, 0);
}

TEST(ScriptedSmtpServerTest, TheTextOfAllTranscriptsNamesTheConnections) {
    ScriptedSmtpServer server;
    server.on(step::Greeting).reply(Reply("421 busy\r\n").thenClose());
    EXPECT_EQ(PlainSmtpClient(server.port()).readToEnd(), "421 busy\r\n");
    EXPECT_EQ(server.toText(), "connection 1\nS: 421 busy\\r\\n\n");
}

TEST(ScriptedSmtpServerTest, OpenAndAcceptedConnectionsAreCounted) {
    const ScriptedSmtpServer server;
    PlainSmtpClient first(server.port());
    PlainSmtpClient second(server.port());
    ASSERT_TRUE(server.waitForConnections(2));
    EXPECT_EQ(server.openConnections(), 2);
    first.close();
    ASSERT_TRUE(server.waitForOpenConnections(1));
    EXPECT_EQ(server.acceptedConnections(), 2);
}

TEST(ScriptedSmtpServerTest, HowTheClientLeftIsRecorded) {
    const ScriptedSmtpServer server;
    PlainSmtpClient closing(server.port());
    closing.readReply();
    closing.close();
    ASSERT_TRUE(server.waitForConnections(1));
    PlainSmtpClient resetting(server.port());
    resetting.readReply();
    resetting.reset();
    ASSERT_TRUE(server.waitForConnections(2));
    ASSERT_TRUE(server.waitForOpenConnections(0));
    EXPECT_EQ(server.connection(1).end, ConnectionEnd::ClientClosed);
    EXPECT_EQ(server.connection(2).end, ConnectionEnd::ClientReset);
}

TEST(ScriptedSmtpServerTest, TheWaitsAnswerFalseWhenTheirBoundHasPassed) {
    const ScriptedSmtpServer server;
    EXPECT_FALSE(server.waitForConnections(1, 5ms));
    EXPECT_FALSE(server.waitForOpenConnections(1, 5ms));
    EXPECT_FALSE(server.waitForTransactions(1, 5ms));
    EXPECT_FALSE(server.waitForCommand("RCPT", 1, 5ms));
    EXPECT_FALSE(server.waitUntil([] { return false; }, 5ms));
}

TEST(ScriptedSmtpServerTest, AWaitSeesWhatHappensOnAnotherThread) {
    const ScriptedSmtpServer server;
    std::thread other([&] {
        PlainSmtpClient client(server.port());
        SayHello(client);
        Deliver(client, "bob@x", "a\r\n");
    });
    EXPECT_TRUE(server.waitForTransactions(1));
    EXPECT_TRUE(server.waitForCommand("RCPT"));
    EXPECT_EQ(server.completedTransactions(), 1);
    EXPECT_EQ(server.acceptedTransactions(), 1);
    other.join();
    EXPECT_EQ(server.commandCount("RCPT"), 1);
}

TEST(ScriptedSmtpServerTest, FiftyClientsAtOnceAreServedEachForItself) {
    const ScriptedSmtpServer server;
    constexpr int Clients = 50;
    std::atomic<int> queued = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < Clients; ++i) {
        threads.emplace_back([&, i] {
            PlainSmtpClient client(server.port());
            SayHello(client);
            // Nobody goes on before everybody is connected.
            server.waitForConnections(Clients);
            const std::string name = std::to_string(i) + "@x";
            queued += Deliver(client, name, name + "\r\n") == "250 2.0.0 queued\r\n" ? 1 : 0;
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(queued, Clients);
    EXPECT_EQ(server.acceptedTransactions(), Clients);
    for (const TransactionRecord& mail : server.transactions()) {
        EXPECT_EQ(mail.data, mail.recipients.at(0).address + "\r\n");
    }
    EXPECT_TRUE(server.waitForOpenConnections(0));
}

TEST(ScriptedSmtpServerTest, DescriptorsAboveThoseOfAnFdSetAreNoTrouble) {
    const OccupiedDescriptors occupied(1100);
    const ScriptedSmtpServer server;
    PlainSmtpClient client(server.port());
    SayHello(client);
    EXPECT_EQ(Deliver(client, "bob@x", "a\r\n"), "250 2.0.0 queued\r\n");
}

TEST(ScriptedSmtpServerTest, EveryDescriptorIsGivenBack) {
    const int before = OpenDescriptorCount();
    {
        const ScriptedSmtpServer server;
        PlainSmtpClient client(server.port());
        client.readReply();
        EXPECT_GT(OpenDescriptorCount(), before);
    }
    EXPECT_EQ(OpenDescriptorCount(), before);
}

TEST(ScriptedSmtpServerTest, AMessageLargerThanTheSocketBuffersArrivesWhole) {
    const ScriptedSmtpServer server;
    PlainSmtpClient client(server.port());
    SayHello(client);
    std::string message;
    while (message.size() < 8U * 1024 * 1024) {
        message += "line " + std::to_string(message.size()) + "\r\n";
    }
    EXPECT_EQ(Deliver(client, "bob@x", message), "250 2.0.0 queued\r\n");
    EXPECT_TRUE(server.transactions()[0].data == message);
}
