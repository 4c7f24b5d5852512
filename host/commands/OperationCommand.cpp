#include "OperationCommand.h"

#include <algorithm>
#include <iostream>

#include "Doorbell.h"
#include "JobViews.h"
#include "OperationReport.h"
#include "Problem.h"
#include "VisibleText.h"

namespace kvhost {

namespace {

/// Jobs that are changed in one transaction: others want to write between.
constexpr std::size_t kPortion = 500;

struct Words {
    const char* name;
    const char* done;
    const char* description;
};

Words WordsOf(JobOperation operation) {
    switch (operation) {
        case JobOperation::Retry:
            return {"retry", "retried",
                    "Send failed, in doubt or cancelled jobs again, and queued ones at once"};
        case JobOperation::Hold:
            return {"hold", "held", "Keep queued jobs back until they are released"};
        case JobOperation::Release:
            return {"release", "released", "Let held jobs go on"};
        case JobOperation::Cancel:
            break;
    }
    return {"cancel", "cancelled", "End queued, held or in doubt jobs"};
}

/// As they are written on the command line.
std::string StatesText(JobOperation operation) {
    std::string text;
    const std::vector<JobState>& states = StatesFor(operation);
    for (const JobState state : states) {
        std::string name = JobStateName(state);
        std::replace(name.begin(), name.end(), ' ', '-');
        text += (text.empty() ? "" : state == states.back() ? " or " : ", ") + name;
    }
    return text;
}

void ReadNames(std::istream& stream, std::vector<std::string>& names) {
    for (std::string line; std::getline(stream, line);) {
        if (const std::string name = StripLineEnd(line); !name.empty()) {
            names.push_back(name);
        }
    }
}

}  // namespace

CLI::App* OperationCommand::Register(CLI::App& app) {
    const Words words = WordsOf(m_operation);
    CLI::App* command = app.add_subcommand(words.name, words.description);
    command->add_option("jobs", m_vecNames,
                        "Names of jobs, or of submissions for all of their jobs; - reads names from standard "
                        "input, one a line");
    m_store.Register(*command);
    command->add_flag("--all", m_bAll, "Every job of --state instead of names");
    m_state.Register(*command, "With --all: jobs that are " + StatesText(m_operation));
    command->add_option("--carrier", m_strCarrier, "With --all: only jobs of this carrier");
    return command;
}

int OperationCommand::Run() {
    CheckUsage();
    StoreDatabase store = m_store.OpenStore();
    JobOperations operations(store);
    CommandOutput output;
    OperationReport report(output, WordsOf(m_operation).done, m_store.IsJson());
    const Take take = [&](const std::vector<std::string>& names) {
        report.Add(operations.Apply(m_operation, names, StoreNow()));
        Doorbell::Ring(store.Folder());
    };
    if (m_bAll) {
        ForAll(store, take);
    } else {
        ForNames(take);
    }
    report.Finish();
    return output.Conclude(report.IsAllDone() ? kExitSuccess : kExitSomeFailed);
}

void OperationCommand::CheckUsage() const {
    const std::string name = WordsOf(m_operation).name;
    const auto state = m_state.State();
    if (!m_bAll && (state || !m_strCarrier.empty())) {
        throw BadInput(name + ": --state and --carrier choose among all jobs; add --all, or leave them out");
    }
    if (m_bAll != m_vecNames.empty()) {
        throw BadInput(name + ": expected either names of jobs or --all with --state");
    }
    if (!m_bAll) {
        return;
    }
    const std::vector<JobState>& states = StatesFor(m_operation);
    if (!state || std::find(states.begin(), states.end(), *state) == states.end()) {
        throw BadInput(name + ": --all needs --state with one of " + StatesText(m_operation));
    }
}

std::vector<std::string> OperationCommand::Names() const {
    std::vector<std::string> names;
    for (const std::string& name : m_vecNames) {
        if (name == "-") {
            ReadNames(std::cin, names);
        } else {
            names.push_back(name);
        }
    }
    return names;
}

void OperationCommand::ForNames(const Take& take) const {
    const std::vector<std::string> names = Names();
    for (auto from = names.begin(); from != names.end();) {
        const auto left = static_cast<std::size_t>(names.end() - from);
        const auto to = from + static_cast<std::ptrdiff_t>(std::min(left, kPortion));
        take(std::vector<std::string>(from, to));
        from = to;
    }
}

// From the newest to the oldest, so that a job that comes into the state meanwhile is not met a second time.
void OperationCommand::ForAll(StoreDatabase& store, const Take& take) const {
    JobFilter filter;
    filter.state = m_state.State();
    if (!m_strCarrier.empty()) {
        filter.carrier = m_strCarrier;
    }
    filter.limit = static_cast<int>(kPortion);
    JobViews views(store);
    for (;;) {
        const std::vector<StoredJob> jobs = views.List(filter);
        if (jobs.empty()) {
            return;
        }
        std::vector<std::string> names;
        names.reserve(jobs.size());
        for (const StoredJob& job : jobs) {
            names.push_back(job.id);
        }
        take(names);
        filter.before = jobs.back().key;
    }
}

}  // namespace kvhost
