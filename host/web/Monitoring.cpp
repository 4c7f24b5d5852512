#include "Monitoring.h"

namespace kvhost {

Monitoring::Monitoring(const HostConfig& config, const Sources& sources)
    : m_log(sources.log),
      m_store(config.store),
      m_pDeliveryLog(OpenDeliveryLog(config.deliveryLog)),
      m_metrics({sources.status, m_store, sources.connections,
                 [this] { return m_pDeliveryLog == nullptr ? 0 : m_pDeliveryLog->LostLines(); }}),
      m_observers(sources.secrets, Observers(), [this](const std::string& text) { Warn(text); }),
      m_status(sources.status, m_store, m_recent, sources.secrets) {}

void Monitoring::Serve(const HttpSettings& settings, const WebServer::MoreRoutes& moreRoutes) {
    if (!settings.isOn) {
        return;
    }
    m_pServer = std::make_unique<WebServer>(
        settings,
        WebServer::Parts{m_metrics, m_status, [this](const std::string& text) { Warn(text); }, moreRoutes});
    m_log.Tell("listening for HTTP at " + settings.address + ":" + std::to_string(m_pServer->Port()));
}

std::unique_ptr<DeliveryLog> Monitoring::OpenDeliveryLog(const RotatedFile& file) const {
    if (file.path.empty()) {
        return nullptr;
    }
    return std::make_unique<DeliveryLog>(file, [this](const std::string& text) { Warn(text); });
}

std::vector<RunObserver*> Monitoring::Observers() {
    std::vector<RunObserver*> observers = {&m_metrics, &m_recent};
    if (m_pDeliveryLog != nullptr) {
        observers.push_back(m_pDeliveryLog.get());
    }
    return observers;
}

}  // namespace kvhost
