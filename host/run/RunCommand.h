#pragma once

#include <string>

#include "Command.h"
#include "HostConfig.h"
#include "StoreOptions.h"

namespace kvhost {

/// "kvhost run": the daemon. Takes jobs from the store, sends them through the driver and keeps their outcomes, until
/// it is told to stop.
class RunCommand : public Command {
public:
    CLI::App* Register(CLI::App& app) override;
    /// Throws BadInput, StoreError and DriverError when it cannot begin.
    int Run() override;

private:
    HostConfig LoadConfig() const;

    StoreOptions m_place;
    std::string m_strDriver;  ///< empty: the configuration's, as the two below
    std::string m_strLogLevel;
    std::string m_strLogFile;
};

}  // namespace kvhost
