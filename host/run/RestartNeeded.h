#pragma once

#include <string>
#include <vector>

#include "HostConfig.h"

namespace kvhost {

/// The settings in which two configurations differ and that a running daemon cannot change, such as "store" or
/// "[driver]". Empty when it can adopt all of the new one.
std::vector<std::string> RestartNeededFor(const HostConfig& before, const HostConfig& after);

}  // namespace kvhost
