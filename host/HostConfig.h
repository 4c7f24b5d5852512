#pragma once

#include <spdlog/common.h>

#include <map>
#include <string>
#include <vector>

#include "KvMessageFile.h"
#include "Problem.h"

namespace kvhost {

/// One mail account that jobs go through, checked and complete. Immutable value.
struct Carrier {
    std::string name;
    unsigned long id = 0;
    std::string server;  ///< a host name, with a colon and the port when one is configured
    SmtpSecurityType security = SMTP_SECURITY_REQUIRED;
    std::string user;
    std::string password;
    std::string sender;
    std::string caFile;
    std::string certFile;
    std::string keyFile;
};

/// What the configuration file says. Immutable value.
struct HostConfig {
    /// The driver's settings under its own keys, for Configure; only those that are configured.
    std::map<std::string, std::string> driverSettings;
    spdlog::level::level_enum logLevel = spdlog::level::warn;
    std::string logFile;  ///< empty: standard error
    std::map<std::string, Carrier> carriers;
    /// Carriers that the file names but that cannot be used, by name, with the reason.
    std::map<std::string, std::string> refusedCarriers;
    /// One entry for each fault of a carrier.
    std::vector<Problem> problems;
};

}  // namespace kvhost
