#pragma once

#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <string>
#include <thread>

#include "Batch.h"
#include "DriverLibrary.h"
#include "DriverSession.h"
#include "LogSink.h"
#include "Outcomes.h"

namespace kvhost {

/// The one thread that calls the driver: it starts it, hands the batch over, ticks, cleans up and releases.
/// A tick may last as long as the driver likes, so nothing else is done on this thread. Thread-safe.
class DriverThread {
public:
    struct Work {
        DriverLibrary& plugin;
        const HostServices services;
        const Batch& batch;
        Outcomes& outcomes;
        LogSink& log;
        std::map<std::string, std::string> settings;
        std::chrono::milliseconds tick;
    };

    /// Starts the thread. What `work` refers to outlives it.
    explicit DriverThread(Work work);
    /// Asks the thread to finish and waits for it; a driver that does not return makes this wait for ever.
    ~DriverThread();

    DriverThread(const DriverThread&) = delete;
    DriverThread& operator=(const DriverThread&) = delete;

    /// No further job is handed over; ticking goes on.
    void StopHandingOver();
    /// No further job is handed over and no further tick made: what follows is the clean-up.
    void Finish();

    /// Every job was handed over, or none will be any more.
    bool IsHandOverDone() const;
    /// Waits at most `limit` for the end of the clean-up. True when the driver is released.
    bool WaitUntilDone(std::chrono::milliseconds limit);

    /// Why the driver could not be started, or what broke off its work; empty when all went well.
    std::string Error() const;
    /// True when the driver was set up.
    bool IsStarted() const;
    /// What the driver says it is; empty until it was asked.
    std::string Description() const;

private:
    void Main();
    void Drive();
    void HandOverAll(DriverSession& session);
    void HandOver(DriverSession& session, const Batch::Files& files);
    void TickUntilFinish(DriverSession& session);
    void Tick(DriverSession& session);
    bool Is(const bool& flag) const;
    void Set(bool& flag);
    void Set(std::string& text, const std::string& value);

    Work m_work;
    bool m_bTickFailureTold = false;                       ///< the driver thread's own
    std::chrono::steady_clock::time_point m_timeNextTick;  ///< the driver thread's own

    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_bStop = false;          ///< guarded by m_mutex
    bool m_bFinish = false;        ///< guarded by m_mutex
    bool m_bStarted = false;       ///< guarded by m_mutex
    bool m_bHandOverDone = false;  ///< guarded by m_mutex
    bool m_bDone = false;          ///< guarded by m_mutex
    std::string m_strError;        ///< guarded by m_mutex
    std::string m_strDescription;  ///< guarded by m_mutex

    std::thread m_thread;  ///< last: it uses the members above
};

}  // namespace kvhost
