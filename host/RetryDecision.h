#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "RetryPolicy.h"
#include "StoredJob.h"

namespace kvhost {

/// What a failure tells about the next attempt.
enum class FailureClass {
    Passing,    ///< the server says that a later attempt may succeed (RFC 3463: 4.x.x)
    Lasting,    ///< the server says that it will not (5.x.x)
    Transport,  ///< no conversation, or one that broke off
    Unclear     ///< nothing of the kind can be told from the reason
};

/// "passing", "lasting", "transport", "unclear".
const char* FailureClassName(FailureClass failure);

/// The class of a failed attempt by the driver's reason for it: the carrier's own texts first, then an enhanced status
/// code at its beginning, then texts that drivers and servers are known to use.
FailureClass ClassOf(std::string_view reason, const RetryPolicy& policy);

/// What follows a failed attempt.
struct RetryDecision {
    std::optional<StoreTime> due;  ///< of the next attempt; nothing when the job has failed for good
    std::string words;             ///< why, for people
};

/// Decides about `job`, of which the attempt number job.attempts has just failed with `failure`. `chance`: from 0 to 1,
/// the share of the jitter.
RetryDecision DecideRetry(const RetryPolicy& policy, const StoredJob& job, FailureClass failure,
                          StoreTime now, double chance);

}  // namespace kvhost
