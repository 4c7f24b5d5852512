#include <gmock/gmock.h>

#include "CommandFixture.h"
#include "Doorbell.h"

namespace kvhosttest {
namespace {

using kvhost::JobState;
using testing::EndsWith;
using testing::HasSubstr;

using OperationCommandTest = CommandTest;

TEST_F(OperationCommandTest, AFailedJobIsRetried) {
    SubmitFailed("a", "550 no");
    EXPECT_EQ(Run("retry", {"a"}), 0);
    EXPECT_EQ(Output(), "a: retried\n");
    EXPECT_EQ(StateOf("a"), JobState::Queued);
    ExpectSound();
}

TEST_F(OperationCommandTest, AJobIsHeldReleasedAndCancelled) {
    Submit(Mail("a"));
    EXPECT_EQ(Run("hold", {"a"}), 0);
    EXPECT_EQ(Output(), "a: held\n");
    EXPECT_EQ(StateOf("a"), JobState::Held);
    EXPECT_EQ(Run("release", {"a"}), 0);
    EXPECT_EQ(Output(), "a: released\n");
    EXPECT_EQ(StateOf("a"), JobState::Queued);
    EXPECT_EQ(Run("cancel", {"a"}), 0);
    EXPECT_EQ(Output(), "a: cancelled\n");
    EXPECT_EQ(StateOf("a"), JobState::Cancelled);
}

TEST_F(OperationCommandTest, EachNameHasALineAndOneThatIsNotDoneMakesTheStatusOne) {
    Submit(Mail("a"));
    EXPECT_EQ(Run("hold", {"a"}), 0);
    SubmitFailed("b", "550 no");
    EXPECT_EQ(Run("retry", {"a", "b", "nobody"}), 1);
    EXPECT_EQ(Output(),
              "a: not retried: it is held; only a failed, in doubt, cancelled or queued job can be retried\n"
              "b: retried\n"
              "nobody: not retried: there is no such job\n"
              "1 retried, 2 not\n");
}

TEST_F(OperationCommandTest, NamesAreReadFromStandardInput) {
    Submit(Mail("a"));
    Submit(Mail("b"));
    Submit(Mail("c"));
    m_input.standardInput = "a\r\n\nb";
    EXPECT_EQ(Run("hold", {"-", "c"}), 0);
    EXPECT_EQ(Output(), "a: held\nb: held\nc: held\n3 held, 0 not\n");
}

TEST_F(OperationCommandTest, NoNameOnStandardInputIsNothingToDo) {
    EXPECT_EQ(Run("hold", {"-"}), 0);
    EXPECT_EQ(Output(), "0 held, 0 not\n");
}

TEST_F(OperationCommandTest, AllJobsOfAStateAndCarrierAreTakenInPortions) {
    std::vector<kvhost::Submission> mails;
    for (int i = 0; i < 1201; ++i) {  // more than two portions
        mails.push_back(Mail("job-" + std::to_string(i), i == 600 ? "west" : "east"));
    }
    kvhost::JobIntake(m_store).Submit(mails, Now());
    EXPECT_EQ(Run("hold", {"--all", "--state", "queued", "--carrier", "east"}), 0);
    EXPECT_THAT(Output(), EndsWith("job-0: held\n1200 held, 0 not\n"));
    EXPECT_EQ(kvhost::JobViews(m_store).Count(),
              (kvhost::StateCounts{{JobState::Queued, 1}, {JobState::Held, 1200}}));
    EXPECT_EQ(StateOf("job-600"), JobState::Queued);
    ExpectSound();
}

TEST_F(OperationCommandTest, AllJobsOfAStateTakesEveryCarrier) {
    SubmitFailed("a", "no", "east");
    SubmitFailed("b", "no", "west");
    EXPECT_EQ(Run("retry", {"--all", "--state", "failed"}), 0);
    EXPECT_EQ(Output(), "b: retried\na: retried\n2 retried, 0 not\n");
    EXPECT_EQ(Run("retry", {"--all", "--state", "queued"}), 0);
    EXPECT_EQ(Output(), "b: retried\na: retried\n2 retried, 0 not\n");
}

TEST_F(OperationCommandTest, AllNeedsAStateThatTheOperationIsFor) {
    Submit(Mail("a"));
    EXPECT_EQ(Run("retry", {"--all"}), 2);
    EXPECT_EQ(Error(),
              "kvhost: retry: --all needs --state with one of failed, in-doubt, cancelled or queued\n");
    EXPECT_EQ(Run("retry", {"--all", "--state", "held"}), 2);
    EXPECT_EQ(Run("release", {"--all", "--state", "failed"}), 2);
    EXPECT_EQ(Error(), "kvhost: release: --all needs --state with one of held\n");
    EXPECT_EQ(StateOf("a"), JobState::Queued);
}

TEST_F(OperationCommandTest, NamesAndAllExcludeEachOther) {
    Submit(Mail("a"));
    EXPECT_EQ(Run("cancel", {"a", "--all", "--state", "queued"}), 2);
    EXPECT_EQ(Error(), "kvhost: cancel: expected either names of jobs or --all with --state\n");
    EXPECT_EQ(Run("cancel"), 2);
    EXPECT_EQ(Run("cancel", {"a", "--state", "queued"}), 2);
    EXPECT_THAT(Error(), HasSubstr("add --all, or leave them out"));
    EXPECT_EQ(StateOf("a"), JobState::Queued);
}

TEST_F(OperationCommandTest, TheRunningHostIsWoken) {
    kvhost::Doorbell bell(m_dir.path());
    SubmitFailed("a", "no");
    EXPECT_EQ(Run("retry", {"a"}), 0);
    EXPECT_TRUE(bell.Answer());
}

TEST_F(OperationCommandTest, AStoreWithARunningHostIsChanged) {
    Submit(Mail("a"));
    Ledger().BeginAttempts({KeyOf("a")}, Now());
    EXPECT_EQ(Run("cancel", {"a"}), 1);
    EXPECT_EQ(Output(),
              "a: not cancelled: it is handed over; only a queued, held or in doubt job can be cancelled\n");
    Submit(Mail("b"));
    EXPECT_EQ(Run("cancel", {"b"}), 0);
}

TEST_F(OperationCommandTest, JsonTellsEachJobAndTheFigures) {
    Submit(Mail("a"));
    EXPECT_EQ(Run("hold", {"a", "nobody", "--json"}), 1);
    EXPECT_EQ(Json(), nlohmann::json::parse(R"({
        "results": [{"job": "a", "done": true, "why": ""},
                    {"job": "nobody", "done": false, "why": "there is no such job"}],
        "summary": {"done": 1, "not_done": 1}})"));
}

TEST_F(OperationCommandTest, NamesSteerNoTerminal) {
    EXPECT_EQ(Run("hold", {"a\x1b[2J"}), 1);
    EXPECT_EQ(Output(), "a<ESC>[2J: not held: there is no such job\n");
}

}  // namespace
}  // namespace kvhosttest
