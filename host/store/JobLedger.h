#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "DoubtPolicy.h"
#include "StoreDatabase.h"
#include "StoredJob.h"

namespace kvhost {

/// How an attempt ended and what follows from it.
struct AttemptEnd {
    std::int64_t job = 0;
    AttemptOutcome outcome = AttemptOutcome::Failed;
    std::string reason;
    JobState next = JobState::Failed;  ///< Delivered, Failed or Queued
    std::optional<StoreTime> due;      ///< when the next attempt may begin; needed for Queued
    std::string decision;              ///< why `next`, in words
};

/// What a start found of the run before it.
struct Recovery {
    bool hasCrashed = false;  ///< the run before did not end by itself
    int retried = 0;          ///< jobs in doubt that go out again
    int held = 0;             ///< jobs in doubt that an operator has to decide
    int failed = 0;           ///< jobs in doubt that count as failed
    int quarantined = 0;      ///< jobs held because they were under way in too many crashes
};

/// A queued job that was given up because its time had come. Immutable value.
struct ExpiredJob {
    std::string id;
    std::string carrier;
    std::string recipient;
    std::string why;
};

/// The queued jobs of one carrier, in short.
struct CarrierQueue {
    std::string carrier;
    std::int64_t jobs = 0;
    std::optional<StoreTime> urgentDue;    ///< when the first urgent one is due; nothing when there is none
    std::optional<StoreTime> ordinaryDue;  ///< likewise for the others
};

/// The book of the running host: what is due, what is handed over, and how it ended. Every change is on disk when the
/// call returns. The caller holds the StoreLock. One thread at a time, as its database.
class JobLedger {
public:
    /// Crashes after which a job that was under way in all of them is held.
    static constexpr int kQuarantineAfter = 3;

    explicit JobLedger(StoreDatabase& store) : m_store(store) {}

    /// Begins a run: settles what the run before left with the driver, by `policy` of each job's carrier, and notes
    /// the start. Call once, before all else.
    Recovery BeginRun(StoreTime now, const std::function<DoubtPolicy(const std::string& carrier)>& policy);
    /// Notes that the run ended by itself: jobs that are still handed over do not count as crashed.
    void EndRun(StoreTime now);

    /// The keys of queued jobs of `carrier` that are due: the urgent ones first, then by their due time. At most
    /// `limit`.
    std::vector<std::int64_t> Due(const std::string& carrier, StoreTime now, int limit);
    /// When the next queued job of any carrier becomes due; nothing when none is queued.
    std::optional<StoreTime> NextDue();
    /// The carriers that have queued jobs.
    std::vector<std::string> CarriersWithQueuedJobs();
    /// The same with what waits there, in the order of their names.
    std::vector<CarrierQueue> Queues();
    /// The first deadline of the queued jobs; nothing when none has one.
    std::optional<StoreTime> NextDeadline();
    /// Fails the queued jobs whose deadline has passed, at most `limit`; answers which.
    std::vector<ExpiredJob> ExpireOverdue(StoreTime now, int limit);
    /// Fails queued jobs of `carrier` without a deadline that were due before `before` and have waited since then, at
    /// most `limit`; answers which.
    std::vector<ExpiredJob> ExpireUntried(const std::string& carrier, StoreTime before, StoreTime now,
                                          int limit);

    /// Writes the next attempt of each job that is still queued and makes it handed over; one transaction. Answers
    /// those jobs, in the order given: what an operator has taken back meanwhile is left out.
    std::vector<StoredJob> BeginAttempts(const std::vector<std::int64_t>& jobs, StoreTime now);
    /// What is to be handed over for the job.
    JobContent Content(std::int64_t job);
    /// Ends the open attempt of each job, and sets what follows, in one transaction. A job without an open attempt is
    /// left as it is: its outcome stands. Answers how many were ended.
    int EndAttempts(const std::vector<AttemptEnd>& ends, StoreTime now);

private:
    void SettleOne(const StoredJob& job, StoreTime now, bool hasCrashed, DoubtPolicy policy,
                   Recovery& recovery);
    bool EndAttempt(const AttemptEnd& end, StoreTime now);
    void SetState(const AttemptEnd& end, StoreTime now);

    StoreDatabase& m_store;
    std::int64_t m_nRun = 0;  ///< 0 before BeginRun
};

}  // namespace kvhost
