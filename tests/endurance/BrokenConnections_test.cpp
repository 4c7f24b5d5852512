// Connections that the server breaks at every step of a conversation, in clear and inside TLS.
#include "endurance/EnduranceHost.h"

namespace {

using namespace kvtest;

/// What the server does in the place of a reply.
struct Break {
    const char* name;
    Then then;
    const char* text;
    /// The driver's reason when a worker meets it, in clear and inside TLS.
    const char* reasonInClear;
    const char* reasonInTls;

    Reply reply(const std::string& before = "") const { return Reply(before + text).followedBy(then); }
    const char* reason(Wire wire) const { return wire == Wire::Tls ? reasonInTls : reasonInClear; }
};

constexpr const char* kGoingDown = "421 4.3.2 going down\r\n";
constexpr const char* kGoingDownReason = "4.3.2 going down\r\n";

constexpr Break kBreaks[] = {
    {"Closed", Then::Close, "", "Socket is closed", "SSL Socket is closed"},
    {"ClosedAbruptly", Then::CloseAbruptly, "", "Socket is closed", "SSL Socket is closed"},
    {"Reset", Then::Reset, "", "Socket Read Error", "SSL Socket Read Error"},
    {"HalfClosed", Then::HalfClose, "", "Socket is closed", "SSL Socket is closed"},
    {"ClosedWith421", Then::Close, kGoingDown, kGoingDownReason, kGoingDownReason},
};

/// A step of the conversation, met for the `occurrence`-th time on its connection.
struct Phase {
    const char* name;
    Wire wire;
    const char* step;
    int occurrence;
    const char* before = "";  ///< what the server says before it breaks the connection
};

struct Case {
    Phase phase;
    Break fault;
};

std::ostream& operator<<(std::ostream& out, const Case& each) {
    return out << each.fault.name << each.phase.name;
}

std::vector<Case> EachBreakAt(const std::vector<Phase>& phases) {
    std::vector<Case> cases;
    for (const Phase& phase : phases) {
        for (const Break& fault : kBreaks) {
            const bool sayable = phase.before == std::string() || fault.text == std::string();
            if (sayable) {
                cases.push_back({phase, fault});
            }
        }
    }
    return cases;
}

class BrokenConnectionTest : public EnduranceTest, public testing::WithParamInterface<Case> {
protected:
    Wire OverWire() const { return GetParam().phase.wire; }

    /// A server that breaks its first connection as the test's parameter says.
    void ServeAndBreak() {
        const auto& [phase, fault] = GetParam();
        Serve().on(phase.step).connection(1).occurrence(phase.occurrence).reply(fault.reply(phase.before));
    }
};

// --- While the connection is made

using BrokenWhileConnectingTest = BrokenConnectionTest;

TEST_P(BrokenWhileConnectingTest, TheJobFailsForWantOfAConnectionAndTheNextOneGetsANewOne) {
    ServeAndBreak();
    Start();
    ExpectFailed(Deliver(OverWire()), kNoConnection);
    EXPECT_TRUE(m_server->waitForOpenConnections(0)) << "the broken connection is closed at once";
    ExpectTheNextJobIsDeliveredOver(2, OverWire());
}

INSTANTIATE_TEST_SUITE_P(Faults, BrokenWhileConnectingTest,
                         testing::ValuesIn(EachBreakAt({
                             {"BeforeTheGreeting", Wire::Clear, step::Greeting, 1},
                             {"AtEhlo", Wire::Clear, "EHLO", 1},
                             {"AtAuth", Wire::Clear, "AUTH", 1},
                             {"AtTheCredentials", Wire::Clear, step::AuthPlain, 1},
                             {"AtStartTls", Wire::Tls, "STARTTLS", 1},
                             {"InTheHandshake", Wire::Tls, "STARTTLS", 1, "220 go ahead\r\n"},
                             {"AtEhloInsideTls", Wire::Tls, "EHLO", 2},
                             {"AtAuthInsideTls", Wire::Tls, "AUTH", 1},
                             {"AtTheCredentialsInsideTls", Wire::Tls, step::AuthPlain, 1},
                         })),
                         testing::PrintToStringParamName());

// --- While a mail is sent

using BrokenWhileSendingTest = BrokenConnectionTest;

TEST_P(BrokenWhileSendingTest, TheJobFailsWithWhatTheSocketOrTheServerSaysAndTheNextOneGetsANewConnection) {
    ServeAndBreak();
    Start();
    ExpectFailed(Deliver(OverWire()), GetParam().fault.reason(OverWire()));
    ExpectTheNextJobIsDeliveredOver(2, OverWire());
    EXPECT_TRUE(m_server->waitForOpenConnections(1)) << "the broken connection is closed by its next use";
}

INSTANTIATE_TEST_SUITE_P(Faults, BrokenWhileSendingTest,
                         testing::ValuesIn(EachBreakAt({
                             {"AtMail", Wire::Clear, "MAIL", 1},
                             {"AtRcpt", Wire::Clear, "RCPT", 1},
                             {"AtData", Wire::Clear, "DATA", 1},
                             {"AtTheFinalDot", Wire::Clear, step::EndOfData, 1},
                             {"AtMailInsideTls", Wire::Tls, "MAIL", 1},
                             {"AtRcptInsideTls", Wire::Tls, "RCPT", 1},
                             {"AtDataInsideTls", Wire::Tls, "DATA", 1},
                             {"AtTheFinalDotInsideTls", Wire::Tls, step::EndOfData, 1},
                         })),
                         testing::PrintToStringParamName());

// --- While it is probed before a mail

using BrokenAtTheProbeTest = BrokenConnectionTest;

TEST_P(BrokenAtTheProbeTest, TheJobIsDeliveredOverANewConnection) {
    ServeAndBreak();
    Start();
    ExpectCompleted(Deliver(OverWire()));
    EXPECT_EQ(m_server->transactions().back().connection, 2);
    EXPECT_TRUE(m_server->waitForOpenConnections(1)) << "the broken connection is closed at once";
    ExpectTheNextJobIsDeliveredOver(2, OverWire());
}

TEST_P(BrokenAtTheProbeTest, TheJobFailsWhenTheServerTakesNoOtherConnection) {
    Serve();
    const auto& [phase, fault] = GetParam();
    Gate refusing;
    m_server->on(phase.step).connection(1).reply(fault.reply().heldBy(refusing));
    Start();
    const TestMessageFile& file = HandOver(OverWire());
    m_driver->PeriodicEvent();
    m_server->stopListening();
    refusing.open();
    EXPECT_TRUE(WaitUntilAllAreBack());
    ExpectFailed(file, kNoConnection);
}

INSTANTIATE_TEST_SUITE_P(Faults, BrokenAtTheProbeTest,
                         testing::ValuesIn(EachBreakAt({
                             {"InClear", Wire::Clear, "RSET", 1},
                             {"InsideTls", Wire::Tls, "RSET", 1},
                         })),
                         testing::PrintToStringParamName());

// --- While it is idle in the cache

using BrokenWhileIdleTest = BrokenConnectionTest;

TEST_P(BrokenWhileIdleTest, TheJobThatWasSentIsCompletedAndTheNextOneGetsANewConnection) {
    const auto& [phase, fault] = GetParam();
    const std::string accepted = "250 2.0.0 queued\r\n";
    Gate idle;
    Serve()
        .on(phase.step)
        .connection(1)
        .reply(Reply(accepted + kGoingDown).split({accepted.size()}).restHeldBy(idle).followedBy(fault.then));
    Start();
    ExpectCompleted(Deliver(OverWire()));
    idle.open();
    ASSERT_TRUE(
        m_server->waitUntil([this] { return m_server->connection().serverBytes().ends_with(kGoingDown); }));
    ExpectTheNextJobIsDeliveredOver(2, OverWire());
    EXPECT_TRUE(m_server->waitForOpenConnections(1)) << "the broken connection is closed";
}

INSTANTIATE_TEST_SUITE_P(Faults, BrokenWhileIdleTest,
                         testing::ValuesIn(EachBreakAt({
                             {"InClear", Wire::Clear, step::EndOfData, 1},
                             {"InsideTls", Wire::Tls, step::EndOfData, 1},
                         })),
                         testing::PrintToStringParamName());

// --- A connection that the server keeps open after its 421

struct KeptCase {
    const char* name;
    Wire wire;
    const char* step;
};

std::ostream& operator<<(std::ostream& out, const KeptCase& each) {
    return out << each.name;
}

class KeptAfter421Test : public EnduranceTest, public testing::WithParamInterface<KeptCase> {};

TEST_P(KeptAfter421Test, TheJobFailsWithTheServersTextAndTheNextOneGoesOverTheSameConnection) {
    Serve().on(GetParam().step).connection(1).occurrence(1).reply(kGoingDown);
    Start();
    ExpectFailed(Deliver(GetParam().wire), kGoingDownReason);
    ExpectTheNextJobIsDeliveredOver(1, GetParam().wire);
}

INSTANTIATE_TEST_SUITE_P(Faults, KeptAfter421Test,
                         testing::Values(KeptCase{"AtMail", Wire::Clear, "MAIL"},
                                         KeptCase{"AtRcpt", Wire::Clear, "RCPT"},
                                         KeptCase{"AtData", Wire::Clear, "DATA"},
                                         KeptCase{"AtTheFinalDot", Wire::Clear, step::EndOfData},
                                         KeptCase{"AtMailInsideTls", Wire::Tls, "MAIL"},
                                         KeptCase{"AtTheFinalDotInsideTls", Wire::Tls, step::EndOfData}),
                         testing::PrintToStringParamName());

using ConnectionFaultsTest = EnduranceTest;

TEST_F(ConnectionFaultsTest, A421AtEhloIsFollowedByHeloAndTheJobIsDelivered) {
    Serve().on("EHLO").connection(1).reply(kGoingDown);
    Start();
    ExpectCompleted(Deliver(Wire::Clear));
    ExpectTheNextJobIsDeliveredOver(1, Wire::Clear);
}

TEST_F(ConnectionFaultsTest, A421InTheGreetingIsAFailedConnectionAlsoWhenTheServerKeepsIt) {
    Serve().on(step::Greeting).connection(1).reply(kGoingDown);
    Start();
    ExpectFailed(Deliver(Wire::Clear), kNoConnection);
    EXPECT_TRUE(m_server->waitForOpenConnections(0));
    ExpectTheNextJobIsDeliveredOver(2, Wire::Clear);
}

TEST_F(ConnectionFaultsTest, A421AtTheProbeReplacesTheConnectionAlsoWhenTheServerKeepsIt) {
    Serve().on("RSET").connection(1).reply(kGoingDown);
    Start();
    ExpectCompleted(Deliver(Wire::Clear));
    EXPECT_EQ(m_server->transactions().back().connection, 2);
    EXPECT_TRUE(m_server->waitForOpenConnections(1));
}

}  // namespace
