// Peers that cannot be reached, stop reading, fall silent, or are gone without a word.
#include "TempDir.h"
#include "TestPorts.h"
#include "endurance/EnduranceHost.h"

namespace {

using namespace kvtest;

constexpr int kUnacknowledgedMs = 200;
constexpr int kSmallSendBuffer = 16384;
constexpr std::size_t kMoreThanBuffersHold = 3'000'000;

class LostPeerTest : public EnduranceTest, public testing::WithParamInterface<Wire> {
protected:
    Wire OverWire() const { return GetParam(); }
    const char* ByWire(const char* inClear, const char* inTls) const {
        return OverWire() == Wire::Tls ? inTls : inClear;
    }

    MessageBuilder BigMail() {
        return MailOver(OverWire(), m_server->address())
            .attachment(m_folder.write("big.bin", std::string(kMoreThanBuffersHold, 'x')));
    }

    bool WaitUntilTheFirstConnectionHasVanished() const {
        return m_server->waitUntil([this] { return m_server->connection(1).vanished; });
    }

    TempDir m_folder;
};

INSTANTIATE_TEST_SUITE_P(Wires, LostPeerTest, testing::Values(Wire::Clear, Wire::Tls),
                         testing::PrintToStringParamName());

using UnreachablePeerTest = EnduranceTest;

// --- No connection

TEST_F(UnreachablePeerTest, ARefusedConnectionFailsTheJobAtOnce) {
    const RefusingPort nobody;
    Start();
    ExpectFailed(Deliver(MailOver(Wire::Clear, nobody.address())), kNoConnection);
}

TEST_F(UnreachablePeerTest, AConnectThatGoesUnansweredFailsTheJobWhenTheSystemGivesUp) {
    // The system gives up with its first repetition behind the limit, which comes after a second.
    const SocketLimits limits(kUnacknowledgedMs);
    const UnansweringPort full;
    Start();
    ExpectFailed(Deliver(MailOver(Wire::Clear, full.address())), kNoConnection);
}

TEST_F(UnreachablePeerTest, ACarrierThatCannotBeReachedLeavesTheOthersAlone) {
    const RefusingPort nobody;
    Serve();
    Start();
    TestMessageFile& lost = HandOver(MailOver(Wire::Clear, nobody.address()).carrier(1, "a"));
    TestMessageFile& sent = HandOver(MailOver(Wire::Clear, m_server->address()).carrier(2, "b"));
    m_driver->PeriodicEvent();
    ASSERT_TRUE(WaitUntilAllAreBack());
    ExpectFailed(lost, kNoConnection);
    ExpectCompleted(sent);
}

// --- The text under way

TEST_P(LostPeerTest, AConnectionClosedWhileTheTextIsWrittenFailsTheJob) {
    Serve().cutAfter(100'000, Then::Close, 1);
    const SocketLimits limits(10000, kSmallSendBuffer);
    Start();
    ExpectFailed(Deliver(BigMail()), ByWire("Socket Write Error", "SSL Write Error"));
    ExpectTheNextJobIsDeliveredOver(2, OverWire());
}

TEST_P(LostPeerTest, AConnectionResetWhileTheTextIsWrittenFailsTheJob) {
    Serve().cutAfter(100'000, Then::Reset, 1);
    const SocketLimits limits(10000, kSmallSendBuffer);
    Start();
    ExpectFailed(Deliver(BigMail()), ByWire("Socket Write Error", "SSL Write Error"));
    ExpectTheNextJobIsDeliveredOver(2, OverWire());
}

TEST_P(LostPeerTest, APeerThatClosesItsWritingSideWhileTheTextIsWrittenGetsItAllAndTheJobFails) {
    Serve().cutAfter(100'000, Then::HalfClose, 1);
    const SocketLimits limits(10000, kSmallSendBuffer);
    Start();
    ExpectFailed(Deliver(BigMail()), ByWire("Socket is closed", "SSL Socket is closed"));
    ExpectTheNextJobIsDeliveredOver(2, OverWire());
    ASSERT_TRUE(m_server->waitForOpenConnections(1));
    // Nothing is written any more once the end was read.
    EXPECT_TRUE(m_server->connection(1).clientBytes().ends_with("\r\n.\r\n"));
}

TEST_P(LostPeerTest, APeerThatStopsReadingFailsTheJobWhenItsTimeForAcknowledgementIsOver) {
    Serve().on("DATA").connection(1).reply(Reply("354 go ahead\r\n").thenStall());
    const SocketLimits limits(kUnacknowledgedMs, kSmallSendBuffer);
    Start();
    ExpectFailed(Deliver(BigMail()), ByWire("Socket Write Error", "SSL Write Error"));
    ExpectTheNextJobIsDeliveredOver(2, OverWire());
}

TEST_P(LostPeerTest, APeerThatVanishesWhileTheTextIsWrittenFailsTheJob) {
    Serve().cutAfter(100'000, Then::Vanish, 1);
    const SocketLimits limits(kUnacknowledgedMs, kSmallSendBuffer);
    Start();
    ExpectFailed(Deliver(BigMail()), ByWire("Socket Write Error", "SSL Write Error"));
    ExpectTheNextJobIsDeliveredOver(2, OverWire());
}

// --- Gone without a byte

TEST_P(LostPeerTest, APeerThatVanishesWhileItsReplyIsAwaitedFailsTheJobAtTheNextCommand) {
    Serve().on("MAIL").connection(1).reply(Reply().thenVanish());
    const SocketLimits limits(kUnacknowledgedMs);
    ReplyClock clock;
    Start();
    const TestMessageFile& file = HandOver(OverWire());
    m_driver->PeriodicEvent();
    ASSERT_TRUE(WaitUntilTheFirstConnectionHasVanished());
    clock.expireNext();  // nothing is unacknowledged yet: the reply is waited for to its end
    ASSERT_TRUE(WaitUntilAllAreBack());
    ExpectFailed(file, ByWire("Socket Read Error", "SSL Socket Read Error"));
    EXPECT_EQ(clock.expired(), 1);
    ExpectTheNextJobIsDeliveredOver(2, OverWire());
}

TEST_P(LostPeerTest, APeerThatVanishedWhileItsConnectionWasIdleIsFoundOutAndTheJobIsDelivered) {
    Serve().on(step::EndOfData).connection(1).reply(Reply("250 2.0.0 queued\r\n").thenVanish());
    const SocketLimits limits(kUnacknowledgedMs);
    const ReplyClock clock;
    Start();
    ExpectCompleted(Deliver(OverWire()));
    ASSERT_TRUE(WaitUntilTheFirstConnectionHasVanished());
    ExpectTheNextJobIsDeliveredOver(2, OverWire());
    EXPECT_EQ(clock.expired(), 0);
}

// --- Silent

TEST_P(LostPeerTest, AServerThatIsSilentAfterTheFinalDotCompletesTheJobAfterAMinute) {
    Serve().on(step::EndOfData).connection(1).occurrence(1).reply(Reply());
    ReplyClock clock;
    Start();
    const TestMessageFile& file = HandOver(OverWire());
    m_driver->PeriodicEvent();
    ASSERT_TRUE(m_server->waitForCommand(step::EndOfData));
    EXPECT_EQ(m_host.queue.count(), 0) << "not before the minute is over";
    clock.expireNext();
    ASSERT_TRUE(WaitUntilAllAreBack());
    ExpectCompleted(file);
    EXPECT_EQ(clock.expired(), 1);
    ExpectTheNextJobIsDeliveredOver(1, OverWire());
}

TEST_P(LostPeerTest, AServerThatIsSilentFromTheSenderOnCompletesTheJobAfterAMinutePerCommand) {
    Serve().on("MAIL").connection(1).reply(Reply().thenStall());
    ReplyClock clock;
    Start();
    const TestMessageFile& file = HandOver(OverWire());
    m_driver->PeriodicEvent();
    ASSERT_TRUE(m_server->waitForCommand("MAIL"));
    clock.expireAll();
    ASSERT_TRUE(WaitUntilAllAreBack());
    ExpectCompleted(file);
    EXPECT_EQ(clock.expired(), 4);  // MAIL, RCPT, DATA, final dot
    EXPECT_EQ(m_server->acceptedTransactions(), 0);
}

TEST_F(UnreachablePeerTest, AServerThatIsSilentFromTheBeginningCompletesTheJobAfterAMinutePerCommand) {
    const SilentListener silent;
    ReplyClock clock;
    clock.expireAll();
    Start();
    ExpectCompleted(Deliver(MailOver(Wire::Clear, silent.address())));
    EXPECT_EQ(clock.expired(), 7);  // greeting, EHLO, RSET, MAIL, RCPT, DATA, final dot
}

TEST_F(UnreachablePeerTest, AServerThatIsSilentFromTheBeginningFailsTheJobThatRequiresTls) {
    const SilentListener silent;
    ReplyClock clock;
    clock.expireAll();
    Start();
    ExpectFailed(Deliver(MailOver(Wire::Tls, silent.address())), kNoConnection);
    EXPECT_EQ(clock.expired(), 2);  // greeting, EHLO
}

}  // namespace
