#include <gmock/gmock.h>

#include <stdexcept>
#include <string>

#include "PlainSmtpClient.h"
#include "ScriptedSmtpServer.h"

using namespace kvtest;
using testing::ElementsAre;
using testing::IsEmpty;

// Replies scripted by verb, occurrence, connection, transaction and recipient.

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

TEST(ScriptedSmtpServerScriptTest, AScriptHoldsFromTheNextStepOn) {
    ScriptedSmtpServer server;
    PlainSmtpClient client(server.port());
    SayHello(client);
    server.on("NOOP").reply("252 scripted\r\n");
    EXPECT_EQ(client.command("NOOP"), "252 scripted\r\n");
    server.clearScript();
    EXPECT_EQ(client.command("NOOP"), "250 2.0.0 ok\r\n");
}

TEST(ScriptedSmtpServerScriptTest, TheNthOccurrenceIsCountedOnEachConnection) {
    ScriptedSmtpServer server;
    server.on("NOOP").occurrence(2).reply("252 second\r\n");
    for (int connection = 1; connection <= 2; ++connection) {
        PlainSmtpClient client(server.port());
        client.readReply();
        EXPECT_EQ(client.command("NOOP"), "250 2.0.0 ok\r\n");
        EXPECT_EQ(client.command("NOOP"), "252 second\r\n");
        EXPECT_EQ(client.command("NOOP"), "250 2.0.0 ok\r\n");
    }
}

TEST(ScriptedSmtpServerScriptTest, AConnectionCanBeScriptedByItsNumber) {
    ScriptedSmtpServer server;
    server.on(step::Greeting).connection(2).reply("421 busy\r\n");
    EXPECT_EQ(PlainSmtpClient(server.port()).readReply(), "220 test.example ESMTP\r\n");
    EXPECT_EQ(PlainSmtpClient(server.port()).readReply(), "421 busy\r\n");
    EXPECT_EQ(PlainSmtpClient(server.port()).readReply(), "220 test.example ESMTP\r\n");
}

TEST(ScriptedSmtpServerScriptTest, ATransactionCanBeScriptedByItsNumber) {
    ScriptedSmtpServer server;
    server.on(step::EndOfData).transaction(2).reply("451 4.3.0 try later\r\n");
    PlainSmtpClient client(server.port());
    SayHello(client);
    EXPECT_EQ(Deliver(client, "bob@x", "1\r\n"), "250 2.0.0 queued\r\n");
    EXPECT_EQ(Deliver(client, "bob@x", "2\r\n"), "451 4.3.0 try later\r\n");
    EXPECT_EQ(Deliver(client, "bob@x", "3\r\n"), "250 2.0.0 queued\r\n");
    EXPECT_EQ(server.transactions()[1].end, TransactionEnd::Refused);
    EXPECT_EQ(server.completedTransactions(), 3);
    EXPECT_EQ(server.acceptedTransactions(), 2);
}

TEST(ScriptedSmtpServerScriptTest, ANamedRecipientCanBeRefused) {
    ScriptedSmtpServer server;
    server.on("RCPT").recipient("bob@example.org").reply("550 5.1.1 no such user\r\n");
    PlainSmtpClient client(server.port());
    SayHello(client);
    client.command("MAIL FROM: <ann@example.org>");
    EXPECT_EQ(client.command("RCPT TO: <eve@example.org>"), "250 2.1.5 recipient ok\r\n");
    EXPECT_EQ(client.command("RCPT TO: <bob@example.org>"), "550 5.1.1 no such user\r\n");
    EXPECT_TRUE(server.transactions()[0].recipients[0].accepted);
    EXPECT_FALSE(server.transactions()[0].recipients[1].accepted);
}

TEST(ScriptedSmtpServerScriptTest, WithEveryRecipientRefusedDataIsRefusedToo) {
    ScriptedSmtpServer server;
    server.on("RCPT").reply("550 5.1.1 no such user\r\n");
    PlainSmtpClient client(server.port());
    SayHello(client);
    client.command("MAIL FROM:<ann@x>");
    client.command("RCPT TO:<bob@x>");
    EXPECT_EQ(client.command("DATA"), "503 5.5.1 need RCPT first\r\n");
}

TEST(ScriptedSmtpServerScriptTest, ARefusedSenderOpensNoTransaction) {
    ScriptedSmtpServer server;
    server.on("MAIL").times(1).reply("530 5.7.0 Must issue a STARTTLS command first\r\n");
    PlainSmtpClient client(server.port());
    SayHello(client);
    client.command("MAIL FROM:<ann@x>");
    EXPECT_EQ(server.transactions()[0].end, TransactionEnd::SenderRefused);
    EXPECT_EQ(client.command("MAIL FROM:<ann@x>"), "250 2.1.0 sender ok\r\n");
    EXPECT_EQ(server.transactions()[1].number, 2);
}

TEST(ScriptedSmtpServerScriptTest, TheEndOfDataRuleSeesTheMessage) {
    ScriptedSmtpServer server;
    server.on(step::EndOfData).answer([](const CommandContext& context) {
        const bool spam = context.data.find("cheap") != std::string_view::npos;
        return spam ? Reply("554 5.7.1 no, thanks\r\n") : context.defaultReply;
    });
    PlainSmtpClient client(server.port());
    SayHello(client);
    EXPECT_EQ(Deliver(client, "bob@x", "cheap watches\r\n"), "554 5.7.1 no, thanks\r\n");
    EXPECT_EQ(Deliver(client, "bob@x", "hello\r\n"), "250 2.0.0 queued\r\n");
}

TEST(ScriptedSmtpServerScriptTest, AFunctionSeesTheWholeContext) {
    ScriptedSmtpServer server;
    CommandContext seen;
    server.on("RCPT").occurrence(2).answer([&](const CommandContext& context) {
        seen = context;
        return context.defaultReply;
    });
    PlainSmtpClient client(server.port());
    SayHello(client);
    client.command("MAIL FROM:<ann@x>");
    client.command("RCPT TO:<bob@x>");
    client.command("RCPT TO:<eve@x> NOTIFY=NEVER");
    EXPECT_EQ(seen.connection, 1);
    EXPECT_EQ(seen.step, "RCPT");
    EXPECT_EQ(seen.occurrence, 2);
    EXPECT_EQ(seen.line, "RCPT TO:<eve@x> NOTIFY=NEVER");
    EXPECT_EQ(seen.argument, "TO:<eve@x> NOTIFY=NEVER");
    EXPECT_EQ(seen.address, "eve@x");
    EXPECT_EQ(seen.transaction, 1);
    EXPECT_THAT(seen.recipients, ElementsAre("bob@x", "eve@x"));
    EXPECT_FALSE(seen.insideTls);
    EXPECT_FALSE(seen.authenticated);
}

TEST(ScriptedSmtpServerScriptTest, AFunctionThatThrowsEndsTheConnectionAndIsRecorded) {
    ScriptedSmtpServer server;
    server.on("NOOP").answer([](const CommandContext&) -> Reply { throw std::runtime_error("oops"); });
    PlainSmtpClient client(server.port());
    client.readReply();
    EXPECT_EQ(client.command("NOOP"), "");
    ASSERT_TRUE(server.waitForOpenConnections(0));
    EXPECT_EQ(server.connection().end, ConnectionEnd::ScriptFailed);
    EXPECT_EQ(server.connection().scriptError, "oops");
}

TEST(ScriptedSmtpServerScriptTest, DataThatIsAnsweredOddlyIsFollowedByTheMessage) {
    ScriptedSmtpServer server;
    server.on("DATA").reply("what?\r\n");
    PlainSmtpClient client(server.port());
    SayHello(client);
    EXPECT_EQ(Deliver(client, "bob@x", "a\r\n"), "250 2.0.0 queued\r\n");
    EXPECT_EQ(server.transactions()[0].data, "a\r\n");
}

TEST(ScriptedSmtpServerScriptTest, DataThatIsRefusedIsFollowedByCommands) {
    ScriptedSmtpServer server;
    server.on("DATA").reply("451 4.3.0 not now\r\n");
    PlainSmtpClient client(server.port());
    SayHello(client);
    client.command("MAIL FROM:<ann@x>");
    client.command("RCPT TO:<bob@x>");
    EXPECT_EQ(client.command("DATA"), "451 4.3.0 not now\r\n");
    EXPECT_EQ(client.command("RSET"), "250 2.0.0 reset\r\n");
}

TEST(ScriptedSmtpServerScriptTest, DataCanBeLetThroughWithoutATransaction) {
    ScriptedSmtpServer server;
    server.on("DATA").reply("354 go\r\n");
    PlainSmtpClient client(server.port());
    SayHello(client);
    EXPECT_EQ(client.command("DATA"), "354 go\r\n");
    EXPECT_EQ(client.command("a\r\n."), "250 2.0.0 queued\r\n");
    EXPECT_THAT(server.transactions(), IsEmpty());
}
