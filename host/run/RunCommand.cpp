#include "RunCommand.h"

#include <cstdlib>
#include <iostream>

#include "Daemon.h"
#include "LogLevel.h"
#include "Problem.h"
#include "ServiceNotifier.h"
#include "SignalWatch.h"
#include "VisibleText.h"

namespace kvhost {

namespace {

std::string WhyNotALogLevel(const std::string& name) {
    return ParseLogLevel(name) ? "" : std::string("expected ") + kLogLevelNames;
}

}  // namespace

CLI::App* RunCommand::Register(CLI::App& app) {
    CLI::App* run = app.add_subcommand("run", "Run the jobs of a store until told to stop");
    m_place.RegisterPlace(*run);
    run->add_option("--driver", m_strDriver, "Driver library to load, instead of the configuration's");
    run->add_option("--log-level", m_strLogLevel, std::string("Level of the log: ") + kLogLevelNames)
        ->check(WhyNotALogLevel);
    run->add_option("--log-file", m_strLogFile,
                    "File that the log is appended to, instead of the configuration's");
    return run;
}

// The signals are blocked first, so that every thread begins with them blocked.
int RunCommand::Run() {
    const ServiceNotifier notifier;
    SignalWatch signals(SignalWatch::HangUp::Watch);
    Daemon daemon([this] { return LoadConfig(); }, notifier);
    Runner::End end = Runner::End::Clean;
    signals.RunWatched([&] { end = daemon.Run(); }, [&daemon] { daemon.RequestStop(); },
                       [&daemon] { daemon.RequestReload(); });
    if (end == Runner::End::Stuck) {
        std::cerr << "kvhost: the driver does not return from its clean-up; ending without it" << std::endl;
        std::_Exit(kExitSomeFailed);
    }
    if (end == Runner::End::DriverFailed) {
        std::cerr << "kvhost: " << MakeVisible(daemon.Error()) << std::endl;
        return kExitBadInput;
    }
    return kExitSuccess;
}

HostConfig RunCommand::LoadConfig() const {
    HostConfig config = m_place.LoadConfig();
    if (!m_place.GivenStore().empty()) {
        config.store = m_place.GivenStore();
    }
    if (config.store.empty()) {
        throw BadInput({Problem{m_place.ConfigFile(), 0, "store",
                                "expected the folder of the job store; the field is missing"}});
    }
    if (!m_strDriver.empty()) {
        config.driver = m_strDriver;
    }
    config.logLevel = ParseLogLevel(m_strLogLevel).value_or(config.logLevel);
    if (!m_strLogFile.empty()) {
        config.logFile = m_strLogFile;
    }
    return config;
}

}  // namespace kvhost
