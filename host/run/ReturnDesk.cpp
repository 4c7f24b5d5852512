#include "ReturnDesk.h"

#include <deque>

#include "KvconCriticalSection.h"

namespace kvhost {

namespace {

/// Short waits for an announced file; then it is left to the next round.
constexpr int kMostHurry = 50;

}  // namespace

void ReturnDesk::Collect(StoreTime now) {
    std::deque<KvMessageFile*> returned;
    {
        KvconCriticalSection section(&m_returned.m_lock, true, true, false);
        returned.swap(m_returned.m_dqMsgFiles);
    }
    if (!returned.empty()) {
        m_nHurry = 0;
    }
    for (const KvMessageFile* file : returned) {
        NoteReturned(file, now);
    }
    for (const DriverLoop::Refusal& refusal : m_state.driver.TakeRefusals()) {
        NoteRefused(refusal, now);
    }
    m_state.files.Tidy(RunState::Clock::now());
}

bool ReturnDesk::ExpectsMore() {
    if (m_nComing <= m_nCollected) {
        m_nHurry = 0;
        return false;
    }
    return m_nHurry < kMostHurry && ++m_nHurry > 0;
}

// A pointer that is not known is not followed: whatever it points to was never ours, or is ours no more.
void ReturnDesk::NoteReturned(const KvMessageFile* returned, StoreTime now) {
    const JobFile* file = m_state.files.Find(returned);
    if (file == nullptr) {
        const bool hasComeBack = m_state.files.HasComeBack(returned);
        m_nCollected += hasComeBack && !returned->m_bForDeletion ? 1 : 0;
        m_state.log.Warn(hasComeBack ? "the driver handed back " + returned->m_strMsgFileID +
                                           " although it had ended before"
                                     : "the driver handed back a file that it does not have");
        return;
    }
    m_nCollected += file->m_bForDeletion ? 0 : 1;
    Verdict verdict = VerdictOn(*file, file->FailureReason());
    // A server may repeat what it was told.
    verdict.reason = m_state.secrets.Mask(verdict.reason);
    Conclude(*file, verdict, now);
    Release(*file);
}

void ReturnDesk::NoteRefused(const DriverLoop::Refusal& refusal, StoreTime now) {
    const JobFile* file = m_state.files.Find(refusal.file);
    if (file == nullptr) {
        m_state.log.Warn("the driver refused a file that it had handed back");
        return;
    }
    if (refusal.wasOffered) {
        Conclude(*file, {false, refusal.reason}, now);
    } else {
        m_state.outcomes.Add(AttemptJudge::PutBack(file->Job(), refusal.reason, now, now));
    }
    Release(*file);
}

void ReturnDesk::Conclude(const JobFile& file, const Verdict& verdict, StoreTime now) {
    const StoredJob& job = file.Job();
    const RetryPolicy& policy = PolicyOf(job.carrier);
    const FailureSign sign = verdict.isDelivered ? FailureSign() : JudgeFailure(verdict.reason, policy);
    const bool hasServerSpoken =
        sign.failure == FailureClass::Passing || sign.failure == FailureClass::Lasting;
    if (m_bCleaningUp && !verdict.isDelivered && !hasServerSpoken) {
        m_state.log.Warn("job " + job.id + " is in doubt: the clean-up handed it back: " + verdict.reason);
        return;
    }
    NoteHealth(file, verdict, sign);
    AttemptReport report = m_state.judge.Judge(job, verdict, sign, policy, now);
    m_state.log.Tell(
        "job " + job.id + " to " + job.recipient + ", attempt " + std::to_string(report.number) +
        (verdict.isDelivered ? ": delivered" : " failed: " + report.reason + "; " + report.decision));
    m_state.outcomes.Add(std::move(report));
}

void ReturnDesk::NoteHealth(const JobFile& file, const Verdict& verdict, const FailureSign& sign) {
    const std::string& carrier = file.Job().carrier;
    if (sign.failure == FailureClass::Transport && !verdict.isDelivered) {
        m_state.carriers.Failed(carrier, file.Made(), verdict.reason, RunState::Clock::now());
    } else if (verdict.isDelivered || sign.failure != FailureClass::Unclear) {
        m_state.carriers.Reached(carrier, file.Made(), RunState::Clock::now());
    }
}

void ReturnDesk::Release(const JobFile& file) {
    const auto now = RunState::Clock::now();
    if (const auto carrier = m_state.slices.NoteBack(file.Slice(), now)) {
        m_state.carriers.SliceBack(*carrier);
    }
    m_state.files.NoteBack(file, now);
}

const RetryPolicy& ReturnDesk::PolicyOf(const std::string& carrier) const {
    static const RetryPolicy kStandard;
    const auto found = m_state.config->carriers.find(carrier);
    return found == m_state.config->carriers.end() ? kStandard : found->second.retry;
}

}  // namespace kvhost
