#pragma once

#include <string>
#include <vector>

#include "HostConfig.h"

namespace kvhost {

/// What a check of a configuration found.
struct ConfigFindings {
    std::string file;
    std::vector<std::string> faults;  ///< what keeps a command from working
    std::vector<std::string> notes;   ///< what is missing and may be meant so
    HostConfig config;                ///< the standard values when the file could not be read
    bool isRead = false;              ///< the file could be read
};

/// Reads the configuration and looks whether this user can write where it says. `store` takes the place of the
/// configured store unless it is empty. Throws nothing for faults.
ConfigFindings CheckConfig(const std::string& file, const std::string& store);

}  // namespace kvhost
