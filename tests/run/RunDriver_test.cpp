// Drivers that do odd things: the daemon as a process with a driver that does what the jobs say.
#include "RunFixture.h"
#include "ScriptedSmtpServer.h"

namespace kvruntest {
namespace {

using kvhost::JobState;
using testing::HasSubstr;

class RunDriverTest : public RunTest {
protected:
    RunDriverTest() {
        AddCarrier("east", m_server.address());
        Configure("[retry]\nfirst = \"50ms\"\nlongest = \"50ms\"\nunclear_attempts = 2\n");
    }

    /// Runs the one job to its end.
    void RunJob(const std::string& text, JobState end) {
        Start(kFakeDriver);
        Submit({Mail("a", "east", text)});
        EXPECT_TRUE(WaitForState("a", end)) << Host().Error();
        EXPECT_EQ(Stop(), 0);
        ExpectSound();
    }

    kvtest::ScriptedSmtpServer m_server;  ///< nothing is sent to it; it is there to be found alive
};

TEST_F(RunDriverTest, AJobThatTheDriverDoesNotAcceptFailsAfterItsAttempts) {
    RunJob("reject", JobState::Failed);
    EXPECT_EQ(History("a").attempts.size(), 2U);
    EXPECT_EQ(History("a").job.reason, "the driver did not accept it");
}

TEST_F(RunDriverTest, AJobThatTheDriverThrowsAtFailsAfterItsAttempts) {
    RunJob("throw", JobState::Failed);
    EXPECT_EQ(History("a").attempts.size(), 2U);
    EXPECT_EQ(History("a").job.reason, "the driver threw out of SendAMessage: out of paper");
}

TEST_F(RunDriverTest, AFileThatComesBackFromAnotherThreadCounts) {
    RunJob("thread", JobState::Delivered);
}

TEST_F(RunDriverTest, AFileThatComesBackToBeDeletedHasFailed) {
    RunJob("deletion", JobState::Failed);
    EXPECT_EQ(History("a").job.reason, "the driver handed it back to be deleted");
}

TEST_F(RunDriverTest, AFileThatComesBackWithAnUnknownStatusHasFailed) {
    RunJob("status 9", JobState::Failed);
    EXPECT_THAT(History("a").job.reason, HasSubstr("with the status 9"));
}

TEST_F(RunDriverTest, AFileThatComesBackTwiceHasOneOutcome) {
    RunJob("twice", JobState::Delivered);
    EXPECT_EQ(History("a").attempts.size(), 1U);
    EXPECT_THAT(Host().Error(), HasSubstr("the driver handed back 1_1 although it had ended before"));
}

TEST_F(RunDriverTest, AFailureOfTheServerIsTakenWithItsReason) {
    RunJob("fail 5.1.1 no such user", JobState::Failed);
    EXPECT_EQ(History("a").attempts.size(), 1U);
    EXPECT_EQ(History("a").job.reason, "5.1.1 no such user");
}

}  // namespace
}  // namespace kvruntest
