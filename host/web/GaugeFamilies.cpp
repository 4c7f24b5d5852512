#include "GaugeFamilies.h"

#include <algorithm>
#include <map>

#include "Metrics.h"

namespace kvhost {

namespace {

using prometheus::ClientMetric;
using prometheus::MetricFamily;
using prometheus::MetricType;
using Labels = std::vector<ClientMetric::Label>;

MetricFamily Family(const std::string& name, const std::string& help, MetricType type = MetricType::Gauge) {
    MetricFamily family;
    family.name = name;
    family.help = help;
    family.type = type;
    return family;
}

void Add(MetricFamily& family, double value, const Labels& labels = {}) {
    ClientMetric metric;
    metric.label = labels;
    metric.gauge.value = value;
    metric.counter.value = value;
    family.metric.push_back(metric);
}

MetricFamily Single(const std::string& name, const std::string& help, double value,
                    MetricType type = MetricType::Gauge) {
    MetricFamily family = Family(name, help, type);
    Add(family, value);
    return family;
}

double Seconds(StoreTime time) {
    return static_cast<double>(ToNumber(time)) / 1000;
}

/// The figures by the carriers that may be labels; those of the configuration are there even without a job.
std::map<std::string, StateCounts> ByLabel(const RunSnapshot& run, const StoreFigures& store) {
    std::map<std::string, StateCounts> byLabel;
    for (const auto& [carrier, status] : run.carriers) {
        byLabel[carrier];
    }
    for (const auto& [carrier, counts] : store.jobs) {
        StateCounts& sum = byLabel[run.carriers.count(carrier) != 0 ? carrier : kUnknownCarrier];
        for (const auto& [state, jobs] : counts) {
            sum[state] += jobs;
        }
    }
    return byLabel;
}

MetricFamily Jobs(const RunSnapshot& run, const StoreFigures& store) {
    MetricFamily family = Family("kvhost_jobs", "Jobs in the store by carrier and state.");
    for (const auto& [carrier, counts] : ByLabel(run, store)) {
        for (int number = 0; number < kJobStateCount; ++number) {
            const auto state = static_cast<JobState>(number);
            const auto found = counts.find(state);
            Add(family, found == counts.end() ? 0 : static_cast<double>(found->second),
                {{"carrier", carrier}, {"state", LabelText(JobStateName(state))}});
        }
    }
    return family;
}

double OldestAge(const MomentaryFigures& figures) {
    const StoreTime oldest = figures.store.oldestQueued.value_or(figures.now);
    return std::max(0.0, Seconds(figures.now) - Seconds(oldest));
}

void AddStore(const MomentaryFigures& figures, std::vector<MetricFamily>& families) {
    families.push_back(Single("kvhost_store_readable",
                              "1 when the figures of the store could be read, else 0.",
                              figures.store.trouble.empty() ? 1 : 0));
    families.push_back(Single("kvhost_store_usable",
                              "1 when the daemon could use the store the last time, else 0.",
                              figures.run.storeTrouble.empty() ? 1 : 0));
    if (figures.store.trouble.empty()) {
        families.push_back(Jobs(figures.run, figures.store));
        families.push_back(Single("kvhost_oldest_queued_age_seconds",
                                  "Time since the oldest queued job was submitted; 0 when none is queued.",
                                  OldestAge(figures)));
    }
}

void AddCarriers(const RunSnapshot& run, std::vector<MetricFamily>& families) {
    MetricFamily underWay = Family("kvhost_jobs_under_way", "Jobs that are with the driver, by carrier.");
    MetricFamily inTrouble =
        Family("kvhost_carrier_in_trouble",
               "1 when the last attempts of the carrier met no usable connection, else 0.");
    for (const auto& [carrier, status] : run.carriers) {
        Add(underWay, status.underWay, {{"carrier", carrier}});
        Add(inTrouble, status.isInTrouble ? 1 : 0, {{"carrier", carrier}});
    }
    families.push_back(underWay);
    families.push_back(inTrouble);
}

void AddConnections(const ConnectionFigures& connections, std::vector<MetricFamily>& families) {
    families.push_back(Single("kvhost_connection_attempts_total",
                              "Connections that the driver set out to open.",
                              static_cast<double>(connections.attempted), MetricType::Counter));
    families.push_back(Single("kvhost_connection_failures_total", "Connections that could not be opened.",
                              static_cast<double>(connections.failed), MetricType::Counter));
    families.push_back(Single("kvhost_connection_reuses_total",
                              "Times that the driver took up an idle connection again.",
                              static_cast<double>(connections.reused), MetricType::Counter));
}

void AddProcess(const MomentaryFigures& figures, std::vector<MetricFamily>& families) {
    families.push_back(Single("kvhost_delivery_log_lost_lines_total",
                              "Lines of the delivery log that could not be written.",
                              static_cast<double>(figures.lostDeliveryLines), MetricType::Counter));
    families.push_back(Single("kvhost_running", "1 while the daemon runs, 0 while it starts or stops.",
                              figures.run.phase == RunSnapshot::Phase::Running ? 1 : 0));
    families.push_back(Single("kvhost_last_round_timestamp_seconds",
                              "When the thread that runs the jobs was last known to be alive, since 1970.",
                              Seconds(figures.run.lastRound)));
    families.push_back(Single("kvhost_last_tick_timestamp_seconds",
                              "When the driver last came back from a periodic event, since 1970.",
                              Seconds(figures.run.lastTick)));
    families.push_back(
        Single("process_start_time_seconds", "When the process began, since 1970.", figures.processStarted));
    MetricFamily build = Family("kvhost_build_info", "Always 1; the version is a label.");
    Add(build, 1, {{"version", KVHOST_VERSION}});
    families.push_back(build);
}

}  // namespace

std::vector<MetricFamily> FamiliesOf(const MomentaryFigures& figures) {
    std::vector<MetricFamily> families;
    AddStore(figures, families);
    AddCarriers(figures.run, families);
    AddConnections(figures.connections, families);
    AddProcess(figures, families);
    return families;
}

std::string LabelText(std::string name) {
    std::replace(name.begin(), name.end(), ' ', '_');
    return name;
}

}  // namespace kvhost
