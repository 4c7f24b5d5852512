#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "StoreDatabase.h"
#include "StoredJob.h"

namespace kvhost {

/// Which jobs to list.
struct JobFilter {
    std::optional<JobState> state;
    std::optional<std::string> carrier;
    std::int64_t before = INT64_MAX;  ///< only keys below: the last key of one page begins the next
    int limit = 100;
};

/// Number of jobs by state; states without a job are left out.
using StateCounts = std::map<JobState, std::int64_t>;

/// Reads the store for people. One thread at a time, as its database.
class JobViews {
public:
    explicit JobViews(StoreDatabase& store) : m_store(store) {}

    /// The newest jobs first.
    std::vector<StoredJob> List(const JobFilter& filter);
    /// The histories of the job of that name, or of all jobs of the submission of that name; empty when there is none.
    std::vector<JobHistory> Show(const std::string& name);
    /// Number of jobs by carrier and state. Takes the same time however many jobs there are.
    std::map<std::string, StateCounts> CountByCarrier();
    /// Number of jobs by state.
    StateCounts Count();
    /// When the oldest queued job was submitted; nothing when none is queued.
    std::optional<StoreTime> OldestQueued();

private:
    JobHistory ReadHistory(const StoredJob& job);

    StoreDatabase& m_store;
};

}  // namespace kvhost
