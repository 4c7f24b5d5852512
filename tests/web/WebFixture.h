#pragma once

#include <fstream>
#include <iterator>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "Metrics.h"
#include "RecentAttempts.h"
#include "Secrets.h"
#include "StatusReport.h"
#include "store/StoreFixture.h"

namespace kvhosttest {

inline std::string ReadFile(const std::string& path) {
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

/// An attempt of the job "a" of the carrier "east" that ended as told. The times are fixed.
inline kvhost::AttemptReport AttemptOf(kvhost::AttemptOutcome outcome, kvhost::JobState next) {
    kvhost::AttemptReport report;
    report.job.key = 7;
    report.job.id = "a";
    report.job.carrier = "east";
    report.job.recipient = "ops@example.org";
    report.job.subject = "Boiler";
    report.number = 1;
    report.begun = kvhost::FromNumber(1'700'000'000'000);
    report.ended = kvhost::FromNumber(1'700'000'001'500);
    report.outcome = outcome;
    report.next = next;
    return report;
}

inline kvhost::AttemptReport DeliveredAttempt() {
    return AttemptOf(kvhost::AttemptOutcome::Delivered, kvhost::JobState::Delivered);
}

inline kvhost::AttemptReport FailedAttempt(const std::string& reason) {
    kvhost::AttemptReport report = AttemptOf(kvhost::AttemptOutcome::Failed, kvhost::JobState::Failed);
    report.reason = reason;
    report.decision = "given up";
    return report;
}

inline kvhost::AttemptReport RetriedAttempt(const std::string& reason) {
    kvhost::AttemptReport report = AttemptOf(kvhost::AttemptOutcome::Failed, kvhost::JobState::Queued);
    report.reason = reason;
    report.decision = "again in a minute";
    report.due = report.ended + std::chrono::minutes(1);
    return report;
}

/// A store and all that looks at a daemon. There is no daemon: the test writes on the board and calls the observers.
class WebTest : public StoreTest {
protected:
    WebTest() { SetRunning(); }

    /// A board as of a healthy daemon with the carriers "east" and "west".
    static kvhost::RunSnapshot RunningSnapshot() {
        kvhost::RunSnapshot run;
        run.phase = kvhost::RunSnapshot::Phase::Running;
        run.driver = "SMTP 1.0";
        run.started = kvhost::StoreNow() - std::chrono::seconds(90);
        run.lastRound = kvhost::StoreNow();
        run.lastTick = kvhost::StoreNow();
        run.carriers["east"];
        run.carriers["west"];
        return run;
    }
    void SetRunning() { m_status.Set(RunningSnapshot()); }

    /// Makes the job of that name fail for good, in the store.
    void FailInStore(const std::string& id, const std::string& reason) {
        kvhost::JobLedger ledger(m_store);
        Start(ledger);
        ledger.BeginAttempts({KeyOf(id)}, Now());
        ledger.EndAttempts({Failed(KeyOf(id), reason)}, Now());
    }

    kvhost::RunStatus m_status;
    kvhost::StoreWatch m_watch{m_dir.path(), std::chrono::milliseconds(0)};
    kvhost::RecentAttempts m_recent;
    kvhost::ConnectionCounter m_connections;
    std::shared_ptr<kvhost::Secrets> m_pSecrets = std::make_shared<kvhost::Secrets>(
        kvhost::SecretMask(std::vector<kvhost::SecretMask::Account>{{"kv", "hunter2"}}));
    std::uint64_t m_nLost = 0;
    kvhost::Metrics m_metrics{{m_status, m_watch, m_connections, [this] { return m_nLost; }}};
    kvhost::StatusReporter m_reporter{m_status, m_watch, m_recent, m_pSecrets};
};

}  // namespace kvhosttest
