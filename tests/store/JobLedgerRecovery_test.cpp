#include "JobLedger.h"
#include "StoreFixture.h"

namespace kvhost {
namespace {

/// What a start makes of the jobs that the run before left with the driver.
class JobLedgerRecoveryTest : public kvhosttest::StoreTest {
protected:
    /// A run that hands over all that is due and never gets to its end.
    void CrashWithEverythingHandedOver(DoubtPolicy policy = DoubtPolicy::Retry) {
        JobLedger ledger(m_store);
        Start(ledger, policy);
        ledger.BeginAttempts(ledger.Due("east", Now(), 100), Now());
    }

    Recovery Restart(DoubtPolicy policy) {
        JobLedger ledger(m_store);
        return Start(ledger, policy);
    }
};

TEST_F(JobLedgerRecoveryTest, TheFirstStartFindsNothing) {
    const Recovery recovery = Restart(DoubtPolicy::Retry);
    EXPECT_FALSE(recovery.hasCrashed);
    EXPECT_EQ(recovery.retried + recovery.held + recovery.failed + recovery.quarantined, 0);
}

TEST_F(JobLedgerRecoveryTest, WhatWasNotHandedOverGoesOut) {
    CrashWithEverythingHandedOver();
    Submit(Mail("a"));
    EXPECT_TRUE(Restart(DoubtPolicy::Fail).hasCrashed);
    EXPECT_EQ(StateOf("a"), JobState::Queued);
    EXPECT_EQ(Job("a").crashes, 0);
}

TEST_F(JobLedgerRecoveryTest, HoldLeavesTheJobInDoubt) {
    Submit(Mail("a"));
    CrashWithEverythingHandedOver();
    EXPECT_EQ(Restart(DoubtPolicy::Hold).held, 1);
    const JobHistory history = History("a");
    EXPECT_EQ(history.job.state, JobState::InDoubt);
    EXPECT_EQ(history.job.decision, "in doubt: find out whether it arrived, then retry or cancel it");
    EXPECT_EQ(history.attempts.at(0).outcome, AttemptOutcome::InDoubt);
    ExpectSound();
}

TEST_F(JobLedgerRecoveryTest, RetryQueuesTheJobAndLeavesTheDoubtInItsHistory) {
    Submit(Mail("a"));
    CrashWithEverythingHandedOver();
    EXPECT_EQ(Restart(DoubtPolicy::Retry).retried, 1);
    const JobHistory history = History("a");
    EXPECT_EQ(history.job.state, JobState::Queued);
    EXPECT_EQ(history.job.due, Now());
    EXPECT_EQ(history.attempts.at(0).outcome, AttemptOutcome::InDoubt);
    EXPECT_EQ(history.attempts.at(0).decision,
              "sent again: the carrier's on_doubt is \"retry\"; the recipient may get it twice");
    ExpectSound();
}

TEST_F(JobLedgerRecoveryTest, FailEndsTheJob) {
    Submit(Mail("a"));
    CrashWithEverythingHandedOver();
    EXPECT_EQ(Restart(DoubtPolicy::Fail).failed, 1);
    EXPECT_EQ(StateOf("a"), JobState::Failed);
    EXPECT_EQ(History("a").attempts.at(0).outcome, AttemptOutcome::InDoubt);
    ExpectSound();
}

TEST_F(JobLedgerRecoveryTest, EachCarrierHasItsOwnPolicy) {
    Submit(Mail("a", "east"));
    Submit(Mail("b", "west"));
    JobLedger crashed(m_store);
    Start(crashed);
    crashed.BeginAttempts({KeyOf("a"), KeyOf("b")}, Now());
    JobLedger next(m_store);
    next.BeginRun(Now(), [](const std::string& carrier) {
        return carrier == "east" ? DoubtPolicy::Retry : DoubtPolicy::Fail;
    });
    EXPECT_EQ(StateOf("a"), JobState::Queued);
    EXPECT_EQ(StateOf("b"), JobState::Failed);
}

TEST_F(JobLedgerRecoveryTest, AJobUnderWayInThreeCrashesIsHeld) {
    Submit(Mail("a"));
    for (int crash = 1; crash <= 3; ++crash) {
        CrashWithEverythingHandedOver();
        EXPECT_EQ(StateOf("a"), JobState::HandedOver) << crash;
    }
    const Recovery recovery = Restart(DoubtPolicy::Retry);
    EXPECT_EQ(recovery.quarantined, 1);
    EXPECT_EQ(recovery.retried, 0);
    EXPECT_EQ(StateOf("a"), JobState::Held);
    EXPECT_EQ(Job("a").crashes, 3);
    EXPECT_EQ(Job("a").decision,
              "held: it was with the driver in 3 crashes of the host; look at it, then release or cancel it");
    ExpectSound();
}

TEST_F(JobLedgerRecoveryTest, AReleaseGivesAQuarantinedJobOneMoreTry) {
    Submit(Mail("a"));
    for (int crash = 1; crash <= 3; ++crash) {
        CrashWithEverythingHandedOver();
    }
    Restart(DoubtPolicy::Retry);
    JobOperations(m_store).Release("a", Now());
    CrashWithEverythingHandedOver();
    EXPECT_EQ(Restart(DoubtPolicy::Retry).quarantined, 1);
}

TEST_F(JobLedgerRecoveryTest, WhatAnOrderlyStopLeftBehindIsInDoubtAndNoCrash) {
    Submit(Mail("a"));
    JobLedger stopped(m_store);
    Start(stopped);
    stopped.BeginAttempts({KeyOf("a")}, Now());
    stopped.EndRun(Now());
    const Recovery recovery = Restart(DoubtPolicy::Retry);
    EXPECT_FALSE(recovery.hasCrashed);
    EXPECT_EQ(recovery.retried, 1);
    EXPECT_EQ(Job("a").crashes, 0);
    EXPECT_EQ(History("a").attempts.at(0).outcome, AttemptOutcome::InDoubt);
}

TEST_F(JobLedgerRecoveryTest, AnOutcomeThatWasWrittenIsNotTouchedByTheNextStart) {
    Submit(Mail("a"));
    JobLedger crashed(m_store);
    Start(crashed);
    crashed.BeginAttempts({KeyOf("a")}, Now());
    crashed.EndAttempts({Delivered(KeyOf("a"))}, Now());
    EXPECT_TRUE(Restart(DoubtPolicy::Retry).hasCrashed);
    EXPECT_EQ(StateOf("a"), JobState::Delivered);
    EXPECT_EQ(Job("a").crashes, 0);
}

}  // namespace
}  // namespace kvhost
