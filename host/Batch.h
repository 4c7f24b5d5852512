#pragma once

#include <map>
#include <memory>
#include <vector>

#include "HostConfig.h"
#include "HostMessageFile.h"
#include "Job.h"
#include "Outcomes.h"

namespace kvhost {

/// The message files of one run, job by job, and the owner of them. Immutable after construction as a
/// container; each file follows the rules of KvMessageFile.
class Batch {
public:
    using Files = std::vector<std::unique_ptr<HostMessageFile>>;

    /// Makes the files of every job that is not refused, and an entry of `outcomes` for each; a refused job
    /// gets one entry that says why.
    Batch(const std::vector<Job>& jobs, const HostConfig& config, Outcomes& outcomes);

    /// The files of each job; the files of one job are to be handed over without a tick between them.
    const std::vector<Files>& Jobs() const { return m_vecJobs; }

    /// The file that a driver handed back; null when it is none of this batch.
    HostMessageFile* Find(const KvMessageFile* file) const;

private:
    Files MakeFiles(const Job& job, const Carrier& carrier, Outcomes& outcomes);

    std::vector<Files> m_vecJobs;
    std::map<const KvMessageFile*, HostMessageFile*> m_mapFiles;
};

}  // namespace kvhost
