#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "JobIntake.h"
#include "JobLedger.h"
#include "JobOperations.h"
#include "JobViews.h"
#include "StoreCheck.h"
#include "TempDir.h"

namespace kvhosttest {

/// A store in a folder of its own, and the few calls that every test of it makes. The clock is the test's: it stands
/// at Now() until it is moved.
class StoreTest : public testing::Test {
protected:
    static kvhost::Submission Mail(const std::string& id, const std::string& carrier = "east") {
        kvhost::Submission submission;
        submission.id = id;
        submission.carrier = carrier;
        submission.recipients = {"ops@example.org"};
        submission.subject = "Boiler";
        submission.text = "The boiler is cold.";
        return submission;
    }

    kvhost::StoreTime Now() const { return m_now; }
    void Later(std::chrono::milliseconds by) { m_now += by; }

    void Submit(const kvhost::Submission& submission) {
        ASSERT_EQ(kvhost::JobIntake(m_store).Submit({submission}, m_now),
                  std::vector{kvhost::SubmitResult::Stored});
    }

    std::int64_t KeyOf(const std::string& id) { return Job(id).key; }

    kvhost::JobHistory History(const std::string& id) {
        const std::vector<kvhost::JobHistory> found = kvhost::JobViews(m_store).Show(id);
        EXPECT_EQ(found.size(), 1U) << id;
        return found.empty() ? kvhost::JobHistory() : found.front();
    }
    kvhost::StoredJob Job(const std::string& id) { return History(id).job; }
    kvhost::JobState StateOf(const std::string& id) { return Job(id).state; }

    /// Begins the run of a host whose carriers all have this policy.
    kvhost::Recovery Start(kvhost::JobLedger& ledger,
                           kvhost::DoubtPolicy policy = kvhost::DoubtPolicy::Hold) {
        return ledger.BeginRun(m_now, [policy](const std::string&) { return policy; });
    }

    static kvhost::AttemptEnd Delivered(std::int64_t job) {
        return {job,        kvhost::AttemptOutcome::Delivered, "", kvhost::JobState::Delivered, std::nullopt,
                "delivered"};
    }
    static kvhost::AttemptEnd Failed(std::int64_t job, const std::string& reason) {
        return {job, kvhost::AttemptOutcome::Failed, reason, kvhost::JobState::Failed, std::nullopt, "final"};
    }
    static kvhost::AttemptEnd RetryAt(std::int64_t job, kvhost::StoreTime due) {
        return {job, kvhost::AttemptOutcome::Failed, "busy", kvhost::JobState::Queued, due, "again later"};
    }

    void ExpectSound() {
        const kvhost::StoreCheckResult result = kvhost::CheckStore(m_store);
        EXPECT_TRUE(result.IsSound()) << (result.faults.empty() ? "" : result.faults.front());
    }

    kvtest::TempDir m_dir;
    kvhost::StoreDatabase m_store{m_dir.path(), kvhost::StoreDatabase::Access::Create};

private:
    kvhost::StoreTime m_now = kvhost::FromNumber(1'700'000'000'000);
};

}  // namespace kvhosttest
