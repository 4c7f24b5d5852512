#pragma once

#include <condition_variable>
#include <filesystem>
#include <memory>
#include <mutex>
#include <thread>

#include "HostConfig.h"
#include "LogSink.h"
#include "StoreDatabase.h"
#include "StoreTime.h"

namespace kvhost {

/// Keeps the store from growing: deletes jobs that ended long enough ago, gives up jobs whose carrier was out of reach for
/// as long as they may be tried, and deletes attachments that no job refers to. On a thread and a connection of its
/// own, in small portions, so that nobody waits for it. Thread-safe.
class Housekeeper {
public:
    /// Starts the thread. `log` outlives the object.
    Housekeeper(std::filesystem::path storeFolder, std::shared_ptr<const HostConfig> config, LogSink& log);
    /// Ends after the portion at hand.
    ~Housekeeper();
    Housekeeper(const Housekeeper&) = delete;
    Housekeeper& operator=(const Housekeeper&) = delete;

    void Adopt(std::shared_ptr<const HostConfig> config);

private:
    void Main();
    bool Pause(std::chrono::milliseconds time);

    const std::filesystem::path m_pathStore;
    LogSink& m_log;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_bEnd = false;                          ///< guarded by m_mutex
    std::shared_ptr<const HostConfig> m_pConfig;  ///< guarded by m_mutex

    std::thread m_thread;  ///< last: it uses the members above
};

/// One portion of each kind of work that there is; answers whether there may be more. Throws SQLite::Exception.
bool TidyPortion(StoreDatabase& store, const HostConfig& config, StoreTime now);

}  // namespace kvhost
