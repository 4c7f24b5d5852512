#pragma once

#include <map>
#include <mutex>
#include <string>
#include <utility>

#include "StoreTime.h"

namespace kvhost {

/// How a carrier does at the moment. Immutable value.
struct CarrierStatus {
    int underWay = 0;  ///< jobs of it that are with the driver
    bool isInTrouble =
        false;            ///< its last attempts met no usable connection; it is probed before it gets more
    StoreTime nextProbe;  ///< meaningful while in trouble
    std::string trouble;  ///< why, in words; empty when there is none
};

/// What the daemon is doing at the moment. Immutable value.
struct RunSnapshot {
    enum class Phase { Starting, Running, Stopping };
    Phase phase = Phase::Starting;
    std::string driver;        ///< what the driver says it is
    StoreTime started;         ///< of this run
    StoreTime lastRound;       ///< when the thread that runs the jobs was last known to be alive
    StoreTime lastTick;        ///< when the driver last came back from a periodic event
    int underWay = 0;          ///< jobs that are with the driver
    std::string storeTrouble;  ///< why the store could not be used the last time; empty when it could
    std::map<std::string, CarrierStatus> carriers;  ///< those of the configuration
};

/// The board on which the thread that runs the jobs writes, and from which others read. Thread-safe.
class RunStatus {
public:
    void Set(RunSnapshot snapshot) {
        const std::lock_guard<std::mutex> guard(m_mutex);
        m_snapshot = std::move(snapshot);
    }
    RunSnapshot Get() const {
        const std::lock_guard<std::mutex> guard(m_mutex);
        return m_snapshot;
    }

private:
    mutable std::mutex m_mutex;
    RunSnapshot m_snapshot;  ///< guarded by m_mutex
};

}  // namespace kvhost
