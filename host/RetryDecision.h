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

/// A class and what told it. Immutable value.
struct FailureSign {
    FailureClass failure = FailureClass::Unclear;
    /// For people, such as "the server's code 4.2.2" or "the server's words \"try again\""; free of control characters
    /// and empty when nothing told the class.
    std::string sign;
};

/// Judges a failed attempt by the driver's reason for it. The first of these that speaks decides:
///  1. the carrier's own texts, the lasting ones first;
///  2. an enhanced status code at the beginning of a line (RFC 3463): 4.x.x is passing, 5.x.x lasting, 2.x.x unclear;
///  3. the reply code at the beginning of a line, which a driver leaves on all lines of a reply but the first;
///  4. the driver's own texts about connections;
///  5. words that servers without enhanced codes are known to use, the passing ones first.
/// Lines may end in CR, LF or both, also written out as "<CR><LF>".
FailureSign JudgeFailure(std::string_view reason, const RetryPolicy& policy);

/// The class alone of JudgeFailure.
FailureClass ClassOf(std::string_view reason, const RetryPolicy& policy);

/// What follows a failed attempt.
struct RetryDecision {
    std::optional<StoreTime> due;  ///< of the next attempt; nothing when the job has failed for good
    std::string words;             ///< why, for people
};

/// Decides about `job`, of which the attempt number job.attempts has just failed with `failure`. `chance`: from 0 to 1,
/// the share of the jitter: 0 for the shortest wait, 1 for the longest. `sign`, as in FailureSign, is told in the words
/// unless it is empty.
///
/// `due` lies after `now` and before the job's end, which is its deadline or else its submission and the lifetime.
RetryDecision DecideRetry(const RetryPolicy& policy, const StoredJob& job, FailureClass failure,
                          StoreTime now, double chance, std::string_view sign = {});

}  // namespace kvhost
