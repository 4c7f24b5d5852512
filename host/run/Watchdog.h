#pragma once

#include <chrono>
#include <optional>

#include "Duration.h"

namespace kvhost {

/// Decides when the service manager is told that the daemon is alive: at its interval, and not while the driver has been
/// inside one call for longer than any work takes. The caller's own thread is alive when it asks. One thread at a time.
class Watchdog {
public:
    using Time = std::chrono::steady_clock::time_point;

    /// A driver that waits for silent servers, one after the other, is inside a call for minutes.
    static constexpr std::chrono::minutes kLongestCall{15};

    /// `interval`: nothing when nobody watches.
    explicit Watchdog(std::optional<Milliseconds> interval) : m_interval(interval) {}

    /// True when it is to be told now. `inCallSince`: nothing while the driver is in no call.
    bool IsToBeTold(const std::optional<Time>& inCallSince, Time now) {
        const bool isDriverAlive = !inCallSince || now - *inCallSince < kLongestCall;
        if (!m_interval || !isDriverAlive || (m_timeTold && now - *m_timeTold < *m_interval)) {
            return false;
        }
        m_timeTold = now;
        return true;
    }

private:
    const std::optional<Milliseconds> m_interval;
    std::optional<Time> m_timeTold;
};

}  // namespace kvhost
