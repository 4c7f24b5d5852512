#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <map>
#include <string>

#include "Batch.h"
#include "DriverLibrary.h"
#include "DriverThread.h"
#include "LogSink.h"
#include "Outcomes.h"
#include "ReportWriter.h"

namespace kvhost {

/// How long things may take.
struct DeliveryLimits {
    std::chrono::milliseconds tick{50};
    std::chrono::milliseconds overall{0};        ///< from the start to the clean-up; 0 for no limit
    std::chrono::milliseconds afterStop{10000};  ///< for what is under way when a stop is requested
    std::chrono::milliseconds cleanUp{90000};  ///< for the clean-up; a pool of workers may need 60 s and more
};

/// Sends one batch through one driver: watches over the thread that calls it, collects what comes back, and
/// decides when to end. One Delivery makes one run.
class Delivery {
public:
    enum class End {
        Finished,    ///< the driver is cleaned up and released
        NotStarted,  ///< the driver could not be started; nothing was handed over
        Stuck        ///< the driver does not return: see Run
    };

    Delivery(DriverLibrary& library, const Batch& batch, Outcomes& outcomes, LogSink& log,
             std::map<std::string, std::string> settings, const DeliveryLimits& limits);

    /// Runs to the end. `onChange` is called on this thread after every change of the tally.
    ///
    /// After Stuck a thread is still inside the driver and uses this object, the batch and all else that it
    /// was given: none of it may be destroyed, and the process has to end without unwinding (std::_Exit).
    End Run(const std::function<void(const Tally&)>& onChange);

    /// Stops handing over and gives what is under way the limit afterStop; the second request ends that wait.
    /// Thread-safe.
    void RequestStop() { ++m_nStopRequests; }

    /// What went wrong with the driver itself; empty when nothing did.
    std::string Error() const { return m_thread.Error(); }
    /// What the driver says it is.
    std::string DriverDescription() const { return m_thread.Description(); }

private:
    using Clock = std::chrono::steady_clock;

    void Collect();
    void NoteReturned(const KvMessageFile* returned);
    void Supervise(Clock::time_point now);
    void BeginStop(Clock::time_point now);
    void Finish(Clock::time_point now, const char* why);
    bool IsAllBack() const;
    bool IsOverdue(Clock::time_point now) const;
    bool IsStuck(Clock::time_point now) const;

    const Batch& m_batch;
    Outcomes& m_outcomes;
    LogSink& m_log;
    const DeliveryLimits m_limits;
    ReportWriter m_reports;
    KvMessageFileQueue m_returned;

    std::atomic<int> m_nStopRequests{0};
    const Clock::time_point m_timeStart = Clock::now();
    Clock::time_point m_timeStop;    ///< when the stop began, once m_bStopping
    Clock::time_point m_timeFinish;  ///< when the clean-up was asked for, once m_bFinishing
    bool m_bStopping = false;
    bool m_bFinishing = false;

    DriverThread m_thread;  ///< last: it uses the members above
};

}  // namespace kvhost
