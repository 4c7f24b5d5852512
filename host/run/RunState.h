#pragma once

#include <atomic>
#include <memory>

#include "AttemptJudge.h"
#include "CarrierWatch.h"
#include "DriverLoop.h"
#include "FilesWithDriver.h"
#include "HostConfig.h"
#include "JobFile.h"
#include "JobLedger.h"
#include "LogSink.h"
#include "OutcomeBook.h"
#include "RunObserver.h"
#include "Secrets.h"
#include "SliceScheduler.h"
#include "WakeUp.h"

namespace kvhost {

/// What the thread that runs the jobs knows and works with: one object for all that belongs to a run. That thread's own,
/// but for what OnComing does.
struct RunState {
    using Clock = std::chrono::steady_clock;

    /// What is not its own and outlives it.
    struct Parts {
        JobLedger& ledger;
        DriverLoop& driver;
        WakeUp& wakeUp;
        LogSink& log;
        RunObserver& observer;
        const Secrets& secrets;
    };

    RunState(const Parts& parts, std::shared_ptr<const HostConfig> theConfig)
        : ledger(parts.ledger),
          driver(parts.driver),
          log(parts.log),
          observer(parts.observer),
          secrets(parts.secrets),
          config(std::move(theConfig)),
          slices(SliceLimitsOf(*config)),
          carriers(parts.log, [&wakeUp = parts.wakeUp] { wakeUp.Wake(); }),
          outcomes(parts.ledger, parts.observer) {
        carriers.Adopt(*config);
    }

    JobLedger& ledger;
    DriverLoop& driver;
    LogSink& log;
    RunObserver& observer;
    const Secrets& secrets;
    std::shared_ptr<const HostConfig> config;
    SliceScheduler slices;
    CarrierWatch carriers;
    FilesWithDriver<JobFile> files;
    OutcomeBook outcomes;  ///< of attempts that have ended
    AttemptJudge judge;
};

}  // namespace kvhost
