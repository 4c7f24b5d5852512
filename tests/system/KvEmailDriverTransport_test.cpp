#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "KvEmailDriver.h"
#include "RecordingLog.h"
#include "system/EngineDoubles.h"

// The lines of a conversation: what is one reply, and what is sent.

namespace {

using kvtest::Gate;
using kvtest::IoErrorOf;
using kvtest::OpenEngine;
using kvtest::RecordingLog;
using kvtest::Reply;
using kvtest::ScriptedSmtpServer;
using kvtest::Severity;
using kvtest::SmtpErrorOf;

// SmtpRead

TEST(KvEmailDriverTest, AReplyIsExactlyWhatOneReadReturned) {
    ScriptedSmtpServer server;
    Gate gate;
    server.on("NOOP").reply(Reply("250-first\r\n250 second\r\n").split({11}).restHeldBy(gate));
    RecordingLog log;
    OpenEngine engine(&log);
    engine.connectTo(server);
    engine.SmtpWrite(std::string("NOOP\r\n"));
    std::thread opener([&] {  // the rest is on its way as soon as the first half was read
        EXPECT_TRUE(log.waitFor("=> 250-first<CR><LF>"));
        gate.open();
    });
    std::string reply;
    EXPECT_EQ(engine.SmtpRead(reply), 11);
    EXPECT_EQ(reply, "250-first\r\n");
    opener.join();
    EXPECT_EQ(engine.SmtpRead(reply), 12);
    EXPECT_EQ(reply, "250 second\r\n");
}

TEST(KvEmailDriverTest, AReplyCutInsideItsCodeIsTwoReplies) {
    ScriptedSmtpServer server;
    Gate gate;
    server.on("NOOP").reply(Reply("250 ok\r\n").split({2}).restHeldBy(gate));
    OpenEngine engine;
    engine.connectTo(server);
    engine.SmtpWrite(std::string("NOOP\r\n"));
    std::string reply;
    EXPECT_EQ(engine.SmtpRead(reply), 2);
    EXPECT_EQ(reply, "25");
    gate.open();
    EXPECT_EQ(engine.SmtpRead(reply), 6);
    EXPECT_EQ(reply, "0 ok\r\n");
}

TEST(KvEmailDriverTest, TwoRepliesInOneSegmentAreOneReply) {
    ScriptedSmtpServer server;
    server.on("NOOP").reply("250 one\r\n550 two\r\n");
    OpenEngine engine;
    engine.connectTo(server);
    engine.SmtpWrite(std::string("NOOP\r\n"));
    std::string reply;
    EXPECT_EQ(engine.SmtpRead(reply), 18);
    EXPECT_EQ(reply, "250 one\r\n550 two\r\n");
}

TEST(KvEmailDriverTest, AReplyIsCutAt1000BytesAndTheRestIsTheNextReply) {
    ScriptedSmtpServer server;
    server.on("NOOP").reply("250 " + std::string(1100, 'x') + "\r\n");
    OpenEngine engine;
    engine.connectTo(server);
    engine.SmtpWrite(std::string("NOOP\r\n"));
    std::string reply;
    EXPECT_EQ(engine.SmtpRead(reply), 1000);
    EXPECT_EQ(reply, "250 " + std::string(996, 'x'));
    EXPECT_EQ(engine.SmtpRead(reply), 106);
    EXPECT_EQ(reply, std::string(104, 'x') + "\r\n");
}

TEST(KvEmailDriverTest, ANulEndsTheTextOfAReplyButNotItsCount) {
    ScriptedSmtpServer server;
    server.on("NOOP").reply(std::string("250 a\0b\r\n", 9));
    OpenEngine engine;
    engine.connectTo(server);
    engine.SmtpWrite(std::string("NOOP\r\n"));
    std::string reply;
    EXPECT_EQ(engine.SmtpRead(reply), 9);
    EXPECT_EQ(reply, "250 a");
}

TEST(KvEmailDriverTest, AReplyOf4yzOr5yzIsRaisedWithItsCodeAndText) {
    ScriptedSmtpServer server;
    server.on("NOOP").occurrence(1).reply("450-4.3.0 wait\r\n450 4.3.0 a little\r\n");
    server.on("NOOP").occurrence(2).reply("550 5.0.0 no\r\n");
    OpenEngine engine;
    engine.connectTo(server);
    std::string reply;
    engine.SmtpWrite(std::string("NOOP\r\n"));
    const KvSmtpException first = SmtpErrorOf([&] { engine.SmtpRead(reply); });
    EXPECT_EQ(first.m_nError, 450);
    EXPECT_EQ(first.m_strError, "4.3.0 wait\r\n450 4.3.0 a little\r\n");
    engine.SmtpWrite(std::string("NOOP\r\n"));
    const KvSmtpException second = SmtpErrorOf([&] { engine.SmtpRead(reply); });
    EXPECT_EQ(second.m_nError, 550);
    EXPECT_EQ(second.m_strError, "5.0.0 no\r\n");
}

TEST(KvEmailDriverTest, ANegativeReplyOfThreeCharactersIsOutOfRange) {
    ScriptedSmtpServer server;
    server.on("NOOP").reply("421");
    OpenEngine engine;
    engine.connectTo(server);
    engine.SmtpWrite(std::string("NOOP\r\n"));
    std::string reply;
    EXPECT_THROW(engine.SmtpRead(reply), std::out_of_range);
}

TEST(KvEmailDriverTest, AnyOtherFirstCharacterIsNoFailure) {
    ScriptedSmtpServer server;
    server.on("NOOP").reply("hello\r\n");
    OpenEngine engine;
    engine.connectTo(server);
    engine.SmtpWrite(std::string("NOOP\r\n"));
    std::string reply;
    EXPECT_EQ(engine.SmtpRead(reply), 7);
    EXPECT_EQ(reply, "hello\r\n");
}

TEST(KvEmailDriverTest, AReadFromAClosedConnectionIsAnIoError) {
    ScriptedSmtpServer server;
    OpenEngine engine;
    engine.connectTo(server);
    server.closeConnections();
    std::string reply = "old";
    EXPECT_EQ(IoErrorOf([&] { engine.SmtpRead(reply); }), "Socket is closed");
}

// SmtpWrite

TEST(KvEmailDriverTest, FormattedTextIsSentAndCounted) {
    ScriptedSmtpServer server;
    OpenEngine engine;
    engine.connectTo(server);
    EXPECT_EQ(engine.SmtpWrite("NOOP %s %d\r\n", "now", 5), 12);
    ASSERT_TRUE(server.waitForCommand("NOOP"));
    EXPECT_EQ(server.connection().clientBytes(), "EHLO [127.0.0.1]\r\nNOOP now 5\r\n");
}

TEST(KvEmailDriverTest, FormattedTextIsCutAt2047Characters) {
    ScriptedSmtpServer server;
    OpenEngine engine;
    engine.connectTo(server);
    EXPECT_EQ(engine.SmtpWrite("NOOP %s\r\n", std::string(3000, 'x').c_str()), 2047);
    EXPECT_EQ(engine.SmtpWrite(std::string("\r\n")), 2);
    ASSERT_TRUE(server.waitForCommand("NOOP"));
    EXPECT_EQ(server.connection().clientBytes(),
              "EHLO [127.0.0.1]\r\nNOOP " + std::string(2042, 'x') + "\r\n");
}

TEST(KvEmailDriverTest, FormattedTextOf2047CharactersIsSentWhole) {
    ScriptedSmtpServer server;
    OpenEngine engine;
    engine.connectTo(server);
    EXPECT_EQ(engine.SmtpWrite("NOOP %s\r\n", std::string(2040, 'x').c_str()), 2047);
    ASSERT_TRUE(server.waitForCommand("NOOP"));
    EXPECT_EQ(server.connection().clientBytes(),
              "EHLO [127.0.0.1]\r\nNOOP " + std::string(2040, 'x') + "\r\n");
}

TEST(KvEmailDriverTest, AStringIsSentWholeWhateverItsLengthAndItsBytes) {
    ScriptedSmtpServer server;
    OpenEngine engine;
    engine.connectTo(server);
    const std::string text = "NOOP %s%n " + std::string(5000, 'x') + std::string("\0y\r\n", 4);
    EXPECT_EQ(engine.SmtpWrite(text), 5014);
    ASSERT_TRUE(server.waitForCommand("NOOP"));
    EXPECT_EQ(server.connection().clientBytes(), "EHLO [127.0.0.1]\r\n" + text);
}

TEST(KvEmailDriverTest, NoLineEndIsAdded) {
    ScriptedSmtpServer server;
    OpenEngine engine;
    engine.connectTo(server);
    EXPECT_EQ(engine.SmtpWrite(std::string("NO")), 2);
    EXPECT_EQ(engine.SmtpWrite("OP%s", "\r\n"), 4);
    ASSERT_TRUE(server.waitForCommand("NOOP"));
    EXPECT_EQ(server.connection().clientBytes(), "EHLO [127.0.0.1]\r\nNOOP\r\n");
}

// The log

TEST(KvEmailDriverTest, WhatIsSentAndReceivedIsTraced) {
    ScriptedSmtpServer server;
    RecordingLog log;
    OpenEngine engine(&log);
    engine.connectTo(server);
    EXPECT_EQ(log.texts(),
              (std::vector<std::string>{"=> 220 test.example ESMTP<CR><LF>", "<= EHLO [127.0.0.1]<CR><LF>",
                                        "=> 250 test.example<CR><LF>"}));
    EXPECT_EQ(log.count(Severity::Trace), 3);
    EXPECT_EQ(log.entries().at(0).file, "../src/KvioSocket");
    EXPECT_EQ(log.entries().at(0).line, 226);
    EXPECT_EQ(log.entries().at(1).line, 174);
}

}  // namespace
