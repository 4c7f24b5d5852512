#include "RetryDecision.h"

#include <algorithm>
#include <cmath>

#include "Duration.h"
#include "TimeText.h"

namespace kvhost {

namespace {

constexpr Milliseconds kShortestWait{1};
constexpr Milliseconds kLongestWait{10LL * 365 * 86400000};

std::string Trouble(FailureClass failure, std::string_view sign) {
    const std::string trouble = std::string(FailureClassName(failure)) + " trouble";
    return sign.empty() ? trouble : trouble + ": " + std::string(sign);
}

/// The exponent of a late attempt makes the product infinite, which the comparison with the longest wait survives.
double WaitWithoutJitter(const RetryPolicy& policy, int attempts) {
    const double first = static_cast<double>(policy.first.count());
    const double longest = static_cast<double>(std::min(policy.longest, kLongestWait).count());
    return std::min(first * std::pow(policy.factor, std::max(attempts, 1) - 1), longest);
}

Milliseconds WaitOf(const RetryPolicy& policy, int attempts, double chance) {
    const double share = policy.jitter * (2 * std::clamp(chance, 0.0, 1.0) - 1);
    const Milliseconds wait(std::llround(WaitWithoutJitter(policy, attempts) * (1 + share)));
    return std::max(wait, kShortestWait);
}

/// The moment at which no attempt begins any more; nothing when there is none.
std::optional<StoreTime> EndOf(const RetryPolicy& policy, const StoredJob& job) {
    if (job.deadline) {
        return job.deadline;
    }
    if (policy.lifetime <= Milliseconds(0)) {
        return std::nullopt;
    }
    return job.submitted + std::min(policy.lifetime, kLongestWait);
}

bool IsUsedUp(int limit, int attempts) {
    return limit > 0 && attempts >= limit;
}

/// Why there is no further attempt, whatever the time; empty when there may be one.
std::string WhyNoMore(const RetryPolicy& policy, int attempts, FailureClass failure) {
    if (failure == FailureClass::Lasting) {
        return "a further attempt would fail likewise";
    }
    if (IsUsedUp(policy.attempts, attempts)) {
        return "the carrier allows " + std::to_string(policy.attempts) + " in all";
    }
    if (failure == FailureClass::Unclear && IsUsedUp(policy.unclearAttempts, attempts)) {
        return "the carrier allows " + std::to_string(policy.unclearAttempts) +
               " when the trouble is unclear";
    }
    return {};
}

std::string WhyTooLate(const StoredJob& job, StoreTime end, StoreTime due) {
    return "the next one would begin at " + TimeText(due) + ", not before the " +
           (job.deadline ? "deadline " : "end of its lifetime ") + TimeText(end);
}

std::string WhenGivenUp(const std::optional<StoreTime>& end) {
    return end ? "given up after " + TimeText(*end) : "tried for ever";
}

}  // namespace

RetryDecision DecideRetry(const RetryPolicy& policy, const StoredJob& job, FailureClass failure,
                          StoreTime now, double chance, std::string_view sign) {
    const std::string failed =
        "attempt " + std::to_string(job.attempts) + " failed, " + Trouble(failure, sign);
    const std::string noMore = WhyNoMore(policy, job.attempts, failure);
    if (!noMore.empty()) {
        return {std::nullopt, "failed for good (" + failed + "); " + noMore};
    }
    const Milliseconds wait = WaitOf(policy, job.attempts, chance);
    const StoreTime due = now + wait;
    const std::optional<StoreTime> end = EndOf(policy, job);
    if (end && due >= *end) {
        return {std::nullopt, "failed for good (" + failed + "); " + WhyTooLate(job, *end, due)};
    }
    return {due, "tried again in " + DurationText(wait) + " (" + failed + "); " + WhenGivenUp(end)};
}

}  // namespace kvhost
