// What the daemon does with its store: queues, outcomes, tidying up.
#include <SQLiteCpp/Exception.h>
#include <gmock/gmock.h>

#include "Housekeeper.h"
#include "OutcomeBook.h"
#include "store/StoreFixture.h"

namespace kvhosttest {
namespace {

using kvhost::JobState;
using kvhost::Milliseconds;
using testing::SizeIs;

class RunStoreTest : public StoreTest {
protected:
    void SubmitAt(const std::string& id, const std::string& carrier, bool isUrgent,
                  std::optional<kvhost::StoreTime> notBefore) {
        kvhost::Submission mail = Mail(id, carrier);
        mail.isUrgent = isUrgent;
        mail.notBefore = notBefore;
        Submit(mail);
    }
    static kvhost::HostConfig ConfigWith(Milliseconds keep, Milliseconds lifetime) {
        kvhost::HostConfig config;
        config.run.keep = keep;
        config.carriers["east"].retry.lifetime = lifetime;
        return config;
    }
    void Deliver(const std::string& id) {
        m_ledger.BeginAttempts({KeyOf(id)}, Now());
        m_ledger.EndAttempts({Delivered(KeyOf(id))}, Now());
    }

    kvhost::JobLedger m_ledger{m_store};
    std::vector<kvhost::ExpiredJob> m_expired;
};

class RecordingObserver : public kvhost::RunObserver {
public:
    void AttemptEnded(const kvhost::AttemptReport& report) override { reports.push_back(report); }
    void StoreWritten(std::chrono::microseconds) override { ++writes; }

    std::vector<kvhost::AttemptReport> reports;
    int writes = 0;
};

TEST_F(RunStoreTest, QueuesTellWhenTheFirstJobsOfACarrierAreDue) {
    SubmitAt("a", "west", false, Now() + Milliseconds(500));
    SubmitAt("b", "west", false, Now() + Milliseconds(200));
    SubmitAt("c", "east", true, std::nullopt);
    const std::vector<kvhost::CarrierQueue> queues = m_ledger.Queues();
    ASSERT_THAT(queues, SizeIs(2));
    EXPECT_EQ(queues[0].carrier, "east");
    EXPECT_EQ(queues[0].jobs, 1);
    EXPECT_EQ(queues[0].urgentDue, Now());
    EXPECT_EQ(queues[0].ordinaryDue, std::nullopt);
    EXPECT_EQ(queues[1].carrier, "west");
    EXPECT_EQ(queues[1].jobs, 2);
    EXPECT_EQ(queues[1].urgentDue, std::nullopt);
    EXPECT_EQ(queues[1].ordinaryDue, Now() + Milliseconds(200));
}

TEST_F(RunStoreTest, TheNextDeadlineIsThatOfAQueuedJob) {
    EXPECT_EQ(m_ledger.NextDeadline(), std::nullopt);
    for (const int minutes : {9, 5}) {
        kvhost::Submission mail = Mail("a" + std::to_string(minutes));
        mail.deadline = Now() + std::chrono::minutes(minutes);
        Submit(mail);
    }
    EXPECT_EQ(m_ledger.NextDeadline(), Now() + std::chrono::minutes(5));
    Start(m_ledger);
    m_ledger.BeginAttempts({KeyOf("a5")}, Now());
    EXPECT_EQ(m_ledger.NextDeadline(), Now() + std::chrono::minutes(9));
}

TEST_F(RunStoreTest, AnOutcomeIsToldOnceAndAfterItIsWritten) {
    Start(m_ledger);
    Submit(Mail("a"));
    const std::vector<kvhost::StoredJob> jobs = m_ledger.BeginAttempts({KeyOf("a")}, Now());
    RecordingObserver observer;
    kvhost::OutcomeBook book(m_ledger, observer);
    kvhost::AttemptReport report;
    report.job = jobs.at(0);
    report.outcome = kvhost::AttemptOutcome::Delivered;
    report.next = JobState::Delivered;
    book.Add(report);
    book.Write(Now());
    book.Write(Now());
    EXPECT_EQ(StateOf("a"), JobState::Delivered);
    EXPECT_THAT(observer.reports, SizeIs(1));
    EXPECT_EQ(observer.writes, 1);
    EXPECT_TRUE(book.IsEmpty());
}

TEST_F(RunStoreTest, AnOutcomeThatCannotBeWrittenIsKept) {
    Start(m_ledger);
    Submit(Mail("a"));
    kvhost::AttemptReport report;
    report.job = m_ledger.BeginAttempts({KeyOf("a")}, Now()).at(0);
    report.outcome = kvhost::AttemptOutcome::Delivered;
    report.next = JobState::Delivered;
    RecordingObserver observer;
    kvhost::OutcomeBook book(m_ledger, observer);
    book.Add(report);
    m_store.Connection().setBusyTimeout(1);
    {
        kvhost::StoreDatabase other(m_dir.path(), kvhost::StoreDatabase::Access::Existing);
        const kvhost::StoreWrite writer(other);
        EXPECT_THROW(book.Write(Now()), SQLite::Exception);
        EXPECT_EQ(book.Count(), 1U);
        EXPECT_THAT(observer.reports, SizeIs(0));
    }
    book.Write(Now());
    EXPECT_EQ(StateOf("a"), JobState::Delivered);
    EXPECT_THAT(observer.reports, SizeIs(1));
}

TEST_F(RunStoreTest, JobsThatEndedLongAgoAreDeletedInPortions) {
    Start(m_ledger);
    for (int i = 0; i < 150; ++i) {
        Submit(Mail("old" + std::to_string(i)));
        Deliver("old" + std::to_string(i));
    }
    Later(std::chrono::hours(2));
    Submit(Mail("new"));
    Deliver("new");
    Submit(Mail("waiting"));
    const kvhost::HostConfig config = ConfigWith(std::chrono::hours(1), std::chrono::hours(24));
    EXPECT_TRUE(kvhost::TidyPortion(m_store, config, Now(), m_expired));
    EXPECT_EQ(kvhost::JobViews(m_store).Count()[JobState::Delivered], 51);
    EXPECT_FALSE(kvhost::TidyPortion(m_store, config, Now(), m_expired));
    EXPECT_EQ(StateOf("new"), JobState::Delivered);
    EXPECT_EQ(StateOf("waiting"), JobState::Queued);
    EXPECT_EQ(kvhost::JobViews(m_store).Count()[JobState::Delivered], 1);
    ExpectSound();
}

TEST_F(RunStoreTest, NothingIsDeletedWhenJobsAreKept) {
    Start(m_ledger);
    Submit(Mail("old"));
    Deliver("old");
    Later(std::chrono::hours(10000));
    EXPECT_FALSE(
        kvhost::TidyPortion(m_store, ConfigWith(Milliseconds(0), Milliseconds(0)), Now(), m_expired));
    EXPECT_EQ(StateOf("old"), JobState::Delivered);
}

TEST_F(RunStoreTest, AJobThatCouldNotBeTriedInAllItsTimeFails) {
    Submit(Mail("old"));
    kvhost::Submission withDeadline = Mail("deadline");
    withDeadline.deadline = Now() + std::chrono::hours(100);
    Submit(withDeadline);
    Later(std::chrono::hours(25));
    Submit(Mail("new"));
    Submit(Mail("elsewhere", "unknown"));
    kvhost::TidyPortion(m_store, ConfigWith(Milliseconds(0), std::chrono::hours(24)), Now(), m_expired);
    ASSERT_THAT(m_expired, SizeIs(1));
    EXPECT_EQ(m_expired[0].id, "old");
    EXPECT_EQ(m_expired[0].carrier, Job("old").carrier);
    EXPECT_EQ(StateOf("old"), JobState::Failed);
    EXPECT_THAT(Job("old").decision, testing::HasSubstr("could not be reached"));
    EXPECT_EQ(StateOf("deadline"), JobState::Queued);
    EXPECT_EQ(StateOf("new"), JobState::Queued);
    EXPECT_EQ(StateOf("elsewhere"), JobState::Queued);
    ExpectSound();
}

}  // namespace
}  // namespace kvhosttest
