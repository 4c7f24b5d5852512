#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "JobViews.h"
#include "StoreDatabase.h"

namespace kvhost {

/// What the store said at one moment. Immutable value.
struct StoreFigures {
    std::string trouble;  ///< why the store cannot be read; the rest is empty then. Empty when it can
    std::map<std::string, StateCounts> jobs;  ///< by carrier
    std::optional<StoreTime> oldestQueued;    ///< when it was submitted
    std::vector<StoredJob> waiting;  ///< queued, held or in doubt: the first ones in the order of submission
};

/// Reads a store for those who look at the daemon, through a connection of its own. Thread-safe. However many look, the
/// store is read once in `maxAge`. A store that cannot be read is tried anew the next time.
class StoreWatch {
public:
    static constexpr int kWaitingShown = 20;

    explicit StoreWatch(std::filesystem::path folder,
                        std::chrono::milliseconds maxAge = std::chrono::milliseconds(1000));

    std::shared_ptr<const StoreFigures> Get();

private:
    StoreFigures Read();
    StoreFigures ReadOrTell();

    const std::filesystem::path m_pathFolder;
    const std::chrono::milliseconds m_msMaxAge;

    std::mutex m_mutex;  ///< guards the rest
    std::unique_ptr<StoreDatabase> m_pStore;
    std::shared_ptr<const StoreFigures> m_pFigures;  ///< what it points to never changes
    std::chrono::steady_clock::time_point m_timeRead;
};

}  // namespace kvhost
