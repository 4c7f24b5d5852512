#pragma once

#include <string>

#include "HostConfig.h"

namespace kvhost {

/// Reads the configuration file at `path` (TOML 1.0).
///
/// Throws BadInput, naming every fault with its line, when the file cannot be read or when anything but a
/// carrier is wrong in it. A carrier with a fault does not throw: it is left out and noted in the result.
HostConfig ReadConfig(const std::string& path);

}  // namespace kvhost
