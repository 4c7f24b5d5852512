#include "Delivery.h"

#include <deque>
#include <utility>

#include "KvconCriticalSection.h"
#include "Verdict.h"

namespace kvhost {

namespace {

/// How often the return queue is looked at: the driver has no way to say that something came back.
constexpr std::chrono::milliseconds kLook{10};

}  // namespace

Delivery::Delivery(DriverLibrary& library, const Batch& batch, Outcomes& outcomes, LogSink& log,
                   std::map<std::string, std::string> settings, const DeliveryLimits& limits)
    : m_batch(batch),
      m_outcomes(outcomes),
      m_log(log),
      m_limits(limits),
      m_reports(log),
      m_thread(
          {library, {log, m_reports, m_returned}, batch, outcomes, log, std::move(settings), limits.tick}) {}

Delivery::End Delivery::Run(const std::function<void(const Tally&)>& onChange) {
    Tally shown;
    bool isDone = false;
    while (!isDone) {
        isDone = m_thread.WaitUntilDone(kLook);
        Collect();
        if (const Tally tally = m_outcomes.Count(); !(tally == shown)) {
            onChange(tally);
            shown = tally;
        }
        const auto now = Clock::now();
        Supervise(now);
        if (!isDone && IsStuck(now)) {
            return End::Stuck;
        }
    }
    return m_thread.IsStarted() ? End::Finished : End::NotStarted;
}

void Delivery::Collect() {
    std::deque<KvMessageFile*> returned;
    {
        KvconCriticalSection section(&m_returned.m_lock, true, true, false);
        returned.swap(m_returned.m_dqMsgFiles);
    }
    for (const KvMessageFile* file : returned) {
        NoteReturned(file);
    }
}

void Delivery::NoteReturned(const KvMessageFile* returned) {
    const HostMessageFile* file = m_batch.Find(returned);
    if (file == nullptr) {
        m_log.Warn("the driver handed back a file that it was never given");
        return;
    }
    const Verdict verdict = VerdictOn(*file, file->FailureReason());
    const OutcomeStatus status = verdict.isDelivered ? OutcomeStatus::Delivered : OutcomeStatus::Failed;
    if (!m_outcomes.NoteEnded(file->OutcomeIndex(), status, verdict.reason)) {
        m_log.Warn("the driver handed back " + file->m_strMsgFileID + " although it had ended before");
        return;
    }
    m_log.Tell(file->m_strMsgFileID + " to " + file->m_strRecipient + ": " + StatusName(status) +
               (verdict.reason.empty() ? "" : ": " + verdict.reason));
}

void Delivery::Supervise(Clock::time_point now) {
    if (m_bFinishing) {
        return;
    }
    if (m_nStopRequests > 0 && !m_bStopping) {
        BeginStop(now);
    }
    if (IsAllBack()) {
        Finish(now, "everything is back");
    } else if (IsOverdue(now)) {
        Finish(now, "the time is up");
    } else if (m_bStopping && (m_nStopRequests > 1 || now - m_timeStop >= m_limits.afterStop)) {
        Finish(now, "stopped");
    }
}

void Delivery::BeginStop(Clock::time_point now) {
    m_log.Tell("a stop is requested");
    m_bStopping = true;
    m_timeStop = now;
    m_thread.StopHandingOver();
}

void Delivery::Finish(Clock::time_point now, const char* why) {
    m_log.Tell(why);
    m_bFinishing = true;
    m_timeFinish = now;
    m_thread.Finish();
}

bool Delivery::IsAllBack() const {
    return m_thread.IsHandOverDone() && m_outcomes.Count().Of(OutcomeStatus::UnderWay) == 0;
}

bool Delivery::IsOverdue(Clock::time_point now) const {
    return m_limits.overall.count() > 0 && now - m_timeStart >= m_limits.overall;
}

bool Delivery::IsStuck(Clock::time_point now) const {
    return m_bFinishing && now - m_timeFinish >= m_limits.cleanUp;
}

}  // namespace kvhost
