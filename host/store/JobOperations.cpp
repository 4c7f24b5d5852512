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

}  // namespace

/// Which states a verb applies to, and what it does to them.
struct JobOperations::Rule {
    std::vector<JobState> from;
    JobState to = JobState::Queued;
    bool isDueNow = false;  ///< the next attempt may begin at once
    bool dropsDeadline = false;
    std::string event;    ///< for the history and as the decision
    std::string refusal;  ///< for a job of another state; its state is put before it
};

std::vector<OperationResult> JobOperations::Retry(const std::string& name, StoreTime now) {
    return Apply(name, now,
                 {{JobState::Failed, JobState::InDoubt, JobState::Cancelled},
                  JobState::Queued,
                  true,
                  true,
                  "queued again by an operator",
                  "only a failed, cancelled or in doubt job can be retried"});
}

std::vector<OperationResult> JobOperations::Hold(const std::string& name, StoreTime now) {
    return Apply(name, now,
                 {{JobState::Queued},
                  JobState::Held,
                  false,
                  false,
                  "held by an operator",
                  "only a queued job can be held"});
}

std::vector<OperationResult> JobOperations::Release(const std::string& name, StoreTime now) {
    return Apply(name, now,
                 {{JobState::Held},
                  JobState::Queued,
                  false,
                  false,
                  "released by an operator",
                  "only a held job can be released"});
}

std::vector<OperationResult> JobOperations::Cancel(const std::string& name, StoreTime now) {
    return Apply(name, now,
                 {{JobState::Queued, JobState::Held, JobState::InDoubt},
                  JobState::Cancelled,
                  false,
                  false,
                  "cancelled by an operator",
                  "only a queued, held or in doubt job can be cancelled"});
}

std::vector<OperationResult> JobOperations::Apply(const std::string& name, StoreTime now, const Rule& rule) {
    StoreWrite transaction(m_store);
    const std::vector<FoundJob> jobs = Find(m_store, name);
    if (jobs.empty()) {
        return {{name, false, "there is no such job"}};
    }
    SQLite::Statement update(m_store.Connection(),
                             "UPDATE job SET state = ?1, changed = ?2, due = iif(?3, ?2, due), "
                             "deadline = iif(?4, NULL, deadline), decision = ?5 WHERE key = ?6");
    std::vector<OperationResult> results;
    for (const FoundJob& job : jobs) {
        if (std::find(rule.from.begin(), rule.from.end(), job.state) == rule.from.end()) {
            results.push_back(
                {job.id, false, std::string("it is ") + JobStateName(job.state) + "; " + rule.refusal});
            continue;
        }
        update.reset();
        update.bind(1, static_cast<int>(rule.to));
        update.bind(2, ToNumber(now));
        update.bind(3, rule.isDueNow ? 1 : 0);
        update.bind(4, rule.dropsDeadline ? 1 : 0);
        update.bind(5, rule.event);
        update.bind(6, job.key);
        update.exec();
        NoteEvent(m_store, job.key, now, rule.event);
        results.push_back({job.id, true, ""});
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
