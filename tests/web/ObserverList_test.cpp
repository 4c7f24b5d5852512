#include "ObserverList.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "WebFixture.h"

namespace kvhosttest {
namespace {

using kvhost::AttemptReport;
using kvhost::Milliseconds;
using kvhost::ObserverList;
using kvhost::StoredJob;
using testing::ElementsAre;
using testing::HasSubstr;

struct Recorder : kvhost::RunObserver {
    void JobHandedOver(const StoredJob& job, Milliseconds waited) override {
        subjects.push_back(job.subject);
        waits.push_back(waited);
    }
    void AttemptEnded(const AttemptReport& report) override { reports.push_back(report); }
    void StoreWritten(std::chrono::microseconds took) override { writes.push_back(took); }

    std::vector<std::string> subjects;
    std::vector<Milliseconds> waits;
    std::vector<AttemptReport> reports;
    std::vector<std::chrono::microseconds> writes;
};

struct Thrower : kvhost::RunObserver {
    void AttemptEnded(const AttemptReport&) override { throw std::runtime_error("out of ink"); }
};

class ObserverListTest : public testing::Test {
protected:
    Recorder m_first;
    Thrower m_thrower;
    Recorder m_last;
    std::vector<std::string> m_warnings;
    ObserverList m_list{std::make_shared<kvhost::Secrets>(
                            kvhost::SecretMask(std::vector<kvhost::SecretMask::Account>{{"kv", "hunter2"}})),
                        {&m_first, &m_thrower, &m_last},
                        [this](const std::string& text) { m_warnings.push_back(text); }};
};

TEST_F(ObserverListTest, EveryObserverIsToldEverything) {
    m_list.JobHandedOver(DeliveredAttempt().job, Milliseconds(3));
    m_list.AttemptEnded(FailedAttempt("no"));
    m_list.StoreWritten(std::chrono::microseconds(8));
    for (const Recorder* recorder : {&m_first, &m_last}) {
        EXPECT_THAT(recorder->subjects, ElementsAre("Boiler"));
        EXPECT_THAT(recorder->waits, ElementsAre(Milliseconds(3)));
        ASSERT_EQ(recorder->reports.size(), 1U);
        EXPECT_EQ(recorder->reports.front().reason, "no");
        EXPECT_EQ(recorder->reports.front().number, 1);
        EXPECT_THAT(recorder->writes, ElementsAre(std::chrono::microseconds(8)));
    }
}

TEST_F(ObserverListTest, AnObserverThatFailsIsToldOfAndKeepsItFromNoOther) {
    EXPECT_NO_THROW(m_list.AttemptEnded(DeliveredAttempt()));
    EXPECT_EQ(m_last.reports.size(), 1U);
    EXPECT_THAT(m_warnings, ElementsAre(HasSubstr("out of ink")));
}

TEST_F(ObserverListTest, SecretsAreMaskedInAllTextsThatComeFromOutside) {
    AttemptReport report = FailedAttempt("535 not hunter2");
    report.decision = "because of hunter2";
    report.job.subject = "hunter2!";
    report.job.reason = "old hunter2";
    report.job.decision = "old decision hunter2";
    m_list.AttemptEnded(report);
    m_list.JobHandedOver(report.job, Milliseconds(0));
    const AttemptReport& seen = m_last.reports.front();
    EXPECT_EQ(seen.reason, "535 not [masked]");
    EXPECT_EQ(seen.decision, "because of [masked]");
    EXPECT_EQ(seen.job.subject, "[masked]!");
    EXPECT_EQ(seen.job.reason, "old [masked]");
    EXPECT_EQ(seen.job.decision, "old decision [masked]");
    EXPECT_THAT(m_last.subjects, ElementsAre("[masked]!"));
}

}  // namespace
}  // namespace kvhosttest
