#pragma once

#include <optional>
#include <string>
#include <vector>

#include "StoreDatabase.h"
#include "StoredJob.h"

namespace kvhost {

/// What became of an operator's wish for one job.
struct OperationResult {
    std::string id;  ///< of the job
    bool isDone = false;
    std::string why;  ///< why not; empty when it was done
};

/// What a purge took away.
struct PurgeResult {
    int jobs = 0;
    int submissions = 0;  ///< those of which no job was left
};

/// What an operator does to jobs, beside a running host or without one. Each call is one transaction; what was done is
/// noted in the history of the job. One thread at a time, as its database.
///
/// A name is that of a job or of a submission; the latter stands for all of its jobs. An unknown name gives one result
/// that says so.
class JobOperations {
public:
    explicit JobOperations(StoreDatabase& store) : m_store(store) {}

    /// Queues jobs again that are failed, in doubt or cancelled, due at once; the deadline no longer counts.
    std::vector<OperationResult> Retry(const std::string& name, StoreTime now);
    /// Keeps queued jobs back until they are released.
    std::vector<OperationResult> Hold(const std::string& name, StoreTime now);
    /// Queues held jobs again, due when they were due before.
    std::vector<OperationResult> Release(const std::string& name, StoreTime now);
    /// Ends jobs that are queued, held or in doubt. A job that is with the driver cannot be called back.
    std::vector<OperationResult> Cancel(const std::string& name, StoreTime now);

    /// Deletes jobs that ended (delivered, failed or cancelled; only those of `state` when it is given) before
    /// `before`, with their history, and submissions without a job. At most `limit` jobs.
    PurgeResult Purge(StoreTime before, std::optional<JobState> state, int limit);

private:
    struct Rule;
    std::vector<OperationResult> Apply(const std::string& name, StoreTime now, const Rule& rule);

    StoreDatabase& m_store;
};

}  // namespace kvhost
