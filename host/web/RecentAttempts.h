#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

#include "RunObserver.h"

namespace kvhost {

/// An attempt that did not deliver. Immutable value.
struct RecentFailure {
    StoreTime time;
    std::string job;
    std::string carrier;
    std::string recipient;
    int attempt = 0;
    std::string reason;
    JobState next = JobState::Failed;
    std::string decision;
};

/// How the attempts of one minute ended. Immutable value.
struct MinuteFigures {
    StoreTime begin;
    int delivered = 0;
    int failed = 0;   ///< given up
    int retried = 0;  ///< queued again
};

/// Remembers the last failures and the figures of the last hour, in memory that does not grow. Thread-safe.
class RecentAttempts : public RunObserver {
public:
    static constexpr std::size_t kFailures = 50;
    static constexpr std::int64_t kMinutes = 60;
    static constexpr std::size_t kTextBytes = 1000;  ///< of a reason or a decision; the rest is left out

    void AttemptEnded(const AttemptReport& report) override;

    /// The newest first.
    std::vector<RecentFailure> Failures() const;
    /// The last hour, a minute each, the oldest first; the last one is the minute of `now`, which is not over.
    std::vector<MinuteFigures> LastHour(StoreTime now) const;

private:
    void Count(const AttemptReport& report);

    mutable std::mutex m_mutex;
    std::deque<RecentFailure> m_deqFailures;  ///< guarded by m_mutex
    /// Each minute has its place, by its number since 1970. Guarded by m_mutex.
    std::array<MinuteFigures, static_cast<std::size_t>(kMinutes)> m_arrMinutes{};
};

}  // namespace kvhost
