#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "ConnectionCounter.h"
#include "CurrentConfig.h"
#include "DeliveryLog.h"
#include "Metrics.h"
#include "RecentAttempts.h"
#include "RunObserver.h"
#include "RunStatus.h"
#include "Secrets.h"
#include "StatusReport.h"
#include "StoreWatch.h"
#include "SubmissionRoutes.h"
#include "WebServer.h"

namespace kvhost {

/// All that shows a running daemon: the delivery log, the metrics and the status page, and the web server with the way
/// to hand jobs in, each as far as the configuration wants it. Made and destroyed on one thread; the observers are that
/// of the jobs.
class DaemonDisplay {
public:
    struct Parts {
        const CurrentConfig& config;
        const RunStatus& status;
        const ConnectionCounter& connections;
        std::shared_ptr<const Secrets> secrets;
        std::function<void(const std::string&)> warn;  ///< any thread
    };

    /// Opens the delivery log. The parts outlive the display. Throws BadInput when it cannot be opened.
    explicit DaemonDisplay(const Parts& parts);

    /// Who wants to be told what the daemon does.
    std::vector<RunObserver*> Observers();
    /// Begins to answer requests, when the configuration wants it; the store exists. Answers the port, or 0. Throws
    /// BadInput when the address cannot be had.
    int Listen();

private:
    Metrics::Sources MetricsSources();

    const Parts m_parts;
    const std::string m_strStore;
    std::unique_ptr<DeliveryLog> m_pDeliveryLog;  ///< null when none is wanted
    RecentAttempts m_recent;
    StoreWatch m_storeWatch;
    Metrics m_metrics;
    const StatusReporter m_reporter;
    SubmissionRoutes m_routes;
    std::unique_ptr<WebServer> m_pServer;  ///< last: its threads use the members above
};

}  // namespace kvhost
