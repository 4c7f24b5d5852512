#pragma once

namespace kvhost {

/// What to do with a job that was with the driver when the host ended.
enum class DoubtPolicy {
    Retry,  ///< send it again; the recipient may get it twice
    Hold,   ///< leave it in doubt until an operator decides
    Fail    ///< count it as failed
};

}  // namespace kvhost
