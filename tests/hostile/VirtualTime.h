#pragma once

#include <chrono>

namespace kvtest {

/// The time of the driver's waits, in the hands of a hostile server. Thread-safe.
///
/// The program stands between the driver and the calls with which it waits for a peer. A wait ends as ever when the
/// peer says something; where the peer says nothing, time passes only as far as the peer lets it, and then at once.
/// So a time-out of a minute takes no time, and none passes where there is something to read. The driver's threads
/// see that time on their clocks; those of the test do not.
///
///     server.on("MAIL").answer([](const CommandContext&) { return SilentFor(60s); });
class VirtualTime {
public:
    /// Lets so much time pass in a wait of the driver that finds nothing to do, the one that is under way or the next
    /// one. Returns when it has passed; false when for ten seconds of real time the driver has not waited.
    static bool Pass(std::chrono::milliseconds length);

    /// How many waits of the driver have ended because their time was over, since the program began.
    static int ExpiredWaits();
    /// All the time that has passed in waits of the driver since the program began.
    static std::chrono::milliseconds Passed();
};

/// While this lives, the driver finds what it waits for as if it had been there before: its waits open nothing to a
/// signal, as with a server that is always faster than the driver. One at a time.
class AlwaysReady {
public:
    AlwaysReady();
    ~AlwaysReady();

    AlwaysReady(const AlwaysReady&) = delete;
    AlwaysReady& operator=(const AlwaysReady&) = delete;
};

}  // namespace kvtest
