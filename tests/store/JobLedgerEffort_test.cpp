#include <gtest/gtest.h>
#include <sqlite3.h>

#include "StoreFixture.h"

namespace kvhosttest {
namespace {

using namespace kvhost;

/// What the daemon asks the store in every round: the effort must not grow with the queue.
class JobLedgerEffortTest : public StoreTest {
protected:
    static constexpr int kJobs = 3000;
    /// Far below one page for each job, far above what a look at an index takes.
    static constexpr int kFewPages = 60;

    void SetUp() override {
        std::vector<Submission> submissions;
        for (int i = 1; i <= kJobs; ++i) {
            submissions.push_back(Mail("job-" + std::to_string(i)));
        }
        submissions.back().deadline = Now() + std::chrono::hours(1);
        JobIntake(m_store).Submit(submissions, Now());
        Start(m_ledger);
    }

    /// How many pages of the database are looked at meanwhile, in memory or not.
    template <typename Look>
    int PagesOf(const Look& look) {
        Count(SQLITE_DBSTATUS_CACHE_HIT);
        Count(SQLITE_DBSTATUS_CACHE_MISS);
        look();
        return Count(SQLITE_DBSTATUS_CACHE_HIT) + Count(SQLITE_DBSTATUS_CACHE_MISS);
    }

    JobLedger m_ledger{m_store};

private:
    int Count(int what) {
        int count = 0;
        int highest = 0;
        sqlite3_db_status(m_store.Connection().getHandle(), what, &count, &highest, 1);
        return count;
    }
};

TEST_F(JobLedgerEffortTest, TheNextDeadlineIsFoundWithoutALookAtEveryJob) {
    EXPECT_LT(PagesOf([&] { EXPECT_EQ(m_ledger.NextDeadline(), Now() + std::chrono::hours(1)); }), kFewPages);
}

TEST_F(JobLedgerEffortTest, OverdueJobsAreFoundWithoutALookAtEveryJob) {
    EXPECT_LT(PagesOf([&] { EXPECT_EQ(m_ledger.ExpireOverdue(Now(), 100).size(), 0U); }), kFewPages);
    const StoreTime late = Now() + std::chrono::hours(2);
    EXPECT_LT(PagesOf([&] { EXPECT_EQ(m_ledger.ExpireOverdue(late, 100).size(), 1U); }), kFewPages);
}

TEST_F(JobLedgerEffortTest, DueJobsAreFoundWithoutALookAtEveryJob) {
    EXPECT_LT(PagesOf([&] { EXPECT_EQ(m_ledger.Due("east", Now(), 20).size(), 20U); }), kFewPages);
}

TEST_F(JobLedgerEffortTest, TheQueuesAreToldWithoutALookAtEveryJob) {
    EXPECT_LT(PagesOf([&] { EXPECT_EQ(m_ledger.Queues().size(), 1U); }), kFewPages);
}

TEST_F(JobLedgerEffortTest, TheOldestJobIsFoundWithoutALookAtEveryJob) {
    EXPECT_LT(PagesOf([&] { EXPECT_EQ(JobViews(m_store).OldestQueued(), Now()); }), kFewPages);
}

TEST_F(JobLedgerEffortTest, AnAttemptBeginsAndEndsWithoutALookAtEveryJob) {
    const std::vector<std::int64_t> due = m_ledger.Due("east", Now(), 1);
    EXPECT_LT(PagesOf([&] { m_ledger.BeginAttempts(due, Now()); }), 3 * kFewPages);
    EXPECT_LT(PagesOf([&] { m_ledger.EndAttempts({Delivered(due.front())}, Now()); }), 3 * kFewPages);
}

}  // namespace
}  // namespace kvhosttest
