#include "StatusReport.h"

#include <algorithm>

#include "Duration.h"
#include "TimeText.h"
#include "VisibleText.h"

namespace kvhost {

namespace {

std::string Since(StoreTime begin, StoreTime now) {
    return DurationText(std::max(now - begin, Milliseconds(0)));
}

std::string ConditionOf(const CarrierLine& line, StoreTime now) {
    if (!line.isConfigured) {
        return "not in the configuration";
    }
    if (!line.status.isInTrouble) {
        return "in order";
    }
    const Milliseconds wait = line.status.nextProbe - now;
    const std::string probe = wait > Milliseconds(0) ? "in " + DurationText(wait) : "now";
    return "in trouble, next probe " + probe + ": " + line.status.trouble;
}

/// The carriers of the configuration, and those that only the store still knows.
std::vector<CarrierLine> CarrierLines(const RunSnapshot& run, const StoreFigures& store, StoreTime now) {
    std::map<std::string, CarrierLine> lines;
    for (const auto& [name, status] : run.carriers) {
        lines[name].isConfigured = true;
        lines[name].status = status;
    }
    for (const auto& [name, counts] : store.jobs) {
        lines[name].jobs = counts;
    }
    std::vector<CarrierLine> list;
    for (auto& [name, line] : lines) {
        line.name = MakeVisible(name);
        line.condition = ConditionOf(line, now);
        list.push_back(line);
    }
    return list;
}

StateCounts Total(const StoreFigures& store) {
    StateCounts total;
    for (const auto& [carrier, counts] : store.jobs) {
        for (const auto& [state, jobs] : counts) {
            total[state] += jobs;
        }
    }
    return total;
}

std::string Summary(const std::vector<MinuteFigures>& hour) {
    MinuteFigures sum;
    int busiest = 0;
    for (const MinuteFigures& minute : hour) {
        sum.delivered += minute.delivered;
        sum.failed += minute.failed;
        sum.retried += minute.retried;
        busiest = std::max(busiest, minute.delivered + minute.failed + minute.retried);
    }
    return std::to_string(sum.delivered) + " delivered, " + std::to_string(sum.retried) + " to be retried, " +
           std::to_string(sum.failed) + " failed; at most " + std::to_string(busiest) + " in a minute";
}

std::string Number(const StateCounts& counts, JobState state) {
    const auto found = counts.find(state);
    return std::to_string(found == counts.end() ? 0 : found->second);
}

}  // namespace

std::vector<Figure> FiguresOf(const StatusReport& report) {
    std::vector<Figure> figures;
    const bool isReadable = report.storeUnreadable.empty();
    const auto jobs = [&](JobState state) { return isReadable ? Number(report.total, state) : "?"; };
    figures.push_back({"queued", "Queued", jobs(JobState::Queued)});
    figures.push_back({"handed-over", "With the driver", std::to_string(report.run.underWay)});
    figures.push_back({"delivered", "Delivered", jobs(JobState::Delivered)});
    figures.push_back({"failed", "Failed", jobs(JobState::Failed)});
    figures.push_back({"in-doubt", "In doubt", jobs(JobState::InDoubt)});
    figures.push_back({"held", "Held", jobs(JobState::Held)});
    figures.push_back(
        {"oldest", "Oldest queued", report.oldestQueued.empty() ? "\u2013" : report.oldestQueued});
    return figures;
}

StatusReporter::StatusReporter(const RunStatus& status, StoreWatch& store, const RecentAttempts& recent,
                               std::shared_ptr<const Secrets> secrets)
    : m_status(status), m_store(store), m_recent(recent), m_pSecrets(std::move(secrets)) {}

StatusReport StatusReporter::Report(StoreTime now) const {
    const std::shared_ptr<const StoreFigures> store = m_store.Get();
    StatusReport report;
    report.time = now;
    report.run = ShownRun();
    report.health = HealthOf(report.run, now);
    report.uptime = report.run.started == StoreTime() ? "" : Since(report.run.started, now);
    report.total = Total(*store);
    report.oldestQueued = store->oldestQueued ? Since(*store->oldestQueued, now) : "";
    report.storeUnreadable = Shown(store->trouble);
    report.carriers = CarrierLines(report.run, *store, now);
    report.waiting = ShownJobs(store->waiting);
    report.failures = ShownFailures();
    report.hour = m_recent.LastHour(now);
    report.hourSummary = Summary(report.hour);
    return report;
}

Health StatusReporter::HealthAt(StoreTime now) const {
    return HealthOf(ShownRun(), now);
}

std::string StatusReporter::Shown(const std::string& text) const {
    return MakeVisible(m_pSecrets->Mask(text));
}

RunSnapshot StatusReporter::ShownRun() const {
    RunSnapshot run = m_status.Get();
    run.driver = Shown(run.driver);
    run.storeTrouble = Shown(run.storeTrouble);
    for (auto& [name, status] : run.carriers) {
        status.trouble = Shown(status.trouble);
    }
    return run;
}

std::vector<StoredJob> StatusReporter::ShownJobs(std::vector<StoredJob> jobs) const {
    for (StoredJob& job : jobs) {
        job.id = MakeVisible(job.id);
        job.carrier = MakeVisible(job.carrier);
        job.recipient = MakeVisible(job.recipient);
        job.subject = Shown(job.subject);
        job.reason = Shown(job.reason);
        job.decision = Shown(job.decision);
    }
    return jobs;
}

std::vector<RecentFailure> StatusReporter::ShownFailures() const {
    std::vector<RecentFailure> failures = m_recent.Failures();
    for (RecentFailure& failure : failures) {
        failure.job = MakeVisible(failure.job);
        failure.carrier = MakeVisible(failure.carrier);
        failure.recipient = MakeVisible(failure.recipient);
        failure.reason = Shown(failure.reason);
        failure.decision = Shown(failure.decision);
    }
    return failures;
}

}  // namespace kvhost
