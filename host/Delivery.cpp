#include "Delivery.h"

#include <algorithm>
#include <deque>
#include <limits>
#include <memory>
#include <utility>

#include "KvconCriticalSection.h"
#include "Verdict.h"

namespace kvhost {

namespace {

/// How often the return queue is looked at: a driver has no way to say that something came back but the status text.
constexpr std::chrono::milliseconds kLook{10};
/// Between two looks for a file that was announced.
constexpr std::chrono::milliseconds kMoment{1};
/// Short waits for an announced file; then it is left to the next look.
constexpr int kMostHurry = 50;

/// Jobs of a slice at most, of a carrier that is fast enough. Nothing of a run outlives it, so a slice may be large.
constexpr int kJobsPerSlice = 1000;

/// The feed bounds what waits, so nothing else bounds what goes out to a carrier on trial.
SliceLimits LimitsOf(const HostConfig& config) {
    SliceLimits limits = SliceLimitsOf(config);
    limits.jobsPerSlice = kJobsPerSlice;
    limits.jobsInAll = std::numeric_limits<int>::max();
    return limits;
}

}  // namespace

Delivery::Delivery(DriverLibrary& library, JobFeed& feed, Outcomes& outcomes, LogSink& log,
                   const HostConfig& config, const DeliveryLimits& limits,
                   const std::atomic<int>& stopRequests)
    : m_feed(feed),
      m_outcomes(outcomes),
      m_log(log),
      m_limits(limits),
      m_nStopRequests(stopRequests),
      m_reports(log),
      m_slices(LimitsOf(config)),
      m_driver({library, {log, m_reports, m_returned}, log, config.driverSettings, limits.tick, [this] {
                    Wake();
                }}) {}

Delivery::End Delivery::Run(const std::function<void(const Tally&)>& onChange) {
    Tally shown;
    bool isDone = false;
    while (!isDone) {
        Wait();
        isDone = m_driver.Look().isDone;
        Collect();
        const auto now = Clock::now();
        HandOver(now);
        if (const Tally tally = m_outcomes.Count(); !(tally == shown)) {
            onChange(tally);
            shown = tally;
        }
        Supervise(now);
        if (!isDone && IsStuck(now)) {
            Collect();
            return End::Stuck;
        }
    }
    m_feed.Stop();
    return m_driver.Look().isStarted ? End::Finished : End::NotStarted;
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
    for (const DriverLoop::Refusal& refusal : m_driver.TakeRefusals()) {
        NoteRefused(refusal);
    }
    m_files.Tidy(Clock::now());
}

// A pointer that is not known is not followed: whatever it points to was never ours, or is ours no more.
void Delivery::NoteReturned(const KvMessageFile* returned) {
    const HostMessageFile* file = m_files.Find(returned);
    if (file == nullptr) {
        m_log.Warn(m_files.HasComeBack(returned) ? "the driver handed back " + returned->m_strMsgFileID +
                                                       " although it had ended before"
                                                 : "the driver handed back a file that it does not have");
        return;
    }
    ++m_nCollected;
    m_nHurry = 0;
    const Verdict verdict = VerdictOn(*file, file->FailureReason());
    const OutcomeStatus status = verdict.isDelivered ? OutcomeStatus::Delivered : OutcomeStatus::Failed;
    m_outcomes.NoteEnded(file->OutcomeIndex(), status, verdict.reason);
    m_log.Tell(file->m_strMsgFileID + " to " + file->m_strRecipient + ": " + StatusName(status) +
               (verdict.reason.empty() ? "" : ": " + verdict.reason));
    Release(*file, verdict.isDelivered);
}

void Delivery::NoteRefused(const DriverLoop::Refusal& refusal) {
    const HostMessageFile* file = m_files.Find(refusal.file);
    if (file == nullptr) {
        m_log.Warn("the driver refused a file that it had handed back");
        return;
    }
    m_outcomes.NoteEnded(file->OutcomeIndex(),
                         refusal.wasOffered ? OutcomeStatus::Rejected : OutcomeStatus::NotSent,
                         refusal.wasOffered ? refusal.reason : kNotHandedOver);
    Release(*file, false);
}

void Delivery::Release(const HostMessageFile& file, bool isDelivered) {
    const auto now = Clock::now();
    m_trials.NoteBack(file.Slice(), file.m_strCarrierName, isDelivered);
    if (m_slices.NoteBack(file.Slice(), now)) {
        m_trials.End(file.Slice(), file.m_strCarrierName);
    }
    m_files.NoteBack(file, now);
}

void Delivery::HandOver(Clock::time_point now) {
    const bool hasRoom = m_slices.HasRoom(now);
    if (!hasRoom || m_bStopping || m_bFinishing || !m_driver.Look().isReady) {
        return;
    }
    const auto next = [this](const std::string& carrier, int limit) { return NextJobs(carrier, limit); };
    for (const SliceScheduler::TickLoad& load : m_slices.Plan(Demands(), next, now)) {
        HandOver(load);
    }
}

std::vector<CarrierDemand> Delivery::Demands() const {
    std::vector<CarrierDemand> demands;
    for (const std::string& carrier : m_feed.Carriers()) {
        const std::optional<int> trial = m_trials.Size(carrier);
        if (!trial || m_slices.UnderWay(carrier) == 0) {
            demands.push_back({carrier, false, trial});
        }
    }
    return demands;
}

/// When little is left, what goes out at once is half of it, so that all connections end at about the same time.
std::vector<std::int64_t> Delivery::NextJobs(const std::string& carrier, int limit) const {
    std::vector<std::int64_t> jobs = m_feed.Next(carrier, limit);
    const bool isOnTrial = m_trials.Size(carrier).has_value();
    const std::size_t few = static_cast<std::size_t>(CarrierTrials::kAtFirst);
    if (!isOnTrial && jobs.size() > few) {
        jobs.resize(std::min(jobs.size(), std::max(few, m_feed.CountOf(carrier) / 2)));
    }
    return jobs;
}

void Delivery::HandOver(const SliceScheduler::TickLoad& load) {
    DriverLoop::TickLoad all;
    for (const Slice& slice : load) {
        const DriverLoop::TickLoad files = FilesOf(slice);
        if (!files.empty()) {
            m_slices.Begin(slice, static_cast<int>(files.size()), Clock::now());
            m_trials.Begin(slice.id);
            all.insert(all.end(), files.begin(), files.end());
        }
    }
    if (!all.empty()) {
        m_driver.HandOver({std::move(all)});
    }
}

/// The last file of the slice that is about to come back wakes us.
DriverLoop::TickLoad Delivery::FilesOf(const Slice& slice) {
    DriverLoop::TickLoad files;
    const auto away = std::make_shared<std::atomic<long>>(0);
    for (JobFeed::Files& job : m_feed.Take(slice.carrier, slice.jobs.size())) {
        for (std::unique_ptr<HostMessageFile>& file : job) {
            file->GoWith(slice.id, [this, away] {
                ++m_nComing;
                if (--*away == 0) {
                    Wake();
                }
            });
            m_outcomes.NoteAccepted(file->OutcomeIndex());
            files.push_back(&m_files.Add(std::move(file)));
        }
    }
    *away = static_cast<long>(files.size());
    return files;
}

void Delivery::Supervise(Clock::time_point now) {
    if (m_bFinishing) {
        return;
    }
    if (m_nStopRequests > 0 && !m_bStopping) {
        BeginStop(now);
    }
    if (!m_driver.Look().error.empty()) {
        Finish(now, "the driver broke off");
    } else if (IsAllBack()) {
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
    m_feed.Stop();
    m_driver.TakeBack();
}

void Delivery::Finish(Clock::time_point now, const char* why) {
    m_log.Tell(why);
    m_bFinishing = true;
    m_timeFinish = now;
    m_feed.Stop();
    m_driver.TakeBack();
    m_driver.Finish();
}

bool Delivery::IsAllBack() const {
    return m_feed.IsThrough() && m_files.Count() == 0;
}

bool Delivery::IsOverdue(Clock::time_point now) const {
    return m_limits.overall.count() > 0 && now - m_timeStart >= m_limits.overall;
}

bool Delivery::IsStuck(Clock::time_point now) const {
    return m_bFinishing && now - m_timeFinish >= m_limits.cleanUp;
}

void Delivery::Wake() {
    const std::lock_guard<std::mutex> guard(m_mutex);
    m_bNews = true;
    m_changed.notify_one();
}

void Delivery::Wait() {
    const auto limit = TimeToWait();
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait_for(lock, limit, [this] { return m_bNews; });
    m_bNews = false;
}

/// The time to the next look.
Delivery::Clock::duration Delivery::TimeToWait() {
    if (m_nComing > m_nCollected && m_nHurry < kMostHurry) {
        ++m_nHurry;
        return kMoment;
    }
    const Clock::time_point now = Clock::now();
    const Clock::time_point next = m_slices.NextFree().value_or(now + kLook);
    return std::clamp<Clock::duration>(next - now, Clock::duration(0), kLook);
}

}  // namespace kvhost
