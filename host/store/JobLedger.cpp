#include "JobLedger.h"

#include <SQLiteCpp/Statement.h>

#include <algorithm>

#include "StoreRows.h"

namespace kvhost {

namespace {

constexpr int kQueued = static_cast<int>(JobState::Queued);
constexpr int kHandedOver = static_cast<int>(JobState::HandedOver);

/// True when the last run has no end.
bool HasLastRunCrashed(StoreDatabase& store) {
    SQLite::Statement last(store.Connection(), "SELECT ended IS NULL FROM run ORDER BY key DESC LIMIT 1");
    return last.executeStep() && last.getColumn(0).getInt() != 0;
}

std::int64_t InsertRun(StoreDatabase& store, StoreTime now) {
    SQLite::Statement insert(store.Connection(), "INSERT INTO run(begun) VALUES(?)");
    insert.bind(1, ToNumber(now));
    insert.exec();
    return store.Connection().getLastInsertRowid();
}

std::vector<StoredJob> JobsHandedOver(StoreDatabase& store) {
    SQLite::Statement rows(store.Connection(),
                           std::string("SELECT ") + kJobColumns +
                               " FROM job JOIN submission ON submission.key = job.submission "
                               "WHERE job.state = ? ORDER BY job.key");
    rows.bind(1, kHandedOver);
    std::vector<StoredJob> jobs;
    while (rows.executeStep()) {
        jobs.push_back(ReadJob(rows));
    }
    return jobs;
}

void AppendDue(StoreDatabase& store, const std::string& carrier, bool isUrgent, StoreTime now,
               std::size_t limit, std::vector<std::int64_t>& keys) {
    StoreStatement rows(store,
                        "SELECT key FROM job WHERE state = 0 AND carrier = ? AND urgent = ? AND due <= ? "
                        "ORDER BY due, key LIMIT ?");
    rows->bind(1, carrier);
    rows->bind(2, isUrgent ? 1 : 0);
    rows->bind(3, ToNumber(now));
    rows->bind(4, static_cast<std::int64_t>(limit - keys.size()));
    while (rows->executeStep()) {
        keys.push_back(rows->getColumn(0).getInt64());
    }
}

void CountCrash(StoreDatabase& store, std::int64_t job) {
    SQLite::Statement update(store.Connection(), "UPDATE job SET crashes = crashes + 1 WHERE key = ?");
    update.bind(1, job);
    update.exec();
}

constexpr const char* kOverdue = "the deadline passed before it was delivered";
constexpr const char* kUntried = "the carrier could not be reached in all the time that the job may be tried";

/// Changes the rows and reads what the statement returns of them.
std::vector<ExpiredJob> ReadExpired(SQLite::Statement& update, const char* why) {
    std::vector<ExpiredJob> expired;
    while (update.executeStep()) {
        expired.push_back({update.getColumn(0).getString(), update.getColumn(1).getString(),
                           update.getColumn(2).getString(), why});
    }
    return expired;
}

constexpr const char* kDoubtReason =
    "The host ended while the message was with the driver: it may have been delivered.";

}  // namespace

Recovery JobLedger::BeginRun(StoreTime now, const std::function<DoubtPolicy(const std::string&)>& policy) {
    StoreWrite transaction(m_store);
    Recovery recovery;
    recovery.hasCrashed = HasLastRunCrashed(m_store);
    for (const StoredJob& job : JobsHandedOver(m_store)) {
        SettleOne(job, now, recovery.hasCrashed, policy(job.carrier), recovery);
    }
    m_nRun = InsertRun(m_store, now);
    transaction.Commit();
    return recovery;
}

void JobLedger::SettleOne(const StoredJob& job, StoreTime now, bool hasCrashed, DoubtPolicy policy,
                          Recovery& recovery) {
    AttemptEnd end;
    end.job = job.key;
    end.outcome = AttemptOutcome::InDoubt;
    end.reason = kDoubtReason;
    if (hasCrashed) {
        CountCrash(m_store, job.key);
    }
    if (hasCrashed && job.crashes + 1 >= kQuarantineAfter) {
        end.next = JobState::Held;
        end.decision = "held: it was with the driver in " + std::to_string(job.crashes + 1) +
                       " crashes of the host; look at it, then release or cancel it";
        ++recovery.quarantined;
    } else if (policy == DoubtPolicy::Retry) {
        end.next = JobState::Queued;
        end.due = now;
        end.decision = "sent again: the carrier's on_doubt is \"retry\"; the recipient may get it twice";
        ++recovery.retried;
    } else if (policy == DoubtPolicy::Fail) {
        end.next = JobState::Failed;
        end.decision = "failed: the carrier's on_doubt is \"fail\"";
        ++recovery.failed;
    } else {
        end.next = JobState::InDoubt;
        end.decision = "in doubt: find out whether it arrived, then retry or cancel it";
        ++recovery.held;
    }
    EndAttempt(end, now);
}

void JobLedger::EndRun(StoreTime now) {
    SQLite::Statement update(m_store.Connection(), "UPDATE run SET ended = ? WHERE key = ?");
    update.bind(1, ToNumber(now));
    update.bind(2, m_nRun);
    update.exec();
}

std::vector<std::int64_t> JobLedger::Due(const std::string& carrier, StoreTime now, int limit) {
    const auto most = static_cast<std::size_t>(std::max(limit, 0));
    std::vector<std::int64_t> keys;
    AppendDue(m_store, carrier, true, now, most, keys);
    if (keys.size() < most) {
        AppendDue(m_store, carrier, false, now, most, keys);
    }
    return keys;
}

// One look at the index for each carrier and urgency; a minimum over all queued jobs would read them all.
std::optional<StoreTime> JobLedger::NextDue() {
    StoreStatement first(m_store, "SELECT min(due) FROM job WHERE state = 0 AND carrier = ? AND urgent = ?");
    std::optional<StoreTime> next;
    for (const std::string& carrier : CarriersWithQueuedJobs()) {
        for (const int urgent : {0, 1}) {
            first->reset();
            first->bind(1, carrier);
            first->bind(2, urgent);
            first->executeStep();
            if (const std::optional<StoreTime> due = ReadTime(*first, 0); due && (!next || *due < *next)) {
                next = due;
            }
        }
    }
    return next;
}

std::vector<std::string> JobLedger::CarriersWithQueuedJobs() {
    StoreStatement rows(m_store, "SELECT carrier FROM tally WHERE state = ? AND jobs > 0 ORDER BY carrier");
    rows->bind(1, kQueued);
    std::vector<std::string> carriers;
    while (rows->executeStep()) {
        carriers.push_back(rows->getColumn(0).getString());
    }
    return carriers;
}

// One look at the index for each carrier and urgency.
std::vector<CarrierQueue> JobLedger::Queues() {
    StoreStatement rows(
        m_store,
        "SELECT carrier, jobs, "
        "(SELECT min(due) FROM job WHERE state = 0 AND job.carrier = tally.carrier AND urgent = 1), "
        "(SELECT min(due) FROM job WHERE state = 0 AND job.carrier = tally.carrier AND urgent = 0) "
        "FROM tally WHERE state = 0 AND jobs > 0 ORDER BY carrier");
    std::vector<CarrierQueue> queues;
    while (rows->executeStep()) {
        queues.push_back({rows->getColumn(0).getString(), rows->getColumn(1).getInt64(), ReadTime(*rows, 2),
                          ReadTime(*rows, 3)});
    }
    return queues;
}

// By itself SQLite would look through all queued jobs for a deadline: it does not know how few have one.
std::optional<StoreTime> JobLedger::NextDeadline() {
    StoreStatement first(m_store,
                         "SELECT min(deadline) FROM job INDEXED BY job_deadline "
                         "WHERE state = 0 AND deadline IS NOT NULL");
    first->executeStep();
    return ReadTime(*first, 0);
}

std::vector<ExpiredJob> JobLedger::ExpireUntried(const std::string& carrier, StoreTime before, StoreTime now,
                                                 int limit) {
    StoreStatement update(
        m_store,
        "UPDATE job SET state = 3, changed = ?1, decision = 'failed: ' || ?5 "
        "WHERE key IN (SELECT key FROM job WHERE state = 0 AND carrier = ?2 AND urgent IN (0, 1) AND due < "
        "?3 AND changed < ?3 AND deadline IS NULL LIMIT ?4) RETURNING id, carrier, recipient");
    update->bind(1, ToNumber(now));
    update->bind(2, carrier);
    update->bind(3, ToNumber(before));
    update->bind(4, limit);
    update->bind(5, kUntried);
    return ReadExpired(*update, kUntried);
}

std::vector<ExpiredJob> JobLedger::ExpireOverdue(StoreTime now, int limit) {
    StoreStatement update(m_store,
                          "UPDATE job SET state = 3, changed = ?1, decision = 'failed: ' || ?3 "
                          "WHERE key IN (SELECT key FROM job INDEXED BY job_deadline WHERE state = 0 AND "
                          "deadline <= ?1 LIMIT ?2) RETURNING id, carrier, recipient");
    update->bind(1, ToNumber(now));
    update->bind(2, limit);
    update->bind(3, kOverdue);
    return ReadExpired(*update, kOverdue);
}

std::vector<StoredJob> JobLedger::BeginAttempts(const std::vector<std::int64_t>& jobs, StoreTime now) {
    StoreWrite transaction(m_store);
    StoreStatement take(
        m_store,
        "UPDATE job SET state = 1, changed = ?, attempts = attempts + 1 WHERE key = ? AND state = 0");
    StoreStatement read(m_store, std::string("SELECT ") + kJobColumns +
                                     " FROM job JOIN submission ON submission.key = job.submission "
                                     "WHERE job.key = ?");
    StoreStatement insert(m_store, "INSERT INTO attempt(job, number, run, begun) VALUES(?, ?, ?, ?)");
    std::vector<StoredJob> taken;
    for (const std::int64_t key : jobs) {
        take->reset();
        take->bind(1, ToNumber(now));
        take->bind(2, key);
        if (take->exec() == 0) {
            continue;
        }
        read->reset();
        read->bind(1, key);
        read->executeStep();
        taken.push_back(ReadJob(*read));
        insert->reset();
        insert->bind(1, key);
        insert->bind(2, taken.back().attempts);
        insert->bind(3, m_nRun);
        insert->bind(4, ToNumber(now));
        insert->exec();
    }
    transaction.Commit();
    return taken;
}

JobContent JobLedger::Content(std::int64_t job) {
    StoreStatement read(m_store,
                        "SELECT submission.key, submission.subject, submission.text FROM submission "
                        "JOIN job ON job.submission = submission.key WHERE job.key = ?");
    read->bind(1, job);
    JobContent content;
    if (read->executeStep()) {
        content.subject = read->getColumn(1).getString();
        content.text = read->getColumn(2).getString();
        content.attachments = ReadAttachments(m_store, read->getColumn(0).getInt64());
    }
    return content;
}

int JobLedger::EndAttempts(const std::vector<AttemptEnd>& ends, StoreTime now) {
    StoreWrite transaction(m_store);
    int ended = 0;
    for (const AttemptEnd& end : ends) {
        ended += EndAttempt(end, now) ? 1 : 0;
    }
    transaction.Commit();
    return ended;
}

bool JobLedger::EndAttempt(const AttemptEnd& end, StoreTime now) {
    StoreStatement update(m_store,
                          "UPDATE attempt SET ended = ?, outcome = ?, reason = ?, decision = ? "
                          "WHERE job = ? AND ended IS NULL");
    update->bind(1, ToNumber(now));
    update->bind(2, static_cast<int>(end.outcome));
    update->bind(3, end.reason);
    update->bind(4, end.decision);
    update->bind(5, end.job);
    if (update->exec() == 0) {
        return false;
    }
    SetState(end, now);
    return true;
}

void JobLedger::SetState(const AttemptEnd& end, StoreTime now) {
    StoreStatement update(
        m_store,
        "UPDATE job SET state = ?, changed = ?, due = coalesce(?, due), reason = ?, decision = ? "
        "WHERE key = ?");
    update->bind(1, static_cast<int>(end.next));
    update->bind(2, ToNumber(now));
    BindTime(*update, 3, end.due);
    update->bind(4, end.reason);
    update->bind(5, end.decision);
    update->bind(6, end.job);
    update->exec();
}

}  // namespace kvhost
