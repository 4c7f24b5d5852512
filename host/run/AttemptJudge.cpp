#include "AttemptJudge.h"

namespace kvhost {

namespace {

AttemptReport NewReport(const StoredJob& job, StoreTime now) {
    AttemptReport report;
    report.job = job;
    report.number = job.attempts;
    report.begun = job.changed;
    report.ended = now;
    return report;
}

}  // namespace

AttemptReport AttemptJudge::Judge(const StoredJob& job, const Verdict& verdict, const FailureSign& sign,
                                  const RetryPolicy& policy, StoreTime now) {
    AttemptReport report = NewReport(job, now);
    if (verdict.isDelivered) {
        report.outcome = AttemptOutcome::Delivered;
        report.next = JobState::Delivered;
        report.decision = "delivered: the server took the message";
        return report;
    }
    const double chance = std::uniform_real_distribution<double>(0, 1)(m_random);
    const RetryDecision decision = DecideRetry(policy, job, sign.failure, now, chance, sign.sign);
    report.reason = verdict.reason;
    report.due = decision.due;
    report.next = decision.due ? JobState::Queued : JobState::Failed;
    report.decision = decision.words;
    return report;
}

AttemptReport AttemptJudge::GiveUp(const StoredJob& job, const std::string& reason, StoreTime now) {
    AttemptReport report = NewReport(job, now);
    report.reason = reason;
    report.decision = "failed: it cannot be handed over";
    return report;
}

AttemptReport AttemptJudge::PutBack(const StoredJob& job, const std::string& reason, StoreTime now,
                                    StoreTime due) {
    AttemptReport report = NewReport(job, now);
    report.reason = reason;
    report.next = JobState::Queued;
    report.due = due;
    report.decision = "queued again: it never was with the driver";
    return report;
}

}  // namespace kvhost
