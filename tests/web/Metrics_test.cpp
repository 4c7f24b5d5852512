#include "Metrics.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "WebFixture.h"

namespace kvhosttest {
namespace {

using kvhost::Milliseconds;
using testing::HasSubstr;
using testing::Not;

class MetricsTest : public WebTest {
protected:
    /// True when the line stands in the metrics as they are now.
    bool Has(const std::string& line) {
        std::istringstream stream(m_metrics.Text());
        for (std::string found; std::getline(stream, found);) {
            if (found == line) {
                return true;
            }
        }
        return false;
    }
};

TEST_F(MetricsTest, JobsAreThereByCarrierAndState) {
    Submit(Mail("a"));
    Submit(Mail("b"));
    kvhost::JobOperations(m_store).Hold("b", Now());
    EXPECT_TRUE(Has("kvhost_jobs{carrier=\"east\",state=\"queued\"} 1"));
    EXPECT_TRUE(Has("kvhost_jobs{carrier=\"east\",state=\"held\"} 1"));
    EXPECT_TRUE(Has("kvhost_jobs{carrier=\"east\",state=\"handed_over\"} 0"));
    EXPECT_TRUE(Has("kvhost_jobs{carrier=\"west\",state=\"in_doubt\"} 0"));
}

TEST_F(MetricsTest, CarriersThatAreNotConfiguredShareOneLabel) {
    Submit(Mail("a", "old"));
    Submit(Mail("b", "older"));
    m_metrics.JobHandedOver(Job("a"), Milliseconds(1));
    const std::string text = m_metrics.Text();
    EXPECT_TRUE(Has("kvhost_jobs{carrier=\"(not configured)\",state=\"queued\"} 2"));
    EXPECT_TRUE(Has("kvhost_queue_seconds_count{carrier=\"(not configured)\"} 1"));
    EXPECT_THAT(text, Not(HasSubstr("carrier=\"old")));
}

TEST_F(MetricsTest, ACarrierHasItsCountersBeforeItsFirstAttempt) {
    EXPECT_TRUE(Has("kvhost_attempts_total{carrier=\"west\",outcome=\"failed\"} 0"));
    EXPECT_TRUE(Has("kvhost_attempts_total{carrier=\"west\",outcome=\"in_doubt\"} 0"));
    EXPECT_TRUE(Has("kvhost_retries_total{carrier=\"west\"} 0"));
    EXPECT_TRUE(Has("kvhost_expired_total{carrier=\"west\"} 0"));
    EXPECT_TRUE(Has("kvhost_delivery_seconds_count{carrier=\"west\"} 0"));
}

TEST_F(MetricsTest, JobsThatWereGivenUpWithoutAnAttemptAreCounted) {
    m_metrics.JobExpired("east");
    m_metrics.JobExpired("old");
    EXPECT_TRUE(Has("kvhost_expired_total{carrier=\"east\"} 1"));
    EXPECT_TRUE(Has("kvhost_expired_total{carrier=\"(not configured)\"} 1"));
}

TEST_F(MetricsTest, ACarrierThatIsAddedLaterIsCountedUnderItsName) {
    m_metrics.Text();
    kvhost::RunSnapshot run = RunningSnapshot();
    run.carriers["north"];
    m_status.Set(run);
    kvhost::AttemptReport report = DeliveredAttempt();
    report.job.carrier = "north";
    m_metrics.AttemptEnded(report);
    EXPECT_TRUE(Has("kvhost_attempts_total{carrier=\"north\",outcome=\"delivered\"} 1"));
}

TEST_F(MetricsTest, AttemptsAreCountedByOutcomeAndRetriesBesides) {
    m_metrics.AttemptEnded(DeliveredAttempt());
    m_metrics.AttemptEnded(FailedAttempt("no"));
    m_metrics.AttemptEnded(RetriedAttempt("busy"));
    EXPECT_TRUE(Has("kvhost_attempts_total{carrier=\"east\",outcome=\"delivered\"} 1"));
    EXPECT_TRUE(Has("kvhost_attempts_total{carrier=\"east\",outcome=\"failed\"} 2"));
    EXPECT_TRUE(Has("kvhost_retries_total{carrier=\"east\"} 1"));
}

TEST_F(MetricsTest, TimesAreInSeconds) {
    m_metrics.JobHandedOver(DeliveredAttempt().job, Milliseconds(300));
    m_metrics.AttemptEnded(DeliveredAttempt());
    m_metrics.StoreWritten(std::chrono::microseconds(2000));
    EXPECT_TRUE(Has("kvhost_queue_seconds_sum{carrier=\"east\"} 0.3"));
    EXPECT_TRUE(Has("kvhost_queue_seconds_bucket{carrier=\"east\",le=\"0.25\"} 0"));
    EXPECT_TRUE(Has("kvhost_queue_seconds_bucket{carrier=\"east\",le=\"0.5\"} 1"));
    EXPECT_TRUE(Has("kvhost_delivery_seconds_sum{carrier=\"east\"} 1.5"));
    EXPECT_TRUE(Has("kvhost_store_write_seconds_sum 0.002"));
    EXPECT_TRUE(Has("kvhost_store_write_seconds_count 1"));
}

TEST_F(MetricsTest, ConnectionsAndLostLinesAreRead) {
    m_connections.Watch("Creating new connection object.");
    m_connections.Watch("Creating new connection object.");
    m_connections.Watch("Failed to create new connection for carrier: x");
    m_connections.Watch("Getting connection object from cache.");
    m_nLost = 5;
    EXPECT_TRUE(Has("kvhost_connection_attempts_total 2"));
    EXPECT_TRUE(Has("kvhost_connection_failures_total 1"));
    EXPECT_TRUE(Has("kvhost_connection_reuses_total 1"));
    EXPECT_TRUE(Has("kvhost_delivery_log_lost_lines_total 5"));
}

TEST_F(MetricsTest, TheBoardIsRead) {
    kvhost::RunSnapshot run = RunningSnapshot();
    run.carriers["east"].underWay = 4;
    run.carriers["west"].isInTrouble = true;
    run.lastTick = kvhost::FromNumber(1500);
    m_status.Set(run);
    EXPECT_TRUE(Has("kvhost_jobs_under_way{carrier=\"east\"} 4"));
    EXPECT_TRUE(Has("kvhost_carrier_in_trouble{carrier=\"east\"} 0"));
    EXPECT_TRUE(Has("kvhost_carrier_in_trouble{carrier=\"west\"} 1"));
    EXPECT_TRUE(Has("kvhost_last_tick_timestamp_seconds 1.5"));
    EXPECT_TRUE(Has("kvhost_running 1"));
    EXPECT_TRUE(Has("kvhost_store_usable 1"));
    EXPECT_THAT(m_metrics.Text(), HasSubstr("kvhost_build_info{version=\""));
    EXPECT_THAT(m_metrics.Text(), testing::ContainsRegex("\nprocess_start_time_seconds 1[0-9.e+]+\n"));
}

TEST_F(MetricsTest, TheAgeOfTheOldestQueuedJobIsThatOfItsSubmission) {
    EXPECT_TRUE(Has("kvhost_oldest_queued_age_seconds 0"));
    Submit(Mail("a"));  // the clock of these tests stands in 2023
    const std::string text = m_metrics.Text();
    const std::size_t at = text.find("\nkvhost_oldest_queued_age_seconds ");
    ASSERT_NE(at, std::string::npos);
    EXPECT_GT(std::stod(text.substr(at + 34)), 3600.0 * 24 * 365);
}

TEST_F(MetricsTest, WithoutTheStoreTheRestIsToldAllTheSame) {
    kvhost::StoreWatch none(m_dir.file("none"));
    kvhost::Metrics metrics({m_status, none, m_connections, {}});
    const std::string text = metrics.Text();
    EXPECT_THAT(text, HasSubstr("\nkvhost_store_readable 0\n"));
    EXPECT_THAT(text, HasSubstr("\nkvhost_running 1\n"));
    EXPECT_THAT(text, Not(HasSubstr("kvhost_jobs{")));
    EXPECT_TRUE(Has("kvhost_store_readable 1"));
}

TEST_F(MetricsTest, EveryMetricHasItsHelpAndTypeOnce) {
    m_metrics.AttemptEnded(DeliveredAttempt());
    std::istringstream stream(m_metrics.Text());
    std::set<std::string> types;
    for (std::string line; std::getline(stream, line);) {
        if (line.rfind("# TYPE ", 0) == 0) {
            EXPECT_TRUE(types.insert(line.substr(7, line.rfind(' ') - 7)).second) << line;
        } else if (line.rfind("# HELP ", 0) != 0) {
            std::string name = line.substr(0, line.find_first_of("{ "));
            for (const char* suffix : {"_bucket", "_sum", "_count"}) {
                const std::size_t at = name.rfind(suffix);
                if (at != std::string::npos && at + std::string(suffix).size() == name.size()) {
                    name.resize(at);
                }
            }
            EXPECT_EQ(types.count(name), 1U) << line;
        }
    }
    EXPECT_GE(types.size(), 18U);
}

}  // namespace
}  // namespace kvhosttest
