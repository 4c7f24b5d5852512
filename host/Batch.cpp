#include "Batch.h"

#include <utility>

#include "VisibleText.h"

namespace kvhost {

namespace {

/// The first recipient, and how many there are besides.
std::string ShowRecipients(const std::vector<std::string>& recipients) {
    if (recipients.empty()) {
        return {};
    }
    const std::string others = recipients.size() > 1 ? " +" + std::to_string(recipients.size() - 1) : "";
    return MakeVisible(recipients.front()) + others;
}

Outcome RefusedOutcome(const Job& job) {
    std::string reason;
    for (const Problem& problem : job.problems) {
        reason += (reason.empty() ? "" : "; ") + Describe(problem);
    }
    return {MakeVisible(job.id), MakeVisible(job.carrier), ShowRecipients(job.recipients),
            OutcomeStatus::Refused, MakeVisible(reason)};
}

}  // namespace

Batch::Batch(const std::vector<Job>& jobs, const HostConfig& config, Outcomes& outcomes) {
    for (const Job& job : jobs) {
        if (job.IsRefused()) {
            outcomes.Add(RefusedOutcome(job));
        } else {
            m_vecJobs.push_back(MakeFiles(job, config.carriers.at(job.carrier), outcomes));
        }
    }
}

HostMessageFile* Batch::Find(const KvMessageFile* file) const {
    const auto found = m_mapFiles.find(file);
    return found == m_mapFiles.end() ? nullptr : found->second;
}

Batch::Files Batch::MakeFiles(const Job& job, const Carrier& carrier, Outcomes& outcomes) {
    Files files;
    for (std::size_t i = 0; i < job.recipients.size(); ++i) {
        const std::size_t outcome =
            outcomes.Add({MakeVisible(job.id), MakeVisible(carrier.name), MakeVisible(job.recipients[i]),
                          OutcomeStatus::Waiting, ""});
        files.push_back(std::make_unique<HostMessageFile>(job, carrier, i, outcome));
        m_mapFiles.emplace(files.back().get(), files.back().get());
    }
    return files;
}

}  // namespace kvhost
