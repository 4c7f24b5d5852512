#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "Duration.h"
#include "StoredJob.h"

namespace kvhost {

/// An attempt that has ended, with what was decided about its job. Immutable value.
struct AttemptReport {
    StoredJob job;   ///< as it was handed over
    int number = 0;  ///< of the attempt, from 1
    StoreTime begun;
    StoreTime ended;
    AttemptOutcome outcome = AttemptOutcome::Failed;
    std::string reason;
    JobState next = JobState::Failed;
    std::optional<StoreTime> due;  ///< of the next attempt, when there will be one
    std::string decision;
};

/// Who wants to know what the daemon does. Every call comes after the change is on disk, on the one thread that runs
/// the jobs, which waits meanwhile; JobExpired alone may come on any thread. What an observer throws is logged and
/// forgotten.
class RunObserver {
public:
    virtual ~RunObserver() = default;

    /// The driver has the job now. `waited`: since it was submitted or, for a further attempt, since it was due.
    virtual void JobHandedOver(const StoredJob& job, Milliseconds waited) {
        (void)job;
        (void)waited;
    }
    virtual void AttemptEnded(const AttemptReport& report) { (void)report; }
    /// A queued job of the carrier was given up, because its deadline or its lifetime had come.
    virtual void JobExpired(const std::string& carrier) { (void)carrier; }
    /// A change of the store took so long, the sync of the disk included.
    virtual void StoreWritten(std::chrono::microseconds took) { (void)took; }
};

}  // namespace kvhost
