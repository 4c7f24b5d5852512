#pragma once

#include <memory>
#include <string>

#include "ConnectionCounter.h"
#include "DeliveryLog.h"
#include "HostConfig.h"
#include "LogSink.h"
#include "Metrics.h"
#include "ObserverList.h"
#include "RecentAttempts.h"
#include "RunStatus.h"
#include "Secrets.h"
#include "StatusReport.h"
#include "StoreWatch.h"
#include "WebServer.h"

namespace kvhost {

/// All that shows what a daemon does, put together: delivery log, metrics, recent attempts and, when the configuration
/// wants it, the web server. One thread at a time; the observer is for the thread that runs the jobs.
class Monitoring {
public:
    /// What it looks at; all of it outlives the monitoring. `connections` watches the driver's log.
    struct Sources {
        const RunStatus& status;
        const ConnectionCounter& connections;
        std::shared_ptr<const Secrets> secrets;
        LogSink& log;
    };

    /// Opens the delivery log, when there is to be one. Throws BadInput when it cannot be opened.
    Monitoring(const HostConfig& config, const Sources& sources);

    /// To be told what the daemon does.
    RunObserver& Observer() { return m_observers; }

    /// Listens, when the configuration wants it, and tells in the log where. Call once, when the store exists. Throws
    /// BadInput when the address cannot be had.
    void Serve(const HttpSettings& settings, const WebServer::MoreRoutes& moreRoutes);
    /// Where the server listens; 0 without one.
    int Port() const { return m_pServer == nullptr ? 0 : m_pServer->Port(); }

private:
    void Warn(const std::string& text) const { m_log.Warn(text); }
    std::unique_ptr<DeliveryLog> OpenDeliveryLog(const RotatedFile& file) const;
    std::vector<RunObserver*> Observers();

    LogSink& m_log;
    StoreWatch m_store;
    const std::unique_ptr<DeliveryLog> m_pDeliveryLog;  ///< null: none is wanted
    Metrics m_metrics;
    RecentAttempts m_recent;
    ObserverList m_observers;
    StatusReporter m_status;
    std::unique_ptr<WebServer> m_pServer;
};

}  // namespace kvhost
