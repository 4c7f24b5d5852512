#pragma once

#include <vector>

#include "JobLedger.h"
#include "LogSink.h"
#include "RunObserver.h"

namespace kvhost {

/// Tells log and observer of jobs that were given up without an attempt: for each of them somebody was not told.
inline void TellExpired(const std::vector<ExpiredJob>& jobs, LogSink& log, RunObserver& observer) {
    for (const ExpiredJob& job : jobs) {
        log.Warn("job " + job.id + " to " + job.recipient + " failed: " + job.why);
        observer.JobExpired(job.carrier);
    }
}

}  // namespace kvhost
