#pragma once

#include <random>

#include "RetryDecision.h"
#include "RunObserver.h"
#include "Verdict.h"

namespace kvhost {

/// Turns what became of an attempt into a report with the decision about the job. One thread at a time.
class AttemptJudge {
public:
    AttemptJudge() : m_random(std::random_device()()) {}

    /// The driver had the job, or was offered it. `sign`: of the verdict's reason; it counts only for a failure.
    AttemptReport Judge(const StoredJob& job, const Verdict& verdict, const FailureSign& sign,
                        const RetryPolicy& policy, StoreTime now);
    /// The job cannot be handed over, now or later: it has failed.
    static AttemptReport GiveUp(const StoredJob& job, const std::string& reason, StoreTime now);
    /// The job was not handed over after all, through no fault of its own: it is queued again, due at `due`.
    static AttemptReport PutBack(const StoredJob& job, const std::string& reason, StoreTime now,
                                 StoreTime due);

private:
    std::minstd_rand m_random;
};

}  // namespace kvhost
