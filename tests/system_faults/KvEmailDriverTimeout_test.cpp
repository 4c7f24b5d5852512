#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "KvEmailDriver.h"
#include "RecordingLog.h"
#include "system/EngineDoubles.h"
#include "system/ExpectedMail.h"
#include "system_faults/Waits.h"

// A server that says nothing: what the engine does when the 60 seconds of a reply are over.

namespace {

using kvtest::CaFile;
using kvtest::EndedWaits;
using kvtest::OfferingAuth;
using kvtest::OfferingStartTls;
using kvtest::OpenEngine;
using kvtest::Reply;
using kvtest::ScriptedSmtpServer;
using kvtest::SimpleMessage;
using kvtest::SmtpErrorOf;

using Milliseconds = std::vector<long>;

TEST(KvEmailDriverTimeoutTest, AReplyIsWaitedForAMinuteAndAnExpiredOneIsEmptyAndNoFailure) {
    ScriptedSmtpServer server;
    OpenEngine engine;
    engine.connectTo(server);
    const EndedWaits waits(EndedWaits::How::Expired);
    std::string reply = "old";
    EXPECT_EQ(engine.SmtpRead(reply), -1);
    EXPECT_EQ(reply, "");
    EXPECT_EQ(waits.timeouts(), Milliseconds{60000});
}

TEST(KvEmailDriverTimeoutTest, AnInterruptedWaitIsAnEmptyReplyToo) {
    ScriptedSmtpServer server;
    OpenEngine engine;
    engine.connectTo(server);
    const EndedWaits waits(EndedWaits::How::Interrupted);
    std::string reply = "old";
    EXPECT_EQ(engine.SmtpRead(reply), -1);
    EXPECT_EQ(reply, "");
}

TEST(KvEmailDriverTimeoutTest, ASilentServerCountsAsAlive) {
    ScriptedSmtpServer server;
    OpenEngine engine;
    engine.connectTo(server);
    const EndedWaits waits(EndedWaits::How::Expired);
    EXPECT_TRUE(engine.IsAlive());
    EXPECT_EQ(waits.timeouts(), Milliseconds{60000});
}

TEST(KvEmailDriverTimeoutTest, EveryStepOfASilentServerPassesAndTheMailCountsAsSent) {
    ScriptedSmtpServer server;
    server.on(kvtest::step::Any).reply(Reply());
    OpenEngine engine;
    const EndedWaits waits(EndedWaits::How::Expired);
    engine.connectTo(server);
    engine.SendMail("ann@example.org", {"bob@example.org"}, "Subject", "Text", {});
    EXPECT_EQ(waits.timeouts(), Milliseconds(6, 60000));  // greeting, EHLO, MAIL, RCPT, DATA, end of data
    ASSERT_TRUE(server.waitForTransactions(1));
    EXPECT_EQ(server.connection().clientBytes(),
              "EHLO [127.0.0.1]\r\n"
              "MAIL FROM: <ann@example.org>\r\n"
              "RCPT TO: <bob@example.org>\r\n"
              "DATA\r\n" +
                  SimpleMessage + ".\r\n");
}

/// A log that lets the server go on once the engine has read what came before.
class TurnByTurn : public kvtest::RecordingLog {
public:
    void LogTrace(const std::string& text, int line, const char* file) override {
        RecordingLog::LogTrace(text, line, file);
        if (text == "=> 2") {
            m_restOfRcpt.open();
        } else if (text == "=> 50 2.1.5 Ok<CR><LF>") {
            m_replyToData.open();
        }
    }
    kvtest::Gate m_restOfRcpt;
    kvtest::Gate m_replyToData;
};

// The engine gives up when DATA is sent, and the server waits for a text from then on.
TEST(KvEmailDriverTimeoutTest, AReplyToRcptWhoseRestReadsAsARefusalLosesTheNextMailInTheTextOfThisOne) {
    TurnByTurn log;
    ScriptedSmtpServer server;
    server.on("RCPT").reply(Reply("250 2.1.5 Ok\r\n").split({1}).restHeldBy(log.m_restOfRcpt));
    server.on("DATA").reply(Reply("354 Go on\r\n").heldBy(log.m_replyToData));
    OpenEngine engine(&log);
    engine.connectTo(server);
    EXPECT_EQ(SmtpErrorOf([&] {
                  engine.SendMail("ann@example.org", {"bob@example.org"}, "First", "one", {});
              }).m_strError,
              ".1.5 Ok\r\n");
    EXPECT_TRUE(engine.IsAlive());  // by the reply to DATA
    const EndedWaits waits(EndedWaits::How::Expired);
    engine.SendMail("ann@example.org", {"eve@example.org"}, "Second", "two", {});
    EXPECT_EQ(waits.timeouts(), Milliseconds(4, 60000));  // MAIL, RCPT, DATA, end of data
    ASSERT_TRUE(server.waitForTransactions(1));
    EXPECT_EQ(server.transactions()[0].recipientAddresses(), std::vector<std::string>{"bob@example.org"});
    EXPECT_THAT(server.transactions()[0].data, testing::HasSubstr("RCPT TO: <eve@example.org>\r\nDATA\r\n"));
}

TEST(KvEmailDriverTimeoutTest, TheReplyToTheQuitOfASingleShotIsNotWaitedFor) {
    ScriptedSmtpServer server;
    server.on(kvtest::step::Any).reply(Reply());
    OpenEngine engine;
    KvEmailDriver::Job job;
    job.strHost = server.address();
    const EndedWaits waits(EndedWaits::How::Expired);
    EXPECT_TRUE(engine.SendAMessage(job));
    EXPECT_EQ(waits.timeouts(), Milliseconds(6, 60000));  // greeting, EHLO, MAIL, RCPT, DATA, end of data
}

TEST(KvEmailDriverTimeoutTest, AnExpiredReplyToEhloOffersNothingAndIsNotFollowedByHelo) {
    ScriptedSmtpServer server;
    OpenEngine engine;
    {
        const EndedWaits waits(EndedWaits::How::Expired);
        engine.Connect(server.address(), "ann", "secret", KvEmailDriver::SecTLSIfAvailable);
    }
    EXPECT_FALSE(engine.job().bStartTLS || engine.job().bAuthLogin || engine.job().bAuthPlain);
    ASSERT_TRUE(server.waitForCommand("EHLO"));
    EXPECT_EQ(server.connection().clientBytes(), "EHLO [127.0.0.1]\r\n");
}

TEST(KvEmailDriverTimeoutTest, AnExpiredReplyToStartTlsIsTakenAsNotSupported) {
    ScriptedSmtpServer server;
    OpenEngine engine;
    engine.connectTo(server);
    engine.job().bStartTLS = true;
    engine.job().eSecType = KvEmailDriver::SecTLSRequired;
    const EndedWaits waits(EndedWaits::How::Expired);
    EXPECT_EQ(SmtpErrorOf([&] { engine.ProcessTLS(); }).m_nError, 815);
}

TEST(KvEmailDriverTimeoutTest, AnExpiredReplyToAuthLoginIsRecordedAs819WithoutText) {
    ScriptedSmtpServer server(OfferingAuth("LOGIN"));
    server.on("AUTH").reply(Reply());
    OpenEngine engine;
    engine.connectTo(server);
    const EndedWaits waits(EndedWaits::How::Expired);
    EXPECT_FALSE(engine.DoLogin(engine.job()));
    EXPECT_EQ(engine.lastError(), 819);
    EXPECT_EQ(engine.lastErrorText(), "");
}

TEST(KvEmailDriverTimeoutTest, AnExpiredReplyToTheCredentialsOfAuthPlainCountsAsAccepted) {
    ScriptedSmtpServer server(OfferingAuth("PLAIN"));
    server.on(kvtest::step::Any).reply(Reply());
    OpenEngine engine;
    const EndedWaits waits(EndedWaits::How::Expired);
    engine.connectTo(server);
    EXPECT_TRUE(engine.DoPlainLogin(engine.job()));
}

TEST(KvEmailDriverTimeoutTest, InsideTlsAReplyIsWaitedForAMinuteToo) {
    ScriptedSmtpServer server(OfferingStartTls());
    OpenEngine engine(nullptr, CaFile());
    engine.Connect(server.address(), "", "", KvEmailDriver::SecTLSRequired);
    const EndedWaits waits(EndedWaits::How::Expired);
    std::string reply = "old";
    EXPECT_EQ(engine.SmtpRead(reply), -1);
    EXPECT_EQ(reply, "");
    EXPECT_EQ(waits.timeouts(), Milliseconds{60000});
}

TEST(KvEmailDriverTimeoutTest, InsideTlsTheRestOfALongReplyIsWaitedForAlthoughItIsThere) {
    ScriptedSmtpServer server(OfferingStartTls());
    server.on("NOOP").reply("250 " + std::string(1100, 'x') + "\r\n");
    OpenEngine engine(nullptr, CaFile());
    engine.Connect(server.address(), "", "", KvEmailDriver::SecTLSRequired);
    engine.SmtpWrite(std::string("NOOP\r\n"));
    std::string reply;
    EXPECT_EQ(engine.SmtpRead(reply), 1000);
    {
        const EndedWaits waits(EndedWaits::How::Expired);
        EXPECT_EQ(engine.SmtpRead(reply), -1);
        EXPECT_EQ(waits.timeouts(), Milliseconds{60000});
    }
    engine.SmtpWrite(std::string("NOOP\r\n"));
    EXPECT_EQ(engine.SmtpRead(reply), 106);  // now something lies on the descriptor
    EXPECT_EQ(reply, std::string(104, 'x') + "\r\n");
}

}  // namespace
