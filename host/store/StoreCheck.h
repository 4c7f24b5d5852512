#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "StoreDatabase.h"

namespace kvhost {

/// What a check of the store found.
struct StoreCheckResult {
    std::int64_t jobs = 0;  ///< looked at
    std::int64_t attempts = 0;
    std::int64_t attachments = 0;
    std::vector<std::string> faults;  ///< one line each; empty when the store is sound. At most 100 of a kind

    bool IsSound() const { return faults.empty(); }
};

/// Proves that the store is consistent, at one moment and without changing it:
/// the database's own pages and indexes; every job has a submission; no job has two deliveries, and none was attempted
/// after one; the state follows from the last attempt; exactly the jobs handed over have an open attempt, and one;
/// the attempts of a job are numbered without a gap; the tally is that of the jobs; every attachment is there with the
/// size and the content that its digest tells. One thread at a time, as its database.
StoreCheckResult CheckStore(StoreDatabase& store);

}  // namespace kvhost
