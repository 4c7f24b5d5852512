#include "ListCommand.h"

#include "CommandOutput.h"
#include "JobViews.h"
#include "PeopleText.h"
#include "StoreJson.h"
#include "TextTable.h"

namespace kvhost {

namespace {

constexpr int kMostRows = 100000;
constexpr std::size_t kReasonWidth = 60;

/// Why the job stands where it stands, in few words.
std::string WhyOf(const StoredJob& job) {
    if (job.state == JobState::Delivered) {
        return "";
    }
    const bool wasStopped = job.state == JobState::Held || job.state == JobState::Cancelled;
    return Shorten(wasStopped || job.reason.empty() ? job.decision : job.reason, kReasonWidth);
}

/// The key from which the next page goes on; nothing when this page is the last.
std::optional<std::int64_t> NextPage(const std::vector<StoredJob>& jobs, int limit) {
    if (jobs.size() < static_cast<std::size_t>(limit)) {
        return std::nullopt;
    }
    return jobs.back().key;
}

std::string TableText(const std::vector<StoredJob>& jobs, StoreTime now) {
    TextTable table({{"JOB"},
                     {"STATE"},
                     {"CARRIER"},
                     {"RECIPIENT"},
                     {"SUBMITTED"},
                     {"CHANGED"},
                     {"TRIES", TextTable::Align::Right},
                     {"REASON"}});
    for (const StoredJob& job : jobs) {
        table.Add({job.id, JobStateName(job.state), job.carrier, job.recipient, LocalTime(job.submitted),
                   Ago(job.changed, now), std::to_string(job.attempts), WhyOf(job)});
    }
    return table.IsEmpty() ? "no jobs\n" : table.Text();
}

std::string JsonText(const std::vector<StoredJob>& jobs, std::optional<std::int64_t> next) {
    nlohmann::ordered_json document;
    document["jobs"] = nlohmann::ordered_json::array();
    for (const StoredJob& job : jobs) {
        document["jobs"].push_back(JsonOf(job));
    }
    document["next"] = next ? nlohmann::ordered_json(*next) : nlohmann::ordered_json();
    return DumpJson(document);
}

}  // namespace

CLI::App* ListCommand::Register(CLI::App& app) {
    CLI::App* list = app.add_subcommand("list", "List jobs, the newest first");
    m_store.Register(*list);
    m_state.Register(*list, "Only jobs of this state");
    list->add_option("--carrier", m_strCarrier, "Only jobs of this carrier");
    list->add_option("--limit", m_nLimit, "Jobs to list at most")
        ->check(CLI::Range(1, kMostRows))
        ->capture_default_str();
    list->add_option("--before", m_nBefore, "Go on behind this key, which the end of a full list names");
    return list;
}

int ListCommand::Run() {
    StoreDatabase store = m_store.OpenStore();
    JobFilter filter;
    filter.state = m_state.State();
    if (!m_strCarrier.empty()) {
        filter.carrier = m_strCarrier;
    }
    filter.limit = m_nLimit;
    filter.before = m_nBefore;
    const std::vector<StoredJob> jobs = JobViews(store).List(filter);
    const std::optional<std::int64_t> next = NextPage(jobs, m_nLimit);
    CommandOutput output;
    if (m_store.IsJson()) {
        output.Write(JsonText(jobs, next));
    } else {
        output.Write(TableText(jobs, StoreNow()));
        output.Write(next ? "\nmore with --before " + std::to_string(*next) + "\n" : "");
    }
    return output.Conclude(kExitSuccess);
}

}  // namespace kvhost
