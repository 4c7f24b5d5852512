#include "JobViews.h"

#include <sqlite3.h>

#include "StoreFixture.h"

namespace kvhost {
namespace {

class JobViewsTest : public kvhosttest::StoreTest {
protected:
    std::vector<std::string> Ids(const JobFilter& filter) {
        std::vector<std::string> ids;
        for (const StoredJob& job : m_views.List(filter)) {
            ids.push_back(job.id);
        }
        return ids;
    }

    JobViews m_views{m_store};
};

TEST_F(JobViewsTest, TheNewestJobIsListedFirst) {
    Submit(Mail("a"));
    Submit(Mail("b"));
    EXPECT_EQ(Ids({}), (std::vector<std::string>{"b", "a"}));
}

TEST_F(JobViewsTest, TheListIsNarrowedByStateAndCarrier) {
    Submit(Mail("a"));
    Submit(Mail("b", "west"));
    Submit(Mail("c", "west"));
    JobOperations(m_store).Hold("c", Now());
    JobFilter filter;
    filter.carrier = "west";
    EXPECT_EQ(Ids(filter), (std::vector<std::string>{"c", "b"}));
    filter.state = JobState::Held;
    EXPECT_EQ(Ids(filter), std::vector<std::string>{"c"});
    filter.carrier.reset();
    filter.state = JobState::Queued;
    EXPECT_EQ(Ids(filter), (std::vector<std::string>{"b", "a"}));
}

/// Counts the hundreds of steps that the database takes for the queries of a connection.
class StepCounter {
public:
    explicit StepCounter(StoreDatabase& store) : m_handle(store.Connection().getHandle()) {
        ::sqlite3_progress_handler(
            m_handle, 100, [](void* count) { return ++*static_cast<int*>(count) < 0 ? 1 : 0; }, &m_nHundreds);
    }
    ~StepCounter() { ::sqlite3_progress_handler(m_handle, 0, nullptr, nullptr); }
    StepCounter(const StepCounter&) = delete;
    StepCounter& operator=(const StepCounter&) = delete;

    int Hundreds() const { return m_nHundreds; }

private:
    sqlite3* const m_handle;
    int m_nHundreds = 0;
};

// 5,000 jobs that are looked at take 25,000 steps and more.
TEST_F(JobViewsTest, AListLooksAtFewJobsHoweverManyThereAre) {
    std::vector<Submission> mails;
    for (int i = 0; i < 5000; ++i) {
        mails.push_back(Mail("job-" + std::to_string(i)));
    }
    mails.push_back(Mail("other", "west"));
    JobIntake(m_store).Submit(mails, Now());
    JobOperations(m_store).Hold("job-0", Now());
    const StepCounter steps(m_store);
    JobFilter filter;
    filter.limit = 10;
    EXPECT_EQ(Ids(filter).size(), 10U);
    filter.state = JobState::Held;
    EXPECT_EQ(Ids(filter), std::vector<std::string>{"job-0"});
    filter.carrier = "east";
    EXPECT_EQ(Ids(filter), std::vector<std::string>{"job-0"});
    filter.carrier = "west";
    EXPECT_EQ(Ids(filter), std::vector<std::string>{});
    filter.state = JobState::Queued;
    EXPECT_EQ(Ids(filter), std::vector<std::string>{"other"});
    filter.state.reset();
    EXPECT_EQ(Ids(filter), std::vector<std::string>{"other"});
    EXPECT_LT(steps.Hundreds(), 40);
}

TEST_F(JobViewsTest, OnePageBeginsWhereTheOtherEnds) {
    for (const char* id : {"a", "b", "c"}) {
        Submit(Mail(id));
    }
    JobFilter filter;
    filter.limit = 2;
    const std::vector<StoredJob> page = m_views.List(filter);
    ASSERT_EQ(page.size(), 2U);
    filter.before = page.back().key;
    EXPECT_EQ(Ids(filter), std::vector<std::string>{"a"});
}

TEST_F(JobViewsTest, AnUnknownNameHasNoHistory) {
    EXPECT_TRUE(m_views.Show("nobody").empty());
}

TEST_F(JobViewsTest, TheCountsFollowEveryChange) {
    EXPECT_TRUE(m_views.CountByCarrier().empty());
    Submit(Mail("a"));
    Submit(Mail("b", "west"));
    JobOperations(m_store).Cancel("b", Now());
    const std::map<std::string, StateCounts> expected = {{"east", {{JobState::Queued, 1}}},
                                                         {"west", {{JobState::Cancelled, 1}}}};
    EXPECT_EQ(m_views.CountByCarrier(), expected);
    EXPECT_EQ(m_views.Count(), (StateCounts{{JobState::Queued, 1}, {JobState::Cancelled, 1}}));
    JobOperations(m_store).Purge(Now() + std::chrono::minutes(1), std::nullopt, 10);
    EXPECT_EQ(m_views.Count(), (StateCounts{{JobState::Queued, 1}}));
}

TEST_F(JobViewsTest, TheOldestQueuedJobTellsHowFarTheHostIsBehind) {
    EXPECT_EQ(m_views.OldestQueued(), std::nullopt);
    Submit(Mail("a"));
    const StoreTime first = Now();
    Later(std::chrono::minutes(1));
    Submit(Mail("b"));
    EXPECT_EQ(m_views.OldestQueued(), first);
}

TEST(StoredJobTest, EveryStateIsFoundByItsName) {
    for (int number = 0; number < kJobStateCount; ++number) {
        const auto state = static_cast<JobState>(number);
        EXPECT_EQ(ParseJobState(JobStateName(state)), state);
    }
    EXPECT_EQ(ParseJobState("lost"), std::nullopt);
}

TEST(StoredJobTest, ThreeStatesAreFinal) {
    EXPECT_TRUE(IsFinal(JobState::Delivered));
    EXPECT_TRUE(IsFinal(JobState::Failed));
    EXPECT_TRUE(IsFinal(JobState::Cancelled));
    for (const JobState state : {JobState::Queued, JobState::HandedOver, JobState::InDoubt, JobState::Held}) {
        EXPECT_FALSE(IsFinal(state)) << JobStateName(state);
    }
}

}  // namespace
}  // namespace kvhost
