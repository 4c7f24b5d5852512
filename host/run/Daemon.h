#pragma once

#include <functional>
#include <memory>
#include <string>

#include "AttachmentStore.h"
#include "ConnectionCounter.h"
#include "CurrentConfig.h"
#include "Doorbell.h"
#include "DriverLibrary.h"
#include "DriverLoop.h"
#include "HostConfig.h"
#include "Housekeeper.h"
#include "JobLedger.h"
#include "KvMessageFileQueue.h"
#include "LogSink.h"
#include "Monitoring.h"
#include "OutgoingMail.h"
#include "ReportWriter.h"
#include "RunStatus.h"
#include "Runner.h"
#include "Secrets.h"
#include "ServiceNotifier.h"
#include "StoreDatabase.h"
#include "StoreLock.h"
#include "SubmissionRoutes.h"

namespace kvhost {

/// The running host of a store, put together from its parts. Made, run and destroyed on one thread each; the requests are
/// thread-safe.
class Daemon {
public:
    /// Reads the configuration, with what the command line says instead. Throws BadInput.
    using ConfigSource = std::function<HostConfig()>;

    /// Opens the store, takes its lock and loads the driver. All stop signals and SIGHUP are blocked before. Throws
    /// StoreError (another host has the store, or it cannot be used), BadInput and DriverError.
    Daemon(const ConfigSource& source, const ServiceNotifier& notifier);

    /// Runs to the end and answers how that was. After Stuck a thread is still inside the driver: the process has to
    /// end without unwinding (std::_Exit).
    Runner::End Run();

    void RequestStop() { m_runner.RequestStop(); }
    void RequestReload() { m_runner.RequestReload(); }

    /// What went wrong with the driver; empty when nothing did.
    std::string Error() const { return m_driver.Look().error; }
    /// The board for those who show what the daemon does.
    const RunStatus& Status() const { return m_status; }
    void FlushLog() { m_log.Flush(); }

private:
    Daemon(ConfigSource source, std::shared_ptr<const HostConfig> config, const ServiceNotifier& notifier);

    void Serve();
    void BeginRun();
    void EndRun();
    std::shared_ptr<const HostConfig> Reload(const HostConfig& old);
    void TellProblems(const HostConfig& config);

    const ConfigSource m_source;
    const std::shared_ptr<const HostConfig> m_pConfig;  ///< as it was at the start
    const StoreTime m_timeStarted = StoreNow();
    StoreDatabase m_store;
    const StoreLock m_lock;
    Doorbell m_doorbell;
    CurrentConfig m_config;  ///< as it is now
    ConnectionCounter m_connections;
    const std::shared_ptr<Secrets> m_pSecrets;
    const std::shared_ptr<spdlog::logger> m_pLogger;
    LogSink m_log;
    ReportWriter m_reports;
    KvMessageFileQueue m_returned;
    AttachmentStore m_attachments;
    OutgoingMail m_mail;
    JobLedger m_ledger;
    RunStatus m_status;
    SubmissionRoutes m_routes;
    Monitoring m_monitoring;
    WakeUp m_wakeUp;
    DriverLibrary m_library;
    DriverLoop m_driver;
    Runner m_runner;
    std::unique_ptr<Housekeeper> m_pHousekeeper;  ///< while it runs
};

}  // namespace kvhost
