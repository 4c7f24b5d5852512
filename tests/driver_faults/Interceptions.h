#pragma once

#include <functional>
#include <vector>

namespace kvtest {

/// While this lives, usleep returns at once on the thread that made it, and what was asked for is noted. Other
/// threads sleep as ever. One at a time on a thread.
class RecordedPauses {
public:
    RecordedPauses();
    ~RecordedPauses();

    RecordedPauses(const RecordedPauses&) = delete;
    RecordedPauses& operator=(const RecordedPauses&) = delete;

    /// The pauses asked for, in microseconds, in order.
    const std::vector<unsigned int>& microseconds() const { return m_microseconds; }

private:
    std::vector<unsigned int> m_microseconds;
};

/// While this lives, recv delivers `replies` times on the thread that made it and then ends with ETIMEDOUT, as it
/// does when the peer has not acknowledged anything for too long. Other threads receive as ever. One at a time on
/// a thread.
class TimedOutReceive {
public:
    explicit TimedOutReceive(int replies);
    ~TimedOutReceive();

    TimedOutReceive(const TimedOutReceive&) = delete;
    TimedOutReceive& operator=(const TimedOutReceive&) = delete;
};

/// While this lives, `action` runs wherever an engine is to be probed or closed on the thread that made it, and
/// nothing is probed or closed. One at a time on a thread.
class EngineCallsReplaced {
public:
    explicit EngineCallsReplaced(const std::function<void()>& action);
    ~EngineCallsReplaced();

    EngineCallsReplaced(const EngineCallsReplaced&) = delete;
    EngineCallsReplaced& operator=(const EngineCallsReplaced&) = delete;

private:
    std::function<void()> m_action;
};

}  // namespace kvtest
