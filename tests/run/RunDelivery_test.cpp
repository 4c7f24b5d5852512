#include "RunFixture.h"
#include "ScriptedSmtpServer.h"
#include "TestPorts.h"

namespace kvruntest {
namespace {

using kvhost::JobState;

class RunDeliveryTest : public RunTest {
protected:
    RunDeliveryTest() { AddCarrier("east", m_server.address()); }

    kvtest::ScriptedSmtpServer m_server;
};

TEST_F(RunDeliveryTest, AJobSubmittedWhileTheHostRunsIsDelivered) {
    Start();
    Submit({Mail("a", "east")});
    EXPECT_TRUE(WaitForState("a", JobState::Delivered)) << Host().Error();
    EXPECT_EQ(Stop(), 0);
    const auto transactions = m_server.transactions();
    ASSERT_EQ(transactions.size(), 1U) << m_server.toText();
    EXPECT_THAT(transactions[0].recipientAddresses(), testing::ElementsAre("a@example.org"));
    const kvhost::JobHistory history = History("a");
    ASSERT_EQ(history.attempts.size(), 1U);
    EXPECT_EQ(history.attempts[0].outcome, kvhost::AttemptOutcome::Delivered);
    ExpectSound();
}

}  // namespace
}  // namespace kvruntest
