#pragma once

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Health.h"
#include "RecentAttempts.h"
#include "RunStatus.h"
#include "Secrets.h"
#include "StoreWatch.h"

namespace kvhost {

/// What the status page shows of one carrier. Immutable value.
struct CarrierLine {
    std::string name;
    bool isConfigured = false;
    CarrierStatus status;
    StateCounts jobs;
    std::string condition;  ///< how it does, in words
};

/// What the status page shows. All texts are masked, and one line of valid UTF-8 each. Immutable value.
struct StatusReport {
    StoreTime time;
    RunSnapshot run;
    Health health;
    std::string uptime;           ///< for people
    StateCounts total;            ///< jobs of all carriers by state
    std::string oldestQueued;     ///< its age for people; empty when none is queued
    std::string storeUnreadable;  ///< why the figures of the store are missing; empty when they are there
    std::vector<CarrierLine> carriers;
    std::vector<StoredJob> waiting;
    std::vector<RecentFailure> failures;
    std::vector<MinuteFigures> hour;
    std::string hourSummary;  ///< the picture of the last hour in words
};

/// The large figures at the top: identifier, caption and value of each.
struct Figure {
    const char* id;
    const char* caption;
    std::string value;
};
std::vector<Figure> FiguresOf(const StatusReport& report);

/// Collects what the status page shows. The one place where secrets are masked in it. Thread-safe.
class StatusReporter {
public:
    /// What it is told outlives it.
    StatusReporter(const RunStatus& status, StoreWatch& store, const RecentAttempts& recent,
                   std::shared_ptr<const Secrets> secrets);

    StatusReport Report(StoreTime now) const;
    Health HealthAt(StoreTime now) const;

private:
    std::string Shown(const std::string& text) const;
    RunSnapshot ShownRun() const;
    std::vector<StoredJob> ShownJobs(std::vector<StoredJob> jobs) const;
    std::vector<RecentFailure> ShownFailures() const;

    const RunStatus& m_status;
    StoreWatch& m_store;
    const RecentAttempts& m_recent;
    const std::shared_ptr<const Secrets> m_pSecrets;
};

}  // namespace kvhost
