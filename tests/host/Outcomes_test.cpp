#include "Outcomes.h"

#include <gtest/gtest.h>

namespace kvhost {
namespace {

Outcome Open(const std::string& job) {
    return {job, "pager", "a@b", OutcomeStatus::Waiting, ""};
}

TEST(OutcomesTest, AnAcceptedEntryIsUnderWayUntilItEnds) {
    Outcomes outcomes;
    const std::size_t index = outcomes.Add(Open("a"));
    outcomes.NoteAccepted(index);
    EXPECT_EQ(outcomes.Count().Of(OutcomeStatus::UnderWay), 1U);
    EXPECT_TRUE(outcomes.NoteEnded(index, OutcomeStatus::Failed, "no such user"));
    EXPECT_EQ(outcomes.All()[0].status, OutcomeStatus::Failed);
    EXPECT_EQ(outcomes.All()[0].reason, "no such user");
    EXPECT_EQ(outcomes.Count().Of(OutcomeStatus::UnderWay), 0U);
}

TEST(OutcomesTest, AnEntryThatComesBackBeforeItsAcceptanceIsNotedStaysEnded) {
    Outcomes outcomes;
    const std::size_t index = outcomes.Add(Open("a"));
    outcomes.NoteEnded(index, OutcomeStatus::Delivered, "");
    outcomes.NoteAccepted(index);
    EXPECT_EQ(outcomes.All()[0].status, OutcomeStatus::Delivered);
}

TEST(OutcomesTest, AnEntryKeepsItsFirstEnding) {
    Outcomes outcomes;
    const std::size_t index = outcomes.Add(Open("a"));
    EXPECT_TRUE(outcomes.NoteEnded(index, OutcomeStatus::Delivered, ""));
    EXPECT_FALSE(outcomes.NoteEnded(index, OutcomeStatus::Failed, "late"));
    EXPECT_EQ(outcomes.All()[0].status, OutcomeStatus::Delivered);
    EXPECT_EQ(outcomes.Count().Of(OutcomeStatus::Failed), 0U);
}

TEST(OutcomesTest, ClosingEndsWhatIsOpen) {
    Outcomes outcomes;
    outcomes.Add(Open("waits"));
    outcomes.NoteAccepted(outcomes.Add(Open("is under way")));
    outcomes.NoteEnded(outcomes.Add(Open("is done")), OutcomeStatus::Delivered, "");
    outcomes.Close();
    EXPECT_EQ(outcomes.All()[0].status, OutcomeStatus::NotSent);
    EXPECT_EQ(outcomes.All()[0].reason, "the command stopped before this was handed over");
    EXPECT_EQ(outcomes.All()[1].status, OutcomeStatus::NotReturned);
    EXPECT_EQ(outcomes.All()[1].reason, "the driver did not hand it back");
    EXPECT_EQ(outcomes.All()[2].status, OutcomeStatus::Delivered);
}

Tally TallyOf(OutcomeStatus one, OutcomeStatus other) {
    Tally tally;
    ++tally.Of(one);
    ++tally.Of(other);
    return tally;
}

TEST(OutcomesTest, TheExitStatusIsZeroWhenAllWasDelivered) {
    EXPECT_EQ(ExitStatus(TallyOf(OutcomeStatus::Delivered, OutcomeStatus::Delivered), false), 0);
    EXPECT_EQ(ExitStatus(Tally(), false), 0);
}

TEST(OutcomesTest, TheExitStatusIsOneWhenSomethingWasNotDelivered) {
    for (const auto status : {OutcomeStatus::Failed, OutcomeStatus::Rejected, OutcomeStatus::NotReturned,
                              OutcomeStatus::NotSent}) {
        EXPECT_EQ(ExitStatus(TallyOf(OutcomeStatus::Delivered, status), false), 1) << StatusName(status);
    }
}

TEST(OutcomesTest, TheExitStatusIsTwoWhenInputWasRefused) {
    EXPECT_EQ(ExitStatus(TallyOf(OutcomeStatus::Delivered, OutcomeStatus::Refused), false), 2);
    EXPECT_EQ(ExitStatus(TallyOf(OutcomeStatus::Failed, OutcomeStatus::Refused), false), 2);
    EXPECT_EQ(ExitStatus(TallyOf(OutcomeStatus::Delivered, OutcomeStatus::Delivered), true), 2);
}

TEST(OutcomesTest, TheSummaryNamesWhatThereIs) {
    EXPECT_EQ(Summarise(TallyOf(OutcomeStatus::Failed, OutcomeStatus::Delivered)), "1 delivered, 1 failed");
    EXPECT_EQ(Summarise(TallyOf(OutcomeStatus::NotReturned, OutcomeStatus::NotReturned)), "2 not returned");
    EXPECT_EQ(Summarise(Tally()), "no jobs");
}

}  // namespace
}  // namespace kvhost
