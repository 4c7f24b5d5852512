#include "RecentAttempts.h"

#include <gtest/gtest.h>

#include "WebFixture.h"

namespace kvhosttest {
namespace {

using kvhost::FromNumber;
using kvhost::MinuteFigures;
using kvhost::RecentAttempts;
using kvhost::StoreTime;
using std::chrono::minutes;

class RecentAttemptsTest : public testing::Test {
protected:
    void Note(kvhost::AttemptReport report, StoreTime ended) {
        report.ended = ended;
        m_recent.AttemptEnded(report);
    }

    const StoreTime m_now = FromNumber(1'700'000'040'000);  // a full minute
    RecentAttempts m_recent;
};

TEST_F(RecentAttemptsTest, FailuresStandWithTheNewestFirst) {
    Note(FailedAttempt("first"), m_now);
    Note(DeliveredAttempt(), m_now);
    Note(RetriedAttempt("second"), m_now + minutes(1));
    const auto failures = m_recent.Failures();
    ASSERT_EQ(failures.size(), 2U);
    EXPECT_EQ(failures[0].reason, "second");
    EXPECT_EQ(failures[0].time, m_now + minutes(1));
    EXPECT_EQ(failures[0].job, "a");
    EXPECT_EQ(failures[0].carrier, "east");
    EXPECT_EQ(failures[0].recipient, "ops@example.org");
    EXPECT_EQ(failures[0].attempt, 1);
    EXPECT_EQ(failures[0].next, kvhost::JobState::Queued);
    EXPECT_EQ(failures[0].decision, "again in a minute");
    EXPECT_EQ(failures[1].reason, "first");
}

TEST_F(RecentAttemptsTest, OnlyTheLastFailuresAreKept) {
    for (std::size_t i = 0; i < RecentAttempts::kFailures + 5; ++i) {
        Note(FailedAttempt(std::to_string(i)), m_now);
    }
    const auto failures = m_recent.Failures();
    ASSERT_EQ(failures.size(), RecentAttempts::kFailures);
    EXPECT_EQ(failures.front().reason, "54");
    EXPECT_EQ(failures.back().reason, "5");
}

TEST_F(RecentAttemptsTest, ALongReasonIsCut) {
    Note(FailedAttempt(std::string(100000, 'x')), m_now);
    EXPECT_EQ(m_recent.Failures().front().reason, std::string(RecentAttempts::kTextBytes, 'x'));
}

TEST_F(RecentAttemptsTest, AttemptsAreCountedByMinuteAndByWhatFollows) {
    Note(DeliveredAttempt(), m_now - minutes(59));
    Note(DeliveredAttempt(), m_now);
    Note(DeliveredAttempt(), m_now + std::chrono::seconds(59));
    Note(RetriedAttempt("busy"), m_now);
    Note(FailedAttempt("no"), m_now);
    const auto hour = m_recent.LastHour(m_now + std::chrono::seconds(30));
    ASSERT_EQ(hour.size(), 60U);
    EXPECT_EQ(hour.front().begin, m_now - minutes(59));
    EXPECT_EQ(hour.front().delivered, 1);
    EXPECT_EQ(hour.back().begin, m_now);
    EXPECT_EQ(hour.back().delivered, 2);
    EXPECT_EQ(hour.back().retried, 1);
    EXPECT_EQ(hour.back().failed, 1);
    EXPECT_EQ(hour[30].delivered + hour[30].retried + hour[30].failed, 0);
}

TEST_F(RecentAttemptsTest, AnHourLaterAMinuteIsForgotten) {
    Note(DeliveredAttempt(), m_now);
    for (const MinuteFigures& minute : m_recent.LastHour(m_now + minutes(60))) {
        EXPECT_EQ(minute.delivered, 0);
    }
    Note(DeliveredAttempt(), m_now + minutes(60));
    EXPECT_EQ(m_recent.LastHour(m_now + minutes(60)).back().delivered, 1);
}

}  // namespace
}  // namespace kvhosttest
