#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "Doorbell.h"
#include "HandOverDesk.h"
#include "KvMessageFileQueue.h"
#include "OutgoingMail.h"
#include "ReturnDesk.h"
#include "RunState.h"
#include "RunStatus.h"
#include "ServiceNotifier.h"
#include "StoreTrouble.h"
#include "Watchdog.h"

namespace kvhost {

/// Runs the jobs of a store: what is due goes to the driver, what comes back goes onto disk with the decision about it,
/// round after round. It sleeps until something happens: a submitter rings, a file comes back, a moment has come.
///
/// Run is for one thread, which owns the ledger and everything else here; the requests are thread-safe.
class Runner {
public:
    /// What it works with; everything outlives it.
    struct Parts {
        JobLedger& ledger;
        DriverLoop& driver;
        KvMessageFileQueue& returned;
        OutgoingMail& mail;
        Doorbell& doorbell;
        WakeUp& wakeUp;
        LogSink& log;
        RunObserver& observer;
        const Secrets& secrets;
        RunStatus& status;
        const ServiceNotifier& notifier;
        /// Reads the configuration anew; null when it cannot be used, which was told then.
        std::function<std::shared_ptr<const HostConfig>(const HostConfig& old)> reload;
    };

    enum class End {
        Clean,         ///< stopped, and the driver is released
        DriverFailed,  ///< the driver could not be started, or broke off
        Stuck          ///< the driver does not return: a thread is still inside it and uses what it was given
    };

    /// `started`: when the run began.
    Runner(const Parts& parts, std::shared_ptr<const HostConfig> config, StoreTime started);

    /// Works until a stop is requested or the driver fails.
    End Run();

    /// Nothing more is handed over; what is under way gets the stop limit. The second request ends that wait.
    void RequestStop();
    /// The configuration is read anew soon.
    void RequestReload();

private:
    using Clock = std::chrono::steady_clock;

    void Round();
    void UseStore(StoreTime now);
    void ExpireOverdue(StoreTime now);
    void AdoptReload();
    bool IsRunning() const { return m_nStopRequests == 0 && IsDriverWell(); }
    bool IsDriverWell() const;

    void Publish();
    void TellManager(const DriverLoop::View& view, Clock::time_point now);

    void Wait();
    Milliseconds TimeToWait();

    void WaitForWhatIsUnderWay();
    bool CleanUp();
    void WriteLast();

    const Parts m_parts;
    RunState m_state;
    ReturnDesk m_returns;
    HandOverDesk m_handOver;
    StoreTrouble m_trouble;
    RunSnapshot m_snapshot;
    std::optional<StoreTime> m_timeNextDeadline;
    Clock::time_point m_timeRound;  ///< when the last round began
    Watchdog m_watchdog;
    bool m_bReadyTold = false;

    std::atomic<int> m_nStopRequests{0};
    std::atomic<bool> m_bReload{false};
};

}  // namespace kvhost
