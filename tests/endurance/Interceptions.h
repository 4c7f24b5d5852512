#pragma once

namespace kvtest {

// What the program does in the place of system calls of the driver that is linked into it. Without one of these
// objects every call is the system's own. The calls of a driver that is loaded at run time are never touched.

/// While this lives, the pauses of the driver (usleep, sleep) last 0.2 ms at most, on every thread. One at a time.
class ShortPauses {
public:
    ShortPauses();
    ~ShortPauses();

    ShortPauses(const ShortPauses&) = delete;
    ShortPauses& operator=(const ShortPauses&) = delete;
};

/// While this lives, the driver's sockets are made with other limits. One at a time.
class SocketLimits {
public:
    /// `unacknowledgedMs`: how long the peer may leave data unacknowledged, instead of the driver's 10 s.
    /// `sendBuffer`: bytes that are taken before a write waits, 0 for the system's own choice.
    explicit SocketLimits(int unacknowledgedMs, int sendBuffer = 0);
    ~SocketLimits();

    SocketLimits(const SocketLimits&) = delete;
    SocketLimits& operator=(const SocketLimits&) = delete;
};

/// While this lives, no wait of the driver for a reply ends by time (pselect with a time-out) unless the test says
/// so. One at a time.
///
///     ReplyClock clock;
///     ASSERT_TRUE(server.waitForCommand("MAIL"));
///     clock.expireNext();  // the 60 s for the reply to MAIL are over
class ReplyClock {
public:
    ReplyClock();
    ~ReplyClock();

    ReplyClock(const ReplyClock&) = delete;
    ReplyClock& operator=(const ReplyClock&) = delete;

    /// One wait for a reply, under way or to come, ends as expired; the others last.
    void expireNext();
    /// Every wait that finds nothing to read ends as expired at once.
    void expireAll();
    /// Waits that have expired since this object was made.
    int expired() const;
};

/// While this lives, the driver's threads cannot keep SIGQUIT blocked: a worker may be ended at any instruction. One at
/// a time.
class UnshieldedWorkers {
public:
    UnshieldedWorkers();
    ~UnshieldedWorkers();

    UnshieldedWorkers(const UnshieldedWorkers&) = delete;
    UnshieldedWorkers& operator=(const UnshieldedWorkers&) = delete;
};

/// How many end signals (SIGQUIT) the driver has sent to its workers, and how many threads such a signal has
/// ended, since the program began.
unsigned long EndSignalsSent();
unsigned long ThreadsEndedBySignal();

}  // namespace kvtest
