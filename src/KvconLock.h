#pragma once

#include <pthread.h>

#include "Kvobject.h"

/// A recursive mutex. Thread-safe. The thread that holds it may lock it again and unlocks it as many times.
class KvconLock : public Kvobject {
public:
    /// Results of Lock() and TryLock(); callers compare them exactly.
    enum LockResult { LOCK_ACQUIRED = 0, LOCK_BUSY = 1, LOCK_FAILED = 2 };

    /// Throws KvconException "Create Lock Failed" when the mutex cannot be made.
    KvconLock();

    /// Compatibility: unlocks once, whoever holds the lock, and then destroys it, so that a lock that is
    /// destroyed while the destroying thread holds it is released first. The result is ignored.
    /// Relied on by: owners that delete a lock from inside its own critical section.
    /// Held by: KvconLockFaultTest.DestructionReleasesALockHeldByTheDestroyingThread.
    ~KvconLock() override;

    KvconLock(const KvconLock&) = delete;
    KvconLock& operator=(const KvconLock&) = delete;

    /// Waits for the lock. LOCK_ACQUIRED, also when the system reports a dead-lock (the lock is then already
    /// held); LOCK_FAILED otherwise. Never throws.
    int Lock();
    /// As Lock(), but answers LOCK_BUSY instead of waiting.
    int TryLock();
    /// The result of pthread_mutex_unlock: 0, or an error number such as EPERM.
    int Unlock();

protected:
    pthread_mutex_t m_mutex;
};
