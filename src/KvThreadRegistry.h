#pragma once

#include <pthread.h>

/// The live threads that this library started. Thread-safe.
///
/// pthread_kill on the id of a detached thread that has ended is undefined: it crashes, or it reaches a
/// stranger that got the same id. So every probe and every signal to a thread goes through here.
///
/// Invariants: a thread stands in the registry from before its routine runs until after the routine has
/// returned or has been unwound; a signal is sent while the registry is locked, so its target cannot end
/// meanwhile; all signals are blocked while the registry is locked, so no holder is ended there.
class KvThreadRegistry {
public:
    /// Starts a thread and enters it. The result of pthread_create; `*id` is set before `routine` runs.
    /// The end signals are blocked when `routine` starts (see KvEndSignals).
    static int Start(pthread_t* id, const pthread_attr_t* attributes, void* (*routine)(void*),
                     void* argument);

    /// pthread_kill for a thread that may have ended: ESRCH for an id that is not registered. Signal 0 probes.
    /// The calling thread itself can always be signalled, whoever started it.
    static int Signal(pthread_t id, int signal);

    static bool IsAlive(pthread_t id) { return Signal(id, 0) == 0; }

    /// Waits, without limit, until the thread that bears `id` now has left the registry.
    static void WaitUntilGone(pthread_t id);
};
