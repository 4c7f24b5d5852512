#pragma once

#include <string>

#include "RunStatus.h"

namespace kvhost {

/// Whether the daemon lives and takes its work up. Immutable value.
struct Health {
    bool isAlive = false;  ///< the thread that runs the jobs does its rounds; otherwise a restart is due
    bool isReady = false;  ///< jobs that are submitted now are delivered as soon as their carriers allow
    std::string why;       ///< the daemon is not alive, or not ready; empty when it is both
};

/// After how long without a round the daemon counts as dead: twice what a change of the store may wait for another
/// writer.
inline constexpr std::chrono::seconds kLongestRound{60};

/// What the board says about it. A stopping daemon is alive: it has limits of its own.
Health HealthOf(const RunSnapshot& run, StoreTime now);

/// "starting", "running", "stopping".
const char* PhaseName(RunSnapshot::Phase phase);

}  // namespace kvhost
