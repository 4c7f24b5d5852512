#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>

#include "CarrierTrials.h"
#include "DriverLibrary.h"
#include "DriverLoop.h"
#include "FilesWithDriver.h"
#include "HostConfig.h"
#include "JobFeed.h"
#include "KvMessageFileQueue.h"
#include "LogSink.h"
#include "Outcomes.h"
#include "ReportWriter.h"
#include "SliceScheduler.h"

namespace kvhost {

/// How long things may take.
struct DeliveryLimits {
    std::chrono::milliseconds tick{50};
    std::chrono::milliseconds overall{0};        ///< from the start to the clean-up; 0 for no limit
    std::chrono::milliseconds afterStop{10000};  ///< for what is under way when a stop is requested
    std::chrono::milliseconds cleanUp{90000};  ///< for the clean-up; a pool of workers may need 60 s and more
};

/// Sends the jobs of a feed through one driver: gives them out in slices, collects what comes back, and decides when to
/// end. One Delivery makes one run.
class Delivery {
public:
    enum class End {
        Finished,    ///< the driver is cleaned up and released
        NotStarted,  ///< the driver could not be started; nothing was handed over
        Stuck        ///< the driver does not return: see Run
    };

    /// `stopRequests` grows while the run goes on: with the first one nothing more is handed over, and what is under way
    /// gets the limit afterStop; the second one ends that wait. What it is given outlives the object.
    Delivery(DriverLibrary& library, JobFeed& feed, Outcomes& outcomes, LogSink& log,
             const HostConfig& config, const DeliveryLimits& limits, const std::atomic<int>& stopRequests);

    /// Runs to the end. `onChange` is called on this thread after every change of the tally.
    ///
    /// After Stuck a thread is still inside the driver and uses this object, the feed and all else that it
    /// was given: none of it may be destroyed, and the process has to end without unwinding (std::_Exit).
    End Run(const std::function<void(const Tally&)>& onChange);

    /// What went wrong with the driver itself; empty when nothing did.
    std::string Error() const { return m_driver.Look().error; }
    /// What the driver says it is.
    std::string DriverDescription() const { return m_driver.Look().description; }

private:
    using Clock = std::chrono::steady_clock;

    void Collect();
    void NoteReturned(const KvMessageFile* returned);
    void NoteRefused(const DriverLoop::Refusal& refusal);
    void Release(const HostMessageFile& file, bool isDelivered);

    void HandOver(Clock::time_point now);
    std::vector<CarrierDemand> Demands() const;
    std::vector<std::int64_t> NextJobs(const std::string& carrier, int limit) const;
    void HandOver(const SliceScheduler::TickLoad& load);
    DriverLoop::TickLoad FilesOf(const Slice& slice);

    void Supervise(Clock::time_point now);
    void BeginStop(Clock::time_point now);
    void Finish(Clock::time_point now, const char* why);
    bool IsAllBack() const;
    bool IsOverdue(Clock::time_point now) const;
    bool IsStuck(Clock::time_point now) const;

    void Wake();
    void Wait();
    Clock::duration TimeToWait();

    JobFeed& m_feed;
    Outcomes& m_outcomes;
    LogSink& m_log;
    const DeliveryLimits m_limits;
    const std::atomic<int>& m_nStopRequests;
    ReportWriter m_reports;
    KvMessageFileQueue m_returned;
    FilesWithDriver<HostMessageFile> m_files;
    SliceScheduler m_slices;
    CarrierTrials m_trials;

    std::atomic<long> m_nComing{0};  ///< files that were announced
    long m_nCollected = 0;           ///< files that were found in the queue
    int m_nHurry = 0;                ///< how often in a row an announced file was waited for

    const Clock::time_point m_timeStart = Clock::now();
    Clock::time_point m_timeStop;    ///< when the stop began, once m_bStopping
    Clock::time_point m_timeFinish;  ///< when the clean-up was asked for, once m_bFinishing
    bool m_bStopping = false;
    bool m_bFinishing = false;

    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_bNews = false;  ///< guarded by m_mutex

    DriverLoop m_driver;  ///< last: it uses the members above
};

}  // namespace kvhost
