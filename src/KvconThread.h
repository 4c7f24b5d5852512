#pragma once

#include <pthread.h>

#include "KvconDelegate.h"
#include "Kvobject.h"

/// Runs one delegate on one detached thread, with signal-based suspend, resume and kill. One controlling
/// thread at a time calls Run, Stop, Resume and Kill.
///
/// The signal handlers are process-wide: once InitializeLibrary has run, SIGQUIT or SIGTERM sent to the
/// process ends whichever thread receives it instead of the process.
class KvconThread : public Kvobject {
public:
    KvconThread();
    /// Neither stops nor waits for the thread.
    ~KvconThread() override = default;

    KvconThread(const KvconThread&) = delete;
    KvconThread& operator=(const KvconThread&) = delete;

    /// Starts a thread that runs `delegate` (which may be null); does nothing while one runs. The delegate
    /// stays the caller's unless auto-clean is on. Throws KvconException "Create Thread Failed".
    void Run(KvconDelegate* delegate);
    /// The body of the thread; frees `record`, which Run made.
    static void* ThreadWork(void* record);

    /// When on, the thread deletes this object and the delegate as soon as DoWork returns; the caller must
    /// not touch either after Run.
    void SetAutoClean(bool autoClean) { m_bAutoClean = autoClean; }

    /// Id of the running thread; all bits set while none runs.
    pthread_t GetThreadID();
    static pthread_t GetMyThreadID();

    /// True while the thread lives.
    bool IsRunning();
    /// Compatibility: probes with kill, so `id` is taken for a process id.
    /// Relied on by: hosts that pass the id of a process.
    /// Held by: KvconThreadTest.IsThreadActiveProbesProcesses.
    static bool IsThreadActive(unsigned long id);

    /// Waits until the thread has ended, looking every 250 ms, or until the remaining time is exactly 0.
    /// Always 0.
    ///
    /// Compatibility: a time-out that is not a multiple of 250 (and 0 itself) never reaches exactly 0; the
    /// wait then lasts until the thread ends.
    /// Relied on by: callers that pass odd time-outs to wait without limit.
    /// Held by: KvconThreadTest.WaitingForATimeoutThatIsNotAMultipleOf250LastsUntilTheThreadEnds.
    int WaitForThreadObject(unsigned long timeoutMs);

    /// Ends the thread with SIGQUIT; nothing is cleaned up and the id keeps its value. Does nothing while idle.
    /// Throws KvconException "Kill Thread Failed".
    void Kill();

    /// Suspends the thread with SIGUSR1 and waits, without limit, until it is suspended or has ended. Does
    /// nothing while idle. Throws KvconException "Suspend Thread Failed".
    void Stop();

    /// Compatibility: sends SIGUSR1 again, not SIGUSR2, so a suspended thread stays suspended until something
    /// sends it SIGUSR2.
    /// Relied on by: hosts that resume with SIGUSR2 themselves.
    /// Held by: KvconThreadTest.ResumeLeavesASuspendedThreadSuspended.
    ///
    /// Throws KvconException "Resume Thread Failed", also while idle.
    void Resume();

    /// Handler of SIGUSR1: sleeps until SIGUSR2 arrives.
    static void StopSingleHandler(int signal);
    /// Handler of SIGUSR2; its arrival ends the suspension.
    static void StartSingleHandler(int signal);
    /// Handler of SIGQUIT and SIGTERM: ends the thread that receives it.
    static void EndThreadHandler(int signal);

    /// Installs the four handlers. Throws KvconException "Create Lock Failed" or
    /// "Initialize Thread Lib Failed".
    static void InitializeLibrary();
    /// Throws KvconException "Initialize Thread Lib Failed".
    static void CloseLibrary();

    /// Set by the suspend handler just before it blocks.
    static bool is_Suspend;
    /// Held by Stop while it clears is_Suspend.
    static pthread_mutex_t the_ThreadGuard;

protected:
    void SetThreadID(pthread_t id);
    void SignalOrThrow(int signal, int line, const char* message);

    bool m_bAutoClean;
    pthread_t m_threadId;
};
