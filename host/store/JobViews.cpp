#include "JobViews.h"

#include <SQLiteCpp/Statement.h>

#include "StoreRows.h"

namespace kvhost {

namespace {

std::string SelectJobs(const std::string& condition) {
    return std::string("SELECT ") + kJobColumns +
           " FROM job JOIN submission ON submission.key = job.submission WHERE " + condition;
}

std::vector<StoredJob> ReadJobs(SQLite::Statement& rows) {
    std::vector<StoredJob> jobs;
    while (rows.executeStep()) {
        jobs.push_back(ReadJob(rows));
    }
    return jobs;
}

/// How many jobs a filter by state and carrier would look at, by either index, and find.
struct Candidates {
    std::int64_t ofState = 0;
    std::int64_t ofCarrier = 0;
    std::int64_t ofBoth = 0;
};

Candidates CountCandidates(StoreDatabase& store, JobState state, const std::string& carrier) {
    SQLite::Statement counts(store.Connection(),
                             "SELECT total(iif(state = ?1, jobs, 0)), total(iif(carrier = ?2, jobs, 0)), "
                             "total(iif(state = ?1 AND carrier = ?2, jobs, 0)) FROM tally");
    counts.bind(1, static_cast<int>(state));
    counts.bind(2, carrier);
    counts.executeStep();
    return {counts.getColumn(0).getInt64(), counts.getColumn(1).getInt64(), counts.getColumn(2).getInt64()};
}

// A "+" keeps the database from using the index of that column. Which of the two leaves less to look at is something
// that only the tally knows.
std::string Condition(const JobFilter& filter, bool prefersCarrier) {
    std::string condition = "job.key < :before";
    if (filter.state) {
        condition += std::string(" AND ") + (prefersCarrier ? "+" : "") + "job.state = :state";
    }
    if (filter.carrier) {
        condition += std::string(" AND ") + (prefersCarrier ? "" : "+") + "job.carrier = :carrier";
    }
    return condition + " ORDER BY job.key DESC LIMIT :limit";
}

std::vector<Attempt> ReadAttempts(StoreDatabase& store, std::int64_t job) {
    SQLite::Statement rows(
        store.Connection(),
        "SELECT number, begun, ended, outcome, reason, decision FROM attempt WHERE job = ? ORDER BY number");
    rows.bind(1, job);
    std::vector<Attempt> attempts;
    while (rows.executeStep()) {
        Attempt attempt;
        attempt.number = rows.getColumn(0).getInt();
        attempt.begun = FromNumber(rows.getColumn(1).getInt64());
        attempt.ended = ReadTime(rows, 2);
        if (attempt.ended) {
            attempt.outcome = static_cast<AttemptOutcome>(rows.getColumn(3).getInt());
        }
        attempt.reason = rows.getColumn(4).getString();
        attempt.decision = rows.getColumn(5).getString();
        attempts.push_back(attempt);
    }
    return attempts;
}

std::vector<JobEvent> ReadEvents(StoreDatabase& store, std::int64_t job) {
    SQLite::Statement rows(store.Connection(), "SELECT at, text FROM event WHERE job = ? ORDER BY key");
    rows.bind(1, job);
    std::vector<JobEvent> events;
    while (rows.executeStep()) {
        events.push_back({FromNumber(rows.getColumn(0).getInt64()), rows.getColumn(1).getString()});
    }
    return events;
}

}  // namespace

std::vector<StoredJob> JobViews::List(const JobFilter& filter) {
    bool prefersCarrier = filter.carrier.has_value();
    if (filter.state && filter.carrier) {
        const Candidates candidates = CountCandidates(m_store, *filter.state, *filter.carrier);
        if (candidates.ofBoth == 0) {
            return {};
        }
        prefersCarrier = candidates.ofCarrier < candidates.ofState;
    }
    SQLite::Statement rows(m_store.Connection(), SelectJobs(Condition(filter, prefersCarrier)));
    rows.bind(":before", filter.before);
    rows.bind(":limit", filter.limit);
    if (filter.state) {
        rows.bind(":state", static_cast<int>(*filter.state));
    }
    if (filter.carrier) {
        rows.bind(":carrier", *filter.carrier);
    }
    return ReadJobs(rows);
}

std::vector<JobHistory> JobViews::Show(const std::string& name) {
    const StoreRead snapshot(m_store);
    SQLite::Statement byJob(m_store.Connection(), SelectJobs("job.id = ?"));
    byJob.bind(1, name);
    std::vector<StoredJob> jobs = ReadJobs(byJob);
    if (jobs.empty()) {
        SQLite::Statement bySubmission(m_store.Connection(),
                                       SelectJobs("submission.id = ? ORDER BY job.key"));
        bySubmission.bind(1, name);
        jobs = ReadJobs(bySubmission);
    }
    std::vector<JobHistory> histories;
    histories.reserve(jobs.size());
    for (const StoredJob& job : jobs) {
        histories.push_back(ReadHistory(job));
    }
    return histories;
}

JobHistory JobViews::ReadHistory(const StoredJob& job) {
    JobHistory history;
    history.job = job;
    SQLite::Statement content(m_store.Connection(),
                              "SELECT submission.key, submission.text FROM submission "
                              "JOIN job ON job.submission = submission.key WHERE job.key = ?");
    content.bind(1, job.key);
    if (content.executeStep()) {
        history.text = content.getColumn(1).getString();
        history.attachments = ReadAttachments(m_store, content.getColumn(0).getInt64());
    }
    history.attempts = ReadAttempts(m_store, job.key);
    history.events = ReadEvents(m_store, job.key);
    return history;
}

std::map<std::string, StateCounts> JobViews::CountByCarrier() {
    SQLite::Statement rows(m_store.Connection(), "SELECT carrier, state, jobs FROM tally WHERE jobs > 0");
    std::map<std::string, StateCounts> counts;
    while (rows.executeStep()) {
        counts[rows.getColumn(0).getString()][static_cast<JobState>(rows.getColumn(1).getInt())] =
            rows.getColumn(2).getInt64();
    }
    return counts;
}

StateCounts JobViews::Count() {
    StateCounts total;
    for (const auto& [carrier, counts] : CountByCarrier()) {
        for (const auto& [state, jobs] : counts) {
            total[state] += jobs;
        }
    }
    return total;
}

std::optional<StoreTime> JobViews::OldestQueued() {
    SQLite::Statement first(
        m_store.Connection(),
        "SELECT submission.submitted FROM job JOIN submission ON submission.key = job.submission "
        "WHERE job.state = 0 ORDER BY job.key LIMIT 1");
    return first.executeStep() ? ReadTime(first, 0) : std::nullopt;
}

}  // namespace kvhost
