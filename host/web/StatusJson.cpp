#include "StatusJson.h"

#include <nlohmann/json.hpp>

#include "TimeText.h"

namespace kvhost {

namespace {

using nlohmann::ordered_json;

/// The moment, or null for one that never was.
ordered_json Time(StoreTime time) {
    return time == StoreTime() ? ordered_json() : ordered_json(TimeText(time));
}

ordered_json Jobs(const StateCounts& counts) {
    ordered_json jobs;
    for (int number = 0; number < kJobStateCount; ++number) {
        const auto state = static_cast<JobState>(number);
        const auto found = counts.find(state);
        jobs[JobStateName(state)] = found == counts.end() ? std::int64_t{0} : found->second;
    }
    return jobs;
}

ordered_json Figures(const StatusReport& report) {
    ordered_json figures;
    for (const Figure& figure : FiguresOf(report)) {
        figures[figure.id] = figure.value;
    }
    return figures;
}

ordered_json Carriers(const StatusReport& report) {
    ordered_json carriers = ordered_json::array();
    for (const CarrierLine& line : report.carriers) {
        carriers.push_back(
            {{"name", line.name},
             {"configured", line.isConfigured},
             {"under_way", line.status.underWay},
             {"in_trouble", line.status.isInTrouble},
             {"trouble", line.status.trouble},
             {"next_probe", line.status.isInTrouble ? Time(line.status.nextProbe) : ordered_json()},
             {"condition", line.condition},
             {"jobs", Jobs(line.jobs)}});
    }
    return carriers;
}

ordered_json Waiting(const StatusReport& report) {
    ordered_json waiting = ordered_json::array();
    for (const StoredJob& job : report.waiting) {
        waiting.push_back({{"job", job.id},
                           {"state", JobStateName(job.state)},
                           {"carrier", job.carrier},
                           {"recipient", job.recipient},
                           {"subject", job.subject},
                           {"urgent", job.isUrgent},
                           {"submitted", Time(job.submitted)},
                           {"due", job.state == JobState::Queued ? Time(job.due) : ordered_json()},
                           {"attempts", job.attempts},
                           {"reason", job.reason},
                           {"decision", job.decision}});
    }
    return waiting;
}

ordered_json Failures(const StatusReport& report) {
    ordered_json failures = ordered_json::array();
    for (const RecentFailure& failure : report.failures) {
        failures.push_back({{"time", Time(failure.time)},
                            {"job", failure.job},
                            {"carrier", failure.carrier},
                            {"recipient", failure.recipient},
                            {"attempt", failure.attempt},
                            {"reason", failure.reason},
                            {"state", JobStateName(failure.next)},
                            {"decision", failure.decision}});
    }
    return failures;
}

ordered_json Hour(const StatusReport& report) {
    ordered_json hour = ordered_json::array();
    for (const MinuteFigures& minute : report.hour) {
        hour.push_back({{"minute", Time(minute.begin)},
                        {"delivered", minute.delivered},
                        {"retried", minute.retried},
                        {"failed", minute.failed}});
    }
    return hour;
}

}  // namespace

std::string StatusJson(const StatusReport& report) {
    ordered_json document;
    document["time"] = Time(report.time);
    document["version"] = KVHOST_VERSION;
    document["phase"] = PhaseName(report.run.phase);
    document["alive"] = report.health.isAlive;
    document["ready"] = report.health.isReady;
    document["why"] = report.health.why;
    document["driver"] = report.run.driver;
    document["started"] = Time(report.run.started);
    document["uptime"] = report.uptime;
    document["last_round"] = Time(report.run.lastRound);
    document["last_tick"] = Time(report.run.lastTick);
    document["store_unreadable"] = report.storeUnreadable;
    document["figures"] = Figures(report);
    document["jobs"] = Jobs(report.total);
    document["carriers"] = Carriers(report);
    document["waiting"] = Waiting(report);
    document["failures"] = Failures(report);
    document["last_hour"] = Hour(report);
    document["last_hour_summary"] = report.hourSummary;
    return document.dump(-1, ' ', false, ordered_json::error_handler_t::replace) + "\n";
}

}  // namespace kvhost
