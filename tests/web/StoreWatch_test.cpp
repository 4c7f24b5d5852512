#include "StoreWatch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "WebFixture.h"

namespace kvhosttest {
namespace {

using kvhost::JobState;
using kvhost::StoredJob;
using kvhost::StoreWatch;
using testing::HasSubstr;

class StoreWatchTest : public StoreTest {
protected:
    static std::vector<std::string> Names(const std::vector<StoredJob>& jobs) {
        std::vector<std::string> names;
        for (const StoredJob& job : jobs) {
            names.push_back(job.id);
        }
        return names;
    }
};

TEST_F(StoreWatchTest, JobsAreCountedByCarrierAndState) {
    Submit(Mail("a"));
    Submit(Mail("b"));
    Submit(Mail("c", "west"));
    kvhost::JobOperations(m_store).Hold("b", Now());
    const auto figures = StoreWatch(m_dir.path()).Get();
    EXPECT_EQ(figures->trouble, "");
    EXPECT_EQ(figures->jobs.at("east").at(JobState::Queued), 1);
    EXPECT_EQ(figures->jobs.at("east").at(JobState::Held), 1);
    EXPECT_EQ(figures->jobs.at("west").at(JobState::Queued), 1);
    EXPECT_EQ(figures->oldestQueued, Now());
}

TEST_F(StoreWatchTest, WhatWaitsStandsInTheOrderOfSubmission) {
    for (const char* id : {"a", "b", "c", "d", "e"}) {
        Submit(Mail(id));
    }
    kvhost::JobOperations(m_store).Hold("b", Now());
    kvhost::JobOperations(m_store).Cancel("c", Now());
    kvhost::JobLedger ledger(m_store);
    Start(ledger);
    ledger.BeginAttempts({KeyOf("d")}, Now());
    kvhost::JobLedger next(m_store);
    Start(next, kvhost::DoubtPolicy::Hold);
    ASSERT_EQ(StateOf("d"), JobState::InDoubt);
    EXPECT_THAT(Names(StoreWatch(m_dir.path()).Get()->waiting), testing::ElementsAre("a", "b", "d", "e"));
}

TEST_F(StoreWatchTest, OnlyTheFirstThatWaitAreRead) {
    for (int i = 0; i < 30; ++i) {
        Submit(Mail("job" + std::to_string(i)));
    }
    const auto names = Names(StoreWatch(m_dir.path()).Get()->waiting);
    ASSERT_EQ(names.size(), 20U);
    EXPECT_EQ(names.front(), "job0");
    EXPECT_EQ(names.back(), "job19");
}

TEST_F(StoreWatchTest, FiguresAreReadAgainOnlyWhenTheyAreOld) {
    StoreWatch watch(m_dir.path(), std::chrono::hours(1));
    const auto before = watch.Get();
    Submit(Mail("a"));
    EXPECT_EQ(watch.Get(), before);
    EXPECT_EQ(StoreWatch(m_dir.path(), std::chrono::milliseconds(0)).Get()->jobs.size(), 1U);
}

TEST_F(StoreWatchTest, AStoreThatCannotBeReadIsToldAndTriedAgain) {
    const std::string folder = m_dir.file("later");
    StoreWatch watch(folder, std::chrono::milliseconds(0));
    EXPECT_THAT(watch.Get()->trouble, HasSubstr(folder));
    const kvhost::StoreDatabase store(folder, kvhost::StoreDatabase::Access::Create);
    EXPECT_EQ(watch.Get()->trouble, "");
}

}  // namespace
}  // namespace kvhosttest
