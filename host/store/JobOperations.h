#pragma once

#include <optional>
#include <string>
#include <vector>

#include "StoreDatabase.h"
#include "StoredJob.h"

namespace kvhost {

/// What an operator can do to a job.
enum class JobOperation {
    Retry,    ///< queue it again, due at once; the deadline no longer counts, unless it was queued already
    Hold,     ///< keep it back until it is released
    Release,  ///< queue it again, due when it was due before
    Cancel    ///< end it; a job that is with the driver cannot be called back
};

/// The states that a job must have for the operation.
const std::vector<JobState>& StatesFor(JobOperation operation);

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
/// noted in the history of each job. One thread at a time, as its database.
///
/// A name is that of a job or of a submission; the latter stands for all of its jobs. An unknown name gives one result
/// that says so.
class JobOperations {
public:
    explicit JobOperations(StoreDatabase& store) : m_store(store) {}

    /// Does it to the jobs of every name, in their order.
    std::vector<OperationResult> Apply(JobOperation operation, const std::vector<std::string>& names,
                                       StoreTime now);

    std::vector<OperationResult> Retry(const std::string& name, StoreTime now) {
        return Apply(JobOperation::Retry, {name}, now);
    }
    std::vector<OperationResult> Hold(const std::string& name, StoreTime now) {
        return Apply(JobOperation::Hold, {name}, now);
    }
    std::vector<OperationResult> Release(const std::string& name, StoreTime now) {
        return Apply(JobOperation::Release, {name}, now);
    }
    std::vector<OperationResult> Cancel(const std::string& name, StoreTime now) {
        return Apply(JobOperation::Cancel, {name}, now);
    }

    /// Deletes jobs that ended (delivered, failed or cancelled; only those of `state` when it is given) before
    /// `before`, with their history, and submissions without a job. At most `limit` jobs.
    PurgeResult Purge(StoreTime before, std::optional<JobState> state, int limit);

private:
    StoreDatabase& m_store;
};

}  // namespace kvhost
