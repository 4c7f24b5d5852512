#pragma once

#include "Kvobject.h"

/// A unit of work that a thread or the thread pool runs. One thread at a time runs DoWork; the three control
/// hooks may be called from another thread while it runs, or shortly after it has returned.
/// The operations are declared in the order of their slots.
class KvconDelegate : public Kvobject {
public:
    KvconDelegate() = default;
    ~KvconDelegate() override = default;

    KvconDelegate(const KvconDelegate&) = delete;
    KvconDelegate& operator=(const KvconDelegate&) = delete;

    /// The work itself; callers pass GetUserData() and ignore the result.
    virtual void* DoWork(void* userData) = 0;
    /// Asks a running DoWork to stop, to pause, to go on. They do nothing unless overridden.
    virtual void StopWork() {}
    virtual void PauseWork() {}
    virtual void ResumeWork() {}

    /// Stores `data`, which stays the caller's. True when nothing was stored before, false when it replaced
    /// a non-null pointer.
    bool SetUserData(void* data) {
        const bool wasEmpty = m_pUserData == nullptr;
        m_pUserData = data;
        return wasEmpty;
    }
    void* GetUserData() { return m_pUserData; }

protected:
    void* m_pUserData = nullptr;
};

/// Marks a work object whose DoWork may be ended only while it waits for a peer (see KvEndSignals). It is an
/// empty second base, so that it changes neither the members nor the slots of the class that bears it.
class KvconShieldedWork {};

/// Runs `work.DoWork(work.GetUserData())` on a thread of this library: a shielded one with the end signals
/// opened only in its waits, any other with the end signals open. An exception out of DoWork goes no further.
void KvRunDelegate(KvconDelegate& work);
