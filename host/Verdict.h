#pragma once

#include <string>

#include "KvMessageFile.h"

namespace kvhost {

/// What a driver says of a file that it has handed back. Immutable value.
struct Verdict {
    bool isDelivered = false;
    std::string reason;  ///< why not, as one visible line; empty for a delivered one
};

/// Reads the verdict off a returned file. `failureReason`: what the driver gave to SetFailureReason.
Verdict VerdictOn(const KvMessageFile& file, const std::string& failureReason);

}  // namespace kvhost
