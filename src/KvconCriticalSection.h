#pragma once

#include "KvconLock.h"

/// A scoped lock. One thread at a time: it lives on the stack of the thread that locks.
class KvconCriticalSection {
public:
    /// Allocates a lock of its own and deletes it at the end. Does not lock.
    KvconCriticalSection();
    /// Guards `lock`, which stays the caller's unless `deleteLock`. Locks at once when `lockNow` (the result is
    /// ignored); the destructor unlocks once when `unlockOnExit`.
    KvconCriticalSection(KvconLock* lock, bool lockNow, bool unlockOnExit, bool deleteLock);

    /// Compatibility: unlocks exactly once, whatever Enter() and Leave() calls were made in between.
    /// Relied on by: code that leaves early on a guard that also unlocks on exit; the recursive lock answers
    /// the surplus unlock with an error number that nobody reads.
    /// Held by: KvconCriticalSectionTest.LeaveOnAGuardThatUnlocksOnExitUnlocksTwice.
    ~KvconCriticalSection();

    KvconCriticalSection(const KvconCriticalSection&) = delete;
    KvconCriticalSection& operator=(const KvconCriticalSection&) = delete;

    /// Locks; true when the lock was acquired.
    bool Enter();
    /// Unlocks; always true.
    bool Leave();
    KvconLock* GetLockObj() { return m_pLock; }

protected:
    KvconLock* m_pLock;
    bool m_bDeleteLock;
    bool m_bUnlockOnExit;
};
