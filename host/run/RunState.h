#pragma once

#include <atomic>
#include <memory>

#include "AttemptJudge.h"
#include "CarrierWatch.h"
#include "DriverLoop.h"
#include "FilesWithDriver.h"
#include "HostConfig.h"
#include "JobLedger.h"
#include "LogSink.h"
#include "OutcomeBook.h"
#include "RunObserver.h"
#include "SliceScheduler.h"
#include "WakeUp.h"

namespace kvhost {

/// What the thread that runs the jobs knows and works with: one object for all that belongs to a run. That thread's own,
/// but for what OnComing does.
struct RunState {
    using Clock = std::chrono::steady_clock;

    RunState(JobLedger& theLedger, DriverLoop& theDriver, WakeUp& theWakeUp, LogSink& theLog,
             RunObserver& theObserver, std::shared_ptr<const HostConfig> theConfig)
        : ledger(theLedger),
          driver(theDriver),
          log(theLog),
          observer(theObserver),
          config(std::move(theConfig)),
          slices(SliceLimitsOf(*config)),
          carriers(theLog, [&theWakeUp] { theWakeUp.Wake(); }),
          outcomes(theLedger, theObserver) {
        carriers.Adopt(*config);
    }

    JobLedger& ledger;
    DriverLoop& driver;
    LogSink& log;
    RunObserver& observer;
    std::shared_ptr<const HostConfig> config;
    SliceScheduler slices;
    CarrierWatch carriers;
    FilesWithDriver files;
    OutcomeBook outcomes;  ///< of attempts that have ended
    AttemptJudge judge;
};

}  // namespace kvhost
