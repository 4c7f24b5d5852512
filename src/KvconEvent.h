#pragma once

#include <pthread.h>

#include "Kvobject.h"

/// A signalled/non-signalled event. Thread-safe.
///
/// Invariants: a manual-reset event, once broadcast, releases every present and future waiter until Reset();
/// an auto-reset event releases one waiter per Broadcast() and is non-signalled again when that waiter has
/// consumed it; a Broadcast() without a waiter is remembered.
class KvconEvent : public Kvobject {
public:
    /// Results of Wait(); callers compare them exactly.
    enum WaitResult { EVENT_SIGNALED = 16, EVENT_TIMEOUT = 17, EVENT_ERROR = 18 };

    /// An auto-reset event, non-signalled. Throws as Initialize().
    KvconEvent();
    explicit KvconEvent(bool manualReset);
    /// Wakes every waiter (one, for an auto-reset event) and destroys the event.
    ~KvconEvent() override;

    KvconEvent(const KvconEvent&) = delete;
    KvconEvent& operator=(const KvconEvent&) = delete;

    /// Makes the primitives. Throws KvconException "Create lock failed" or "Create condition event failed".
    void Initialize();

    /// Waits up to `timeoutMs` milliseconds, without limit for -1. EVENT_SIGNALED, EVENT_TIMEOUT or
    /// EVENT_ERROR. Throws KvconException "Lock failed" or "Unlock failed".
    ///
    /// Compatibility: a timed wait waits once and does not look at the state again, so a spurious wake-up
    /// counts as a signal.
    /// Relied on by: pool workers, which look for work after any result but a time-out.
    /// Held by: KvconEventFaultTest.ATimedWaitWokenSpuriouslyCountsAsSignaled.
    int Wait(int timeoutMs);

    /// Makes a manual-reset event non-signalled; does nothing to an auto-reset event.
    /// Throws KvconException "Lock Failed".
    void Reset();

    /// Signals the event. Throws KvconException "Broadcast Event Failed".
    void Broadcast();

protected:
    int WaitWithoutLimit();
    int WaitOnceUntil(const timespec& deadline);
    void ConsumeIfAutoReset();

    bool m_bManualReset;
    pthread_cond_t m_cond;
    pthread_mutex_t m_mutex;
    bool m_bReset;     ///< set by the constructors and Reset(); nothing reads it
    bool m_bSignaled;  ///< guarded by m_mutex
};
