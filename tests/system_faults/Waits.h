#pragma once

#include <vector>

namespace kvtest {

/// While this lives, every wait of the socket layer for a readable descriptor ends at once, as expired or as
/// interrupted, and its time-out is noted. Without one the waits are the system's own. One at a time; the
/// waits of other threads that pass no time-out are left alone.
class EndedWaits {
public:
    enum class How { Expired, Interrupted };

    explicit EndedWaits(How how);
    ~EndedWaits();

    EndedWaits(const EndedWaits&) = delete;
    EndedWaits& operator=(const EndedWaits&) = delete;

    /// The time-outs asked for, in milliseconds, in the order of the waits.
    std::vector<long> timeouts() const;
};

}  // namespace kvtest
