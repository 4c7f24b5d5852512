#pragma once

#include <string>

#include "HostConfig.h"
#include "SecretsUse.h"

namespace kvhost {

/// Reads the configuration file at `path` (TOML 1.0).
///
/// Throws BadInput, naming every fault with its line, when the file cannot be read or when anything but a
/// carrier is wrong in it. A carrier with a fault does not throw: it is left out and noted in the result.
///
/// With SecretsUse::Skip nothing that holds a secret is opened: the passwords of the result and the token are empty, and
/// no carrier is refused because its password or its private key cannot be read.
HostConfig ReadConfig(const std::string& path, SecretsUse secrets = SecretsUse::Read);

}  // namespace kvhost
