#pragma once

#include <condition_variable>
#include <filesystem>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "HostConfig.h"
#include "JobLedger.h"
#include "LogSink.h"
#include "RunObserver.h"
#include "StoreDatabase.h"
#include "StoreTime.h"

namespace kvhost {

/// Keeps the store from growing: deletes jobs that ended long enough ago, gives up jobs whose carrier was out of reach for
/// as long as they may be tried, and deletes attachments that no job refers to. On a thread and a connection of its
/// own, in small portions, so that nobody waits for it. Thread-safe.
class Housekeeper {
public:
    /// Starts the thread. `log` and `observer`, which hears of the jobs that are given up, outlive the object.
    Housekeeper(std::filesystem::path storeFolder, std::shared_ptr<const HostConfig> config, LogSink& log,
                RunObserver& observer);
    /// Ends after the portion at hand.
    ~Housekeeper();
    Housekeeper(const Housekeeper&) = delete;
    Housekeeper& operator=(const Housekeeper&) = delete;

    void Adopt(std::shared_ptr<const HostConfig> config);

private:
    void Main();
    bool Tidy(StoreDatabase& store, const HostConfig& config);
    bool Pause(std::chrono::milliseconds time);

    const std::filesystem::path m_pathStore;
    LogSink& m_log;
    RunObserver& m_observer;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_bEnd = false;                          ///< guarded by m_mutex
    std::shared_ptr<const HostConfig> m_pConfig;  ///< guarded by m_mutex

    std::thread m_thread;  ///< last: it uses the members above
};

/// One portion of each kind of work that there is; answers whether there may be more, and adds the jobs that it gave up
/// to `expired`. Throws SQLite::Exception.
bool TidyPortion(StoreDatabase& store, const HostConfig& config, StoreTime now,
                 std::vector<ExpiredJob>& expired);

}  // namespace kvhost
