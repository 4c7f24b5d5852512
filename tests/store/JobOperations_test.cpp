#include "JobOperations.h"

#include "StoreFixture.h"

namespace kvhost {
namespace {

using std::chrono::minutes;

class JobOperationsTest : public kvhosttest::StoreTest {
protected:
    JobOperationsTest() { Start(m_ledger); }

    void HandOver(const std::string& id) { m_ledger.BeginAttempts({KeyOf(id)}, Now()); }
    void Fail(const std::string& id) {
        HandOver(id);
        m_ledger.EndAttempts({Failed(KeyOf(id), "550 no such user")}, Now());
    }
    void Deliver(const std::string& id) {
        HandOver(id);
        m_ledger.EndAttempts({Delivered(KeyOf(id))}, Now());
    }
    static void ExpectDone(const std::vector<OperationResult>& results) {
        ASSERT_FALSE(results.empty());
        for (const OperationResult& result : results) {
            EXPECT_TRUE(result.isDone) << result.id << ": " << result.why;
        }
    }
    static void ExpectRefused(const std::vector<OperationResult>& results, const std::string& why) {
        ASSERT_EQ(results.size(), 1U);
        EXPECT_FALSE(results[0].isDone);
        EXPECT_EQ(results[0].why, why);
    }

    JobLedger m_ledger{m_store};
    JobOperations m_operations{m_store};
};

TEST_F(JobOperationsTest, AFailedJobIsQueuedAgainAtOnceWithoutItsDeadline) {
    Submission mail = Mail("a");
    mail.deadline = Now() + minutes(1);
    Submit(mail);
    Fail("a");
    Later(minutes(5));
    ExpectDone(m_operations.Retry("a", Now()));
    EXPECT_EQ(StateOf("a"), JobState::Queued);
    EXPECT_EQ(Job("a").due, Now());
    EXPECT_EQ(Job("a").deadline, std::nullopt);
    EXPECT_TRUE(m_ledger.ExpireOverdue(Now(), 10).empty());
    HandOver("a");
    EXPECT_EQ(Job("a").attempts, 2);
    m_ledger.EndAttempts({Delivered(KeyOf("a"))}, Now());
    ExpectSound();
}

TEST_F(JobOperationsTest, AQueuedJobThatIsRetriedIsDueAtOnceAndKeepsItsDeadline) {
    Submission mail = Mail("a");
    mail.notBefore = Now() + minutes(5);
    mail.deadline = Now() + minutes(10);
    Submit(mail);
    ExpectDone(m_operations.Retry("a", Now()));
    EXPECT_EQ(StateOf("a"), JobState::Queued);
    EXPECT_EQ(Job("a").due, Now());
    EXPECT_EQ(Job("a").deadline, Now() + minutes(10));
    EXPECT_EQ(m_ledger.Due("east", Now(), 10).size(), 1U);
    ExpectSound();
}

TEST_F(JobOperationsTest, ADeliveredJobIsNotSentAgain) {
    Submit(Mail("a"));
    Deliver("a");
    ExpectRefused(m_operations.Retry("a", Now()),
                  "it is delivered; only a failed, in doubt, cancelled or queued job can be retried");
    EXPECT_EQ(StateOf("a"), JobState::Delivered);
}

TEST_F(JobOperationsTest, AHeldJobIsNotDueUntilItIsReleased) {
    Submit(Mail("a"));
    ExpectDone(m_operations.Hold("a", Now()));
    EXPECT_EQ(StateOf("a"), JobState::Held);
    EXPECT_TRUE(m_ledger.Due("east", Now(), 10).empty());
    ExpectDone(m_operations.Release("a", Now()));
    EXPECT_EQ(m_ledger.Due("east", Now(), 10).size(), 1U);
}

TEST_F(JobOperationsTest, AReleasedJobKeepsItsTime) {
    Submission mail = Mail("a");
    mail.notBefore = Now() + minutes(5);
    Submit(mail);
    m_operations.Hold("a", Now());
    m_operations.Release("a", Now());
    EXPECT_EQ(Job("a").due, Now() + minutes(5));
}

TEST_F(JobOperationsTest, QueuedHeldAndInDoubtJobsCanBeCancelled) {
    for (const char* id : {"queued", "held", "doubt"}) {
        Submit(Mail(id));
    }
    m_operations.Hold("held", Now());
    HandOver("doubt");
    JobLedger next(m_store);
    Start(next, DoubtPolicy::Hold);
    for (const char* id : {"queued", "held", "doubt"}) {
        ExpectDone(m_operations.Cancel(id, Now()));
        EXPECT_EQ(StateOf(id), JobState::Cancelled);
    }
    ExpectSound();
}

TEST_F(JobOperationsTest, AJobThatIsWithTheDriverIsOutOfReach) {
    Submit(Mail("a"));
    HandOver("a");
    ExpectRefused(m_operations.Cancel("a", Now()),
                  "it is handed over; only a queued, held or in doubt job can be cancelled");
    ExpectRefused(m_operations.Hold("a", Now()), "it is handed over; only a queued job can be held");
    ExpectRefused(m_operations.Retry("a", Now()),
                  "it is handed over; only a failed, in doubt, cancelled or queued job can be retried");
    EXPECT_EQ(StateOf("a"), JobState::HandedOver);
}

TEST_F(JobOperationsTest, OnlyAHeldJobIsReleased) {
    Submit(Mail("a"));
    ExpectRefused(m_operations.Release("a", Now()), "it is queued; only a held job can be released");
}

TEST_F(JobOperationsTest, AnUnknownNameIsSaidToBeUnknown) {
    ExpectRefused(m_operations.Cancel("nobody", Now()), "there is no such job");
}

TEST_F(JobOperationsTest, ASubmissionStandsForAllItsJobsAndEachAnswersForItself) {
    Submission mail = Mail("a");
    mail.recipients = {"x@example.org", "y@example.org"};
    Submit(mail);
    HandOver("a/1");
    const std::vector<OperationResult> results = m_operations.Cancel("a", Now());
    ASSERT_EQ(results.size(), 2U);
    EXPECT_FALSE(results[0].isDone);
    EXPECT_EQ(results[1].id, "a/2");
    EXPECT_TRUE(results[1].isDone);
    EXPECT_EQ(StateOf("a/2"), JobState::Cancelled);
}

TEST_F(JobOperationsTest, ManyNamesAreTakenTogetherInTheirOrder) {
    Submit(Mail("a"));
    Submit(Mail("b"));
    const std::vector<OperationResult> results =
        JobOperations(m_store).Apply(JobOperation::Hold, {"b", "nobody", "a"}, Now());
    ASSERT_EQ(results.size(), 3U);
    EXPECT_EQ(results[0].id, "b");
    EXPECT_TRUE(results[0].isDone);
    EXPECT_EQ(results[1].id, "nobody");
    EXPECT_FALSE(results[1].isDone);
    EXPECT_EQ(results[2].id, "a");
    EXPECT_TRUE(results[2].isDone);
    EXPECT_EQ(StateOf("a"), JobState::Held);
    EXPECT_EQ(StateOf("b"), JobState::Held);
}

TEST_F(JobOperationsTest, WhatAnOperatorDidIsInTheHistory) {
    Submit(Mail("a"));
    m_operations.Hold("a", Now());
    Later(minutes(1));
    m_operations.Release("a", Now());
    const JobHistory history = History("a");
    ASSERT_EQ(history.events.size(), 2U);
    EXPECT_EQ(history.events[0].text, "held by an operator");
    EXPECT_EQ(history.events[1].text, "released by an operator");
    EXPECT_EQ(history.events[1].at, Now());
    EXPECT_EQ(history.job.decision, "released by an operator");
}

TEST_F(JobOperationsTest, APurgeTakesOnlyWhatEndedBeforeTheMoment) {
    for (const char* id : {"delivered", "failed", "cancelled", "queued", "held"}) {
        Submit(Mail(id));
    }
    Deliver("delivered");
    Fail("failed");
    m_operations.Cancel("cancelled", Now());
    m_operations.Hold("held", Now());
    EXPECT_EQ(m_operations.Purge(Now(), std::nullopt, 100).jobs, 0);
    Later(minutes(1));
    Submit(Mail("fresh"));
    Deliver("fresh");
    const PurgeResult result = m_operations.Purge(Now(), std::nullopt, 100);
    EXPECT_EQ(result.jobs, 3);
    EXPECT_EQ(result.submissions, 3);
    EXPECT_TRUE(JobViews(m_store).Show("delivered").empty());
    EXPECT_EQ(StateOf("queued"), JobState::Queued);
    EXPECT_EQ(StateOf("held"), JobState::Held);
    EXPECT_EQ(StateOf("fresh"), JobState::Delivered);
    EXPECT_EQ(m_store.Connection().execAndGet("SELECT count(*) FROM attempt").getInt(), 1);
    ExpectSound();
}

TEST_F(JobOperationsTest, APurgeMayBeLimitedToAStateAndANumber) {
    for (const char* id : {"a", "b", "c"}) {
        Submit(Mail(id));
        Fail(id);
    }
    Submit(Mail("d"));
    Deliver("d");
    Later(minutes(1));
    EXPECT_EQ(m_operations.Purge(Now(), JobState::Failed, 2).jobs, 2);
    EXPECT_EQ(m_operations.Purge(Now(), JobState::Failed, 2).jobs, 1);
    EXPECT_EQ(StateOf("d"), JobState::Delivered);
}

TEST_F(JobOperationsTest, ASubmissionStaysAsLongAsOneOfItsJobs) {
    Submission mail = Mail("a");
    mail.recipients = {"x@example.org", "y@example.org"};
    Submit(mail);
    Deliver("a/1");
    Later(minutes(1));
    EXPECT_EQ(m_operations.Purge(Now(), std::nullopt, 100).submissions, 0);
    EXPECT_EQ(History("a/2").text, "The boiler is cold.");
}

}  // namespace
}  // namespace kvhost
