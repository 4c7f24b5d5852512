#include "JobLedger.h"

#include "StoreFixture.h"

namespace kvhost {
namespace {

using std::chrono::milliseconds;
using std::chrono::minutes;

class JobLedgerTest : public kvhosttest::StoreTest {
protected:
    JobLedgerTest() { Start(m_ledger); }

    std::vector<std::string> DueIds(const std::string& carrier = "east", int limit = 10) {
        std::vector<std::string> ids;
        for (const StoredJob& job : m_ledger.BeginAttempts(m_ledger.Due(carrier, Now(), limit), Now())) {
            ids.push_back(job.id);
        }
        return ids;
    }

    JobLedger m_ledger{m_store};
};

TEST_F(JobLedgerTest, OnlyDueJobsOfTheCarrierAreDueInTheOrderOfTheirTime) {
    Submission late = Mail("late");
    late.notBefore = Now() + minutes(1);
    Submit(late);
    Submit(Mail("other", "west"));
    Submit(Mail("first"));
    Submit(Mail("second"));
    EXPECT_EQ(DueIds(), (std::vector<std::string>{"first", "second"}));
    Later(minutes(1));
    EXPECT_EQ(DueIds(), std::vector<std::string>{"late"});
    EXPECT_EQ(DueIds("west"), std::vector<std::string>{"other"});
}

TEST_F(JobLedgerTest, UrgentJobsAreDueBeforeOlderOnes) {
    Submit(Mail("old"));
    Later(milliseconds(5));
    Submission alarm = Mail("alarm");
    alarm.isUrgent = true;
    Submit(alarm);
    EXPECT_EQ(DueIds(), (std::vector<std::string>{"alarm", "old"}));
}

TEST_F(JobLedgerTest, NoMoreAreDueThanAskedFor) {
    Submission alarm = Mail("alarm");
    alarm.isUrgent = true;
    Submit(alarm);
    Submit(Mail("a"));
    Submit(Mail("b"));
    EXPECT_EQ(m_ledger.Due("east", Now(), 2).size(), 2U);
    EXPECT_EQ(m_ledger.Due("east", Now(), 1), std::vector{KeyOf("alarm")});
    EXPECT_TRUE(m_ledger.Due("east", Now(), 0).empty());
}

TEST_F(JobLedgerTest, TheNextDueMomentIsThatOfTheEarliestQueuedJobOfAnyCarrier) {
    EXPECT_EQ(m_ledger.NextDue(), std::nullopt);
    Submission late = Mail("late");
    late.notBefore = Now() + minutes(3);
    Submit(late);
    Submission sooner = Mail("sooner", "west");
    sooner.notBefore = Now() + minutes(2);
    sooner.isUrgent = true;
    Submit(sooner);
    EXPECT_EQ(m_ledger.NextDue(), Now() + minutes(2));
    EXPECT_EQ(m_ledger.CarriersWithQueuedJobs(), (std::vector<std::string>{"east", "west"}));
}

TEST_F(JobLedgerTest, AnAttemptIsOnDiskBeforeTheHandOver) {
    Submit(Mail("a"));
    const std::vector<StoredJob> taken = m_ledger.BeginAttempts({KeyOf("a")}, Now());
    ASSERT_EQ(taken.size(), 1U);
    EXPECT_EQ(taken[0].state, JobState::HandedOver);
    EXPECT_EQ(taken[0].attempts, 1);
    StoreDatabase other(m_dir.path(), StoreDatabase::Access::Existing);
    const JobHistory history = JobViews(other).Show("a").at(0);
    EXPECT_EQ(history.job.state, JobState::HandedOver);
    ASSERT_EQ(history.attempts.size(), 1U);
    EXPECT_EQ(history.attempts[0].number, 1);
    EXPECT_EQ(history.attempts[0].begun, Now());
    EXPECT_EQ(history.attempts[0].ended, std::nullopt);
    EXPECT_EQ(history.attempts[0].outcome, std::nullopt);
}

TEST_F(JobLedgerTest, AJobThatAnOperatorTookBackMeanwhileIsNotHandedOver) {
    Submit(Mail("a"));
    Submit(Mail("b"));
    const std::vector<std::int64_t> due = m_ledger.Due("east", Now(), 10);
    JobOperations(m_store).Cancel("a", Now());
    const std::vector<StoredJob> taken = m_ledger.BeginAttempts(due, Now());
    ASSERT_EQ(taken.size(), 1U);
    EXPECT_EQ(taken[0].id, "b");
    EXPECT_EQ(StateOf("a"), JobState::Cancelled);
}

TEST_F(JobLedgerTest, ADeliveryEndsTheAttemptAndTheJobTogether) {
    Submit(Mail("a"));
    DueIds();
    Later(milliseconds(70));
    EXPECT_EQ(m_ledger.EndAttempts({Delivered(KeyOf("a"))}, Now()), 1);
    const JobHistory history = History("a");
    EXPECT_EQ(history.job.state, JobState::Delivered);
    EXPECT_EQ(history.job.changed, Now());
    EXPECT_EQ(history.attempts.at(0).outcome, AttemptOutcome::Delivered);
    EXPECT_EQ(history.attempts.at(0).ended, Now());
    ExpectSound();
}

TEST_F(JobLedgerTest, AFailureKeepsItsReasonAndTheDecision) {
    Submit(Mail("a"));
    DueIds();
    m_ledger.EndAttempts({Failed(KeyOf("a"), "550 no such user")}, Now());
    const JobHistory history = History("a");
    EXPECT_EQ(history.job.state, JobState::Failed);
    EXPECT_EQ(history.job.reason, "550 no such user");
    EXPECT_EQ(history.job.decision, "final");
    EXPECT_EQ(history.attempts.at(0).reason, "550 no such user");
    EXPECT_EQ(history.attempts.at(0).decision, "final");
}

TEST_F(JobLedgerTest, ARetryIsDueAtItsTimeAndGetsTheNextNumber) {
    Submit(Mail("a"));
    DueIds();
    m_ledger.EndAttempts({RetryAt(KeyOf("a"), Now() + minutes(1))}, Now());
    EXPECT_TRUE(DueIds().empty());
    EXPECT_EQ(m_ledger.NextDue(), Now() + minutes(1));
    Later(minutes(1));
    EXPECT_EQ(DueIds(), std::vector<std::string>{"a"});
    m_ledger.EndAttempts({Delivered(KeyOf("a"))}, Now());
    const JobHistory history = History("a");
    ASSERT_EQ(history.attempts.size(), 2U);
    EXPECT_EQ(history.attempts[0].outcome, AttemptOutcome::Failed);
    EXPECT_EQ(history.attempts[1].number, 2);
    ExpectSound();
}

TEST_F(JobLedgerTest, TheFirstOutcomeOfAnAttemptStands) {
    Submit(Mail("a"));
    DueIds();
    const std::int64_t key = KeyOf("a");
    EXPECT_EQ(m_ledger.EndAttempts({Delivered(key), Failed(key, "late")}, Now()), 1);
    EXPECT_EQ(m_ledger.EndAttempts({Failed(key, "later still")}, Now()), 0);
    EXPECT_EQ(StateOf("a"), JobState::Delivered);
    EXPECT_EQ(Job("a").reason, "");
}

TEST_F(JobLedgerTest, AQueuedJobPastItsDeadlineFailsAndSaysSo) {
    Submission mail = Mail("a");
    mail.deadline = Now() + minutes(1);
    Submit(mail);
    Submit(Mail("b"));
    EXPECT_TRUE(m_ledger.ExpireOverdue(Now(), 10).empty());
    Later(minutes(1));
    const std::vector<ExpiredJob> expired = m_ledger.ExpireOverdue(Now(), 10);
    ASSERT_EQ(expired.size(), 1U);
    EXPECT_EQ(expired[0].id, "a");
    EXPECT_EQ(expired[0].carrier, Job("a").carrier);
    EXPECT_EQ(expired[0].recipient, Job("a").recipient);
    EXPECT_EQ(expired[0].why, "the deadline passed before it was delivered");
    EXPECT_EQ(StateOf("a"), JobState::Failed);
    EXPECT_EQ(Job("a").decision, "failed: the deadline passed before it was delivered");
    EXPECT_EQ(StateOf("b"), JobState::Queued);
}

TEST_F(JobLedgerTest, TheContentIsWhatWasSubmitted) {
    Submission mail = Mail("a");
    mail.attachments = {{"plan.pdf", std::string(64, 'a'), 7}};
    Submit(mail);
    const JobContent content = m_ledger.Content(KeyOf("a"));
    EXPECT_EQ(content.subject, "Boiler");
    EXPECT_EQ(content.text, "The boiler is cold.");
    ASSERT_EQ(content.attachments.size(), 1U);
    EXPECT_EQ(content.attachments[0].name, "plan.pdf");
}

}  // namespace
}  // namespace kvhost
