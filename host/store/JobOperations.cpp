#include "JobOperations.h"

#include <SQLiteCpp/Statement.h>

#include <algorithm>

#include "StoreRows.h"

namespace kvhost {

namespace {

struct FoundJob {
    std::int64_t key = 0;
    std::string id;
    JobState state = JobState::Queued;
};

std::vector<FoundJob> ReadFound(SQLite::Statement& rows) {
    std::vector<FoundJob> found;
    while (rows.executeStep()) {
        found.push_back({rows.getColumn(0).getInt64(), rows.getColumn(1).getString(),
                         static_cast<JobState>(rows.getColumn(2).getInt())});
    }
    return found;
}

std::vector<FoundJob> Find(StoreDatabase& store, const std::string& name) {
    SQLite::Statement byJob(store.Connection(), "SELECT key, id, state FROM job WHERE id = ?");
    byJob.bind(1, name);
    std::vector<FoundJob> found = ReadFound(byJob);
    if (!found.empty()) {
        return found;
    }
    SQLite::Statement bySubmission(store.Connection(),
                                   "SELECT key, id, state FROM job WHERE submission = "
                                   "(SELECT key FROM submission WHERE id = ?) ORDER BY key");
    bySubmission.bind(1, name);
    return ReadFound(bySubmission);
}

/// Which states an operation applies to, and what it does to them.
struct Rule {
    std::vector<JobState> from;
    JobState to = JobState::Queued;
    bool isDueNow = false;       ///< the next attempt may begin at once
    bool dropsDeadline = false;  ///< of a job that was not queued
    std::string event;           ///< for the history and as the decision
    std::string refusal;         ///< for a job of another state; its state is put before it
};

const Rule& RuleOf(JobOperation operation) {
    static const Rule kRetry{{JobState::Failed, JobState::InDoubt, JobState::Cancelled, JobState::Queued},
                             JobState::Queued,
                             true,
                             true,
                             "queued again by an operator",
                             "only a failed, in doubt, cancelled or queued job can be retried"};
    static const Rule kHold{{JobState::Queued},
                            JobState::Held,
                            false,
                            false,
                            "held by an operator",
                            "only a queued job can be held"};
    static const Rule kRelease{{JobState::Held},
                               JobState::Queued,
                               false,
                               false,
                               "released by an operator",
                               "only a held job can be released"};
    static const Rule kCancel{{JobState::Queued, JobState::Held, JobState::InDoubt},
                              JobState::Cancelled,
                              false,
                              false,
                              "cancelled by an operator",
                              "only a queued, held or in doubt job can be cancelled"};
    switch (operation) {
        case JobOperation::Retry:
            return kRetry;
        case JobOperation::Hold:
            return kHold;
        case JobOperation::Release:
            return kRelease;
        case JobOperation::Cancel:
            break;
    }
    return kCancel;
}

/// Applies one rule to the jobs of one name after the other, within the caller's transaction.
class RuleRunner {
public:
    RuleRunner(StoreDatabase& store, const Rule& rule, StoreTime now)
        : m_store(store),
          m_rule(rule),
          m_now(now),
          m_update(store.Connection(),
                   "UPDATE job SET state = ?1, changed = ?2, due = iif(?3, ?2, due), "
                   "deadline = iif(?4 AND state <> 0, NULL, deadline), decision = ?5 WHERE key = ?6") {}

    void Apply(const std::string& name, std::vector<OperationResult>& results) {
        const std::vector<FoundJob> jobs = Find(m_store, name);
        if (jobs.empty()) {
            results.push_back({name, false, "there is no such job"});
        }
        for (const FoundJob& job : jobs) {
            results.push_back(Apply(job));
        }
    }

private:
    OperationResult Apply(const FoundJob& job) {
        if (std::find(m_rule.from.begin(), m_rule.from.end(), job.state) == m_rule.from.end()) {
            return {job.id, false, std::string("it is ") + JobStateName(job.state) + "; " + m_rule.refusal};
        }
        m_update.reset();
        m_update.bind(1, static_cast<int>(m_rule.to));
        m_update.bind(2, ToNumber(m_now));
        m_update.bind(3, m_rule.isDueNow ? 1 : 0);
        m_update.bind(4, m_rule.dropsDeadline ? 1 : 0);
        m_update.bind(5, m_rule.event);
        m_update.bind(6, job.key);
        m_update.exec();
        NoteEvent(m_store, job.key, m_now, m_rule.event);
        return {job.id, true, ""};
    }

    StoreDatabase& m_store;
    const Rule& m_rule;
    const StoreTime m_now;
    SQLite::Statement m_update;
};

}  // namespace

const std::vector<JobState>& StatesFor(JobOperation operation) {
    return RuleOf(operation).from;
}

std::vector<OperationResult> JobOperations::Apply(JobOperation operation,
                                                  const std::vector<std::string>& names, StoreTime now) {
    StoreWrite transaction(m_store);
    RuleRunner runner(m_store, RuleOf(operation), now);
    std::vector<OperationResult> results;
    for (const std::string& name : names) {
        runner.Apply(name, results);
    }
    transaction.Commit();
    return results;
}

PurgeResult JobOperations::Purge(StoreTime before, std::optional<JobState> state, int limit) {
    StoreWrite transaction(m_store);
    SQLite::Database& database = m_store.Connection();
    database.exec("CREATE TEMP TABLE IF NOT EXISTS purged(job INTEGER PRIMARY KEY, submission INTEGER)");
    database.exec("DELETE FROM purged");
    SQLite::Statement select(
        database,
        "INSERT INTO purged SELECT key, submission FROM job "
        "WHERE state IN (2, 3, 6) AND (?1 IS NULL OR state = ?1) AND changed < ?2 LIMIT ?3");
    if (state) {
        select.bind(1, static_cast<int>(*state));
    }
    select.bind(2, ToNumber(before));
    select.bind(3, limit);
    select.exec();
    PurgeResult result;
    result.jobs = database.exec("DELETE FROM job WHERE key IN (SELECT job FROM purged)");
    result.submissions = database.exec(
        "DELETE FROM submission WHERE key IN (SELECT submission FROM purged) "
        "AND NOT EXISTS (SELECT 1 FROM job WHERE job.submission = submission.key)");
    transaction.Commit();
    return result;
}

}  // namespace kvhost
