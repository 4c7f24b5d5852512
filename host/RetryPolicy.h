#pragma once

#include <string>
#include <vector>

#include "Duration.h"

namespace kvhost {

/// What a carrier does about failed attempts. Immutable value.
///
/// The wait before the next attempt is `first` after the first failure and `factor` times as long after each further
/// one, up to `longest`; then it is made up to `jitter` of itself shorter or longer, so that jobs that failed together
/// do not come back together.
struct RetryPolicy {
    Milliseconds first{30000};
    double factor = 2;
    Milliseconds longest{3600000};
    double jitter = 0.2;  ///< 0 to 1
    /// How long a job without a deadline of its own is tried, from its submission; 0 for ever.
    Milliseconds lifetime{86400000};
    int attempts = 0;  ///< attempts in all, the first included; 0 for no limit
    int unclearAttempts =
        5;  ///< the same for failures that tell neither a passing nor a lasting trouble; 0 for no limit
    /// Parts of reasons, in any case, that make a failure lasting or passing whatever else the reason says; the lasting
    /// ones are looked at first.
    std::vector<std::string> lasting;
    std::vector<std::string> passing;
};

}  // namespace kvhost
