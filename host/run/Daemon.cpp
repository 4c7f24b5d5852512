#include "Daemon.h"

#include <SQLiteCpp/Exception.h>

#include <sstream>
#include <utility>

#include "Problem.h"
#include "RestartNeeded.h"

namespace kvhost {

namespace {

std::string RecoveryText(const Recovery& found) {
    return std::string(found.hasCrashed ? "the last run did not end by itself"
                                        : "the last run ended by itself") +
           "; of the jobs that were with the driver " + std::to_string(found.retried) + " go out again, " +
           std::to_string(found.held) + " wait for an operator, " + std::to_string(found.failed) +
           " count as failed, " + std::to_string(found.quarantined) + " are held";
}

}  // namespace

Daemon::Daemon(const ConfigSource& source, const ServiceNotifier& notifier)
    : Daemon(source, std::make_shared<const HostConfig>(source()), notifier) {}

Daemon::Daemon(ConfigSource source, std::shared_ptr<const HostConfig> config, const ServiceNotifier& notifier)
    : m_source(std::move(source)),
      m_pConfig(std::move(config)),
      m_store(m_pConfig->store, StoreDatabase::Access::Create),
      m_lock(m_pConfig->store),
      m_doorbell(m_pConfig->store),
      m_config(m_pConfig),
      m_pSecrets(std::make_shared<Secrets>(SecretMask(SecretsOf(*m_pConfig)))),
      m_pLogger(OpenLog(m_pConfig->logLevel, {m_pConfig->logFile, m_pConfig->logBytes, m_pConfig->logFiles})),
      m_log(m_pLogger, m_pSecrets, [this](const std::string& text) { m_connections.Watch(text); }),
      m_reports(m_log),
      m_attachments(m_pConfig->store, m_pConfig->limits.attachmentBytes),
      m_mail(m_pConfig->store, m_attachments),
      m_ledger(m_store),
      m_routes(
          m_pConfig->store, [this] { return m_config.Get(); },
          [this](const std::string& trouble) { m_log.Warn(trouble); }),
      m_monitoring(*m_pConfig, {m_status, m_connections, m_pSecrets, m_log}),
      m_library(m_pConfig->driver),
      m_driver({m_library,
                {m_log, m_reports, m_returned},
                m_log,
                m_pConfig->driverSettings,
                m_pConfig->run.tick,
                [this] { m_wakeUp.Wake(); }}),
      m_runner({m_ledger, m_driver, m_returned, m_mail, m_doorbell, m_wakeUp, m_log, m_monitoring.Observer(),
                *m_pSecrets, m_status, notifier, [this](const HostConfig& old) { return Reload(old); }},
               m_pConfig, m_timeStarted) {}

Runner::End Daemon::Run() {
    TellProblems(*m_pConfig);
    Serve();
    BeginRun();
    m_pHousekeeper =
        std::make_unique<Housekeeper>(m_pConfig->store, m_pConfig, m_log, m_monitoring.Observer());
    const Runner::End end = m_runner.Run();
    m_pHousekeeper.reset();
    EndRun();
    if (!Error().empty()) {
        m_log.Warn(Error());
    }
    m_log.Flush();
    return end;
}

void Daemon::Serve() {
    WebServer::MoreRoutes moreRoutes;
    if (m_pConfig->http.takesJobs) {
        moreRoutes = [this](httplib::Server& server) { m_routes.Register(server); };
    }
    m_monitoring.Serve(m_pConfig->http, moreRoutes);
}

// A writer who keeps the store for long must not make the daemon look dead; it tries again.
void Daemon::BeginRun() {
    constexpr int kWaitForWriterMs = 2000;
    const Recovery found = m_ledger.BeginRun(m_timeStarted, [this](const std::string& carrier) {
        const auto known = m_pConfig->carriers.find(carrier);
        return known == m_pConfig->carriers.end() ? DoubtPolicy::Hold : known->second.onDoubt;
    });
    m_store.Connection().setBusyTimeout(kWaitForWriterMs);
    if (found.hasCrashed || found.retried + found.held + found.failed + found.quarantined > 0) {
        m_log.Warn(RecoveryText(found));
    }
}

void Daemon::EndRun() {
    try {
        m_ledger.EndRun(StoreNow());
        m_log.Tell("stopped");
    } catch (const SQLite::Exception& error) {
        m_log.Warn(std::string("the end of the run cannot be noted: ") + error.what() +
                   "; the next start takes it for a crash");
    }
}

std::shared_ptr<const HostConfig> Daemon::Reload(const HostConfig& old) {
    std::shared_ptr<const HostConfig> config;
    try {
        config = std::make_shared<const HostConfig>(m_source());
        m_pSecrets->Learn(SecretsOf(*config));
    } catch (const std::exception& error) {
        std::istringstream lines(error.what());
        for (std::string line; std::getline(lines, line);) {
            m_log.Warn("the new configuration is refused, the old one stays: " + line);
        }
        return nullptr;
    }
    for (const std::string& setting : RestartNeededFor(*m_pConfig, *config)) {
        m_log.Warn("the new configuration needs a restart for " + setting +
                   "; until then the old setting stays");
    }
    m_pLogger->set_level(config->logLevel);
    TellProblems(*config);
    m_pHousekeeper->Adopt(config);
    m_config.Set(config);
    m_log.Warn("the configuration was read anew: " + std::to_string(config->carriers.size()) +
               " carriers, before " + std::to_string(old.carriers.size()));
    return config;
}

void Daemon::TellProblems(const HostConfig& config) {
    for (const Problem& problem : config.problems) {
        m_log.Warn(Describe(problem));
    }
}

}  // namespace kvhost
