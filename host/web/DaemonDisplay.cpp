#include "DaemonDisplay.h"

namespace kvhost {

namespace {

std::unique_ptr<DeliveryLog> OpenDeliveryLog(const DaemonDisplay::Parts& parts) {
    const RotatedFile& file = parts.config.Get()->deliveryLog;
    return file.path.empty() ? nullptr : std::make_unique<DeliveryLog>(file, parts.warn);
}

}  // namespace

DaemonDisplay::DaemonDisplay(const Parts& parts)
    : m_parts(parts),
      m_strStore(parts.config.Get()->store),
      m_pDeliveryLog(OpenDeliveryLog(parts)),
      m_storeWatch(m_strStore),
      m_metrics(MetricsSources()),
      m_reporter(parts.status, m_storeWatch, m_recent, parts.secrets),
      m_routes(m_strStore, [&config = parts.config] { return config.Get(); }) {}

Metrics::Sources DaemonDisplay::MetricsSources() {
    Metrics::Sources sources{m_parts.status, m_storeWatch, m_parts.connections, {}};
    if (m_pDeliveryLog) {
        sources.lostDeliveryLines = [log = m_pDeliveryLog.get()] { return log->LostLines(); };
    }
    return sources;
}

std::vector<RunObserver*> DaemonDisplay::Observers() {
    std::vector<RunObserver*> observers{&m_recent, &m_metrics};
    if (m_pDeliveryLog) {
        observers.push_back(m_pDeliveryLog.get());
    }
    return observers;
}

int DaemonDisplay::Listen() {
    const HttpSettings settings = m_parts.config.Get()->http;
    if (!settings.isOn) {
        return 0;
    }
    WebServer::MoreRoutes moreRoutes;
    if (settings.takesJobs) {
        moreRoutes = [this](httplib::Server& server) { m_routes.Register(server); };
    }
    m_pServer = std::make_unique<WebServer>(
        settings, WebServer::Parts{m_metrics, m_reporter, m_parts.warn, moreRoutes});
    return m_pServer->Port();
}

}  // namespace kvhost
