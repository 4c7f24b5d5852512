#include "Health.h"

#include <algorithm>

#include "Duration.h"

namespace kvhost {

namespace {

using Phase = RunSnapshot::Phase;

/// Why the thread that runs the jobs counts as dead; empty when it does not.
std::string WhyDead(const RunSnapshot& run, StoreTime now) {
    const StoreTime seen = std::max(run.started, run.lastRound);
    const bool isKnown = seen != StoreTime();
    if (run.phase == Phase::Stopping || !isKnown || now - seen <= kLongestRound) {
        return "";
    }
    return "no sign of the thread that runs the jobs for " + DurationText(now - seen);
}

std::string WhyNotReady(const RunSnapshot& run) {
    if (run.phase != Phase::Running) {
        return PhaseName(run.phase);
    }
    return run.storeTrouble.empty() ? "" : "the store cannot be used: " + run.storeTrouble;
}

}  // namespace

Health HealthOf(const RunSnapshot& run, StoreTime now) {
    Health health;
    health.why = WhyDead(run, now);
    health.isAlive = health.why.empty();
    if (health.isAlive) {
        health.why = WhyNotReady(run);
    }
    health.isReady = health.why.empty();
    return health;
}

const char* PhaseName(RunSnapshot::Phase phase) {
    switch (phase) {
        case Phase::Starting:
            return "starting";
        case Phase::Running:
            return "running";
        case Phase::Stopping:
            break;
    }
    return "stopping";
}

}  // namespace kvhost
