#pragma once

#include <list>
#include <map>

#include "KvconDelegate.h"
#include "KvconEvent.h"
#include "KvconLock.h"
#include "Kvobject.h"

/// Runs delegates on a bounded set of detached worker threads, first in first out. Thread-safe.
///
/// The pool owns every delegate that it accepted: a worker deletes it after its DoWork (also when DoWork throws
/// or the worker is ended; such an exception goes no further), and Stop deletes those that still wait.
/// Workers are made lazily, at most one per AddWork, and end by themselves after 30 s without work.
///
/// Life cycle: constructed, without workers; Initialize sets the maximum; AddWork; Stop; destruction. There is
/// no way back from Stop. The destructor neither stops workers nor deletes waiting delegates.
class KvconThreadPool : public Kvobject {
public:
    KvconThreadPool();
    ~KvconThreadPool() override;

    KvconThreadPool(const KvconThreadPool&) = delete;
    KvconThreadPool& operator=(const KvconThreadPool&) = delete;

    /// Sets the largest number of workers and installs EndThreadHandler for SIGQUIT and SIGTERM, process-wide.
    /// Throws KvconException "Initialize Thread Pool Failed".
    void Initialize(unsigned int maxThreads);

    /// Queues `work` and makes a worker while fewer than the maximum exist; `newThreadId` is its id, or 0 when
    /// none was made. Throws KvconException: "Empty Thread Pool Work Failed" for null, "Thread Pool Is Stopping"
    /// (the delegate then stays the caller's), "Create Thread Failed", "Detach Thread Failed". After std::bad_alloc
    /// the delegate is the caller's too.
    void AddWork(KvconDelegate* work, unsigned long& newThreadId);
    void AddWork(KvconDelegate* work);

    /// Takes back work that waits in the queue: true when it was there and is the caller's again. For callers
    /// whose AddWork threw "Create Thread Failed" or "Detach Thread Failed", which leave the work queued.
    bool WithdrawWork(KvconDelegate* work);

    /// The message of the exception with which AddWork refuses work after Stop.
    static constexpr const char* kStoppingMessage = "Thread Pool Is Stopping";

    /// Stops accepting work, deletes what waits, and ends the workers: each one that still lives gets an equal
    /// share of `timeoutMs` milliseconds (at least 100) to end by itself, then SIGQUIT. Returns when no signalled
    /// worker can touch the pool any more. A running DoWork is not asked to stop: call StopTasks first.
    void Stop(int timeoutMs);

    // A control hook must not call the pool: it runs while the pool's locks are held.

    /// Call the hook of a running delegate. True when it was found running.
    bool StopTask(KvconDelegate* work);
    bool PauseTask(KvconDelegate* work);
    bool ResumeTask(KvconDelegate* work);

    /// Call the hook of every running delegate. 0, or the result of a lock operation that failed.
    int StopTasks();
    int PauseTasks();
    int ResumeTasks();

    /// Stops a running delegate, or else unlinks a waiting one, which is not deleted. False only when the
    /// queue could not be locked.
    bool DeleteTask(KvconDelegate* work);
    /// Stops every running delegate and unlinks every waiting one; none is deleted. 0, or the result of a lock
    /// operation that failed.
    int DeleteTasks();

    /// Number of live workers, busy or idle.
    unsigned int RunningSize();
    /// Forgets a worker's id; answers the id, or 0 when the list could not be locked.
    unsigned long RemoveThread(unsigned long id);
    bool IsThreadRunning(unsigned long id);

    /// The body of a worker.
    static void* ThreadWork(void* pool);
    /// Handler of SIGQUIT and SIGTERM: ends the thread that receives it.
    static void EndThreadHandler(int signal);

protected:
    using Hook = void (KvconDelegate::*)();

    bool Enqueue(KvconDelegate* work);
    unsigned long StartWorkerIfBelowMaximum();
    bool RetireIfIdle();
    KvconDelegate* NextWork(bool& stop);
    void RunWork(KvconDelegate* work);
    void ForgetRunningTask();
    void DeleteWaitingWork();
    std::list<unsigned long> TakeLiveThreads();
    bool CallHookOf(KvconDelegate* work, Hook hook);
    int CallHookOfAll(Hook hook);
    bool IsStopping();
    void SetStopping();

    std::list<KvconDelegate*> m_workQueue;  ///< waiting, oldest first; guarded by m_pWorkLock
    std::map<unsigned long, KvconDelegate*>
        m_runningTasks;                  ///< by worker; written under m_pWorkLock, read under
                                         ///< m_pThreadLock, both inside one process-wide guard
    std::list<unsigned long> m_threads;  ///< live workers; guarded by m_pThreadLock
    unsigned int m_maxThreads;
    bool m_bStopping;
    KvconLock* m_pWorkLock;
    KvconLock* m_pThreadLock;
    KvconEvent* m_pWorkEvent;  ///< manual-reset; reset by a worker that finds the queue empty
};
