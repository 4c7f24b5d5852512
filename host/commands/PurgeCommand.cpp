#include "PurgeCommand.h"

#include <algorithm>
#include <limits>

#include "AttachmentStore.h"
#include "CommandOutput.h"
#include "Duration.h"
#include "PeopleText.h"
#include "Problem.h"
#include "StoreJson.h"

namespace kvhost {

namespace {

/// Jobs that are deleted in one transaction: others want to write between.
constexpr int kPortion = 1000;

std::string WhyNotADuration(const std::string& text) {
    return ParseDuration(text) ? "" : std::string("expected ") + kDurationForm;
}

}  // namespace

CLI::App* PurgeCommand::Register(CLI::App& app) {
    CLI::App* purge = app.add_subcommand("purge", "Delete jobs that ended long ago");
    purge->add_option("--older", m_strOlder, "Jobs that ended longer ago than this, such as 30d or 12h")
        ->required()
        ->check(WhyNotADuration);
    m_state.Register(*purge, "Only jobs that are delivered, failed or cancelled");
    purge->add_option("--limit", m_nLimit, "Jobs to delete at most; 0 for no limit")
        ->check(CLI::Range(0, std::numeric_limits<int>::max()))
        ->capture_default_str();
    m_store.Register(*purge);
    return purge;
}

int PurgeCommand::Run() {
    if (const auto state = m_state.State(); state && !IsFinal(*state)) {
        throw BadInput("--state: expected delivered, failed or cancelled; other jobs have not ended");
    }
    StoreDatabase store = m_store.OpenStore();
    const PurgeResult result = Purge(store);
    const int attachments = AttachmentStore(store.Folder(), 0).RemoveUnused(store);
    CommandOutput output;
    if (m_store.IsJson()) {
        output.Write(DumpJson(
            {{"jobs", result.jobs}, {"submissions", result.submissions}, {"attachments", attachments}}));
    } else {
        output.Write("deleted " + Counted(result.jobs, "job") + ", " +
                     Counted(result.submissions, "submission") + ", " + Counted(attachments, "attachment") +
                     "\n");
    }
    return output.Conclude(kExitSuccess);
}

PurgeResult PurgeCommand::Purge(StoreDatabase& store) const {
    const int most = m_nLimit == 0 ? std::numeric_limits<int>::max() : m_nLimit;
    const StoreTime before = StoreNow() - ParseDuration(m_strOlder).value_or(Milliseconds(0));
    JobOperations operations(store);
    PurgeResult total;
    for (int portion = kPortion; portion == kPortion && total.jobs < most;) {
        const PurgeResult result =
            operations.Purge(before, m_state.State(), std::min(kPortion, most - total.jobs));
        total.jobs += result.jobs;
        total.submissions += result.submissions;
        portion = result.jobs;
    }
    return total;
}

}  // namespace kvhost
