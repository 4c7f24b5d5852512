#include "KvconThreadPool.h"

#include <signal.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <memory>
#include <new>

#include "KvCoreHelpers.h"
#include "KvEndSignals.h"
#include "KvThreadRegistry.h"
#include "KvconException.h"

namespace {

constexpr const char* kSource = "../src/KvconThreadPool";
constexpr int kLineQuitSignal = 90;
constexpr int kLineTermSignal = 94;
constexpr int kLineEmptyWork = 190;
constexpr int kLineStopping = 202;
constexpr int kLineDetach = 234;
constexpr int kLineCreate = 241;

constexpr int kIdleLimitMs = 30000;
constexpr int kStopPauseMs = 500;
constexpr unsigned int kSmallestGraceMs = 100;
constexpr int kPauseForMemoryMs = 100;

/// A lock that is held while this object lives, if it could be taken.
class HeldLock {
public:
    explicit HeldLock(KvconLock& lock) : m_lock(lock), m_result(lock.Lock()), m_bHeld(m_result == 0) {}
    ~HeldLock() { Release(); }
    HeldLock(const HeldLock&) = delete;
    HeldLock& operator=(const HeldLock&) = delete;

    bool IsHeld() const { return m_bHeld; }
    /// The result of taking the lock.
    int Result() const { return m_result; }
    /// Unlocks now; the result of unlocking, 0 when there was nothing to unlock.
    int Release() {
        const bool held = m_bHeld;
        m_bHeld = false;
        return held ? m_lock.Unlock() : 0;
    }

private:
    KvconLock& m_lock;
    const int m_result;
    bool m_bHeld;
};

/// Guards the m_runningTasks of every pool. That map is written under the work lock and read under the thread
/// lock; this lock, inside either, makes the split safe and keeps a delegate from being deleted while a control
/// hook runs on it. Never destroyed: detached workers may outlive the static objects.
KvconLock& RunningTasksGuard() {
    static KvconLock* const guard = new KvconLock;
    return *guard;
}

void InstallEndHandler(int signal, int line) {
    struct sigaction action {};
    action.sa_handler = KvconThreadPool::EndThreadHandler;
    sigemptyset(&action.sa_mask);
    action.sa_flags = 0;
    if (sigaction(signal, &action, nullptr) == -1) {
        throw KvconException(GetMyThreadID(), kSource, line, "Initialize Thread Pool Failed",
                             KvgetLastError());
    }
}

int WaitForSignal(KvconEvent& event) {
    try {
        return event.Wait(kIdleLimitMs);
    } catch (const KvconException&) {
        return KvconEvent::EVENT_ERROR;
    }
}

/// An event that cannot be reset stays signalled: the workers then look for work without a pause.
void ResetSignal(KvconEvent& event) {
    try {
        event.Reset();
    } catch (const KvconException&) {
        return;
    }
}

unsigned int GraceMs(int timeoutMs, std::size_t threads) {
    const unsigned int share = static_cast<unsigned int>(timeoutMs) / static_cast<unsigned int>(threads);
    return std::max(share, kSmallestGraceMs);
}

/// Gives a worker its grace; true when it had to be signalled.
bool EndAfterGrace(unsigned long id, unsigned int graceMs) {
    if (!KvThreadRegistry::IsAlive(id)) {
        return false;
    }
    Kvsleep(static_cast<int>(graceMs));
    if (!KvThreadRegistry::IsAlive(id)) {
        return false;
    }
    std::printf("Kill thread [%d]", static_cast<int>(id));
    return KvThreadRegistry::Signal(id, SIGQUIT) == 0;
}

}  // namespace

KvconThreadPool::KvconThreadPool()
    : m_maxThreads(0),
      m_bStopping(false),
      m_pWorkLock(new KvconLock),
      m_pThreadLock(new KvconLock),
      m_pWorkEvent(new KvconEvent(true)) {}

KvconThreadPool::~KvconThreadPool() {
    delete m_pWorkLock;
    m_pWorkLock = nullptr;
    delete m_pThreadLock;
    m_pThreadLock = nullptr;
    delete m_pWorkEvent;
    m_pWorkEvent = nullptr;
}

void KvconThreadPool::Initialize(unsigned int maxThreads) {
    m_maxThreads = maxThreads;
    InstallEndHandler(SIGQUIT, kLineQuitSignal);
    InstallEndHandler(SIGTERM, kLineTermSignal);
}

void KvconThreadPool::EndThreadHandler(int) {
    KvEndSignals::EndThisThread();
}

void KvconThreadPool::AddWork(KvconDelegate* work) {
    unsigned long newThreadId;
    AddWork(work, newThreadId);
}

void KvconThreadPool::AddWork(KvconDelegate* work, unsigned long& newThreadId) {
    newThreadId = 0;
    if (work == nullptr) {
        throw KvconException(GetMyThreadID(), kSource, kLineEmptyWork, "Empty Thread Pool Work Failed");
    }
    Enqueue(work);
    try {
        HeldLock threads(*m_pThreadLock);
        if (!threads.IsHeld()) {
            return;
        }
        newThreadId = StartWorkerIfBelowMaximum();
    } catch (const std::bad_alloc&) {
        // Work that a live worker has taken meanwhile is done all the same.
        if (WithdrawWork(work)) {
            throw;
        }
    }
    m_pWorkEvent->Broadcast();
}

// A work lock that cannot be taken leaves the work out of the queue; nobody is told.
bool KvconThreadPool::Enqueue(KvconDelegate* work) {
    HeldLock queue(*m_pWorkLock);
    if (!queue.IsHeld()) {
        return false;
    }
    if (IsStopping()) {
        throw KvconException(GetMyThreadID(), kSource, kLineStopping, kStoppingMessage);
    }
    m_workQueue.push_back(work);
    return true;
}

// No worker once Stop has taken the list of the live ones: it could not wait for that one.
unsigned long KvconThreadPool::StartWorkerIfBelowMaximum() {
    if (m_maxThreads <= m_threads.size() || IsStopping()) {
        return 0;
    }
    std::list<unsigned long> worker(
        1);  // made first: a thread that could not be listed would outlive the pool
    pthread_t id;
    if (KvThreadRegistry::Start(&id, nullptr, ThreadWork, this) != 0) {
        throw KvconException(GetMyThreadID(), kSource, kLineCreate, "Create Thread Failed", KvgetLastError());
    }
    if (pthread_detach(id) != 0) {
        throw KvconException(GetMyThreadID(), kSource, kLineDetach, "Detach Thread Failed", KvgetLastError());
    }
    worker.front() = id;
    m_threads.splice(m_threads.end(), worker);
    return id;
}

void* KvconThreadPool::ThreadWork(void* pool) {
    /// Takes the worker off the list of the live ones, also when it is ended while it runs.
    struct LiveWorker {
        KvconThreadPool& pool;
        bool bListed;
        ~LiveWorker() {
            if (bListed) {
                pool.RemoveThread(GetMyThreadID());
            }
        }
    };
    auto& self = *static_cast<KvconThreadPool*>(pool);
    LiveWorker worker{self, true};
    bool stop = false;
    while (!stop) {
        if (WaitForSignal(*self.m_pWorkEvent) == KvconEvent::EVENT_TIMEOUT && self.RetireIfIdle()) {
            worker.bListed = false;
            break;
        }
        KvconDelegate* const work = self.NextWork(stop);
        if (work != nullptr) {
            self.RunWork(work);
        }
    }
    return nullptr;
}

/// Takes the calling worker off the list of the live ones, unless work was queued just as its wait ended: whoever
/// queued it may have counted on this worker, and the signal for it finds nobody.
bool KvconThreadPool::RetireIfIdle() {
    HeldLock threads(*m_pThreadLock);
    HeldLock queue(*m_pWorkLock);
    if (queue.IsHeld() && !m_workQueue.empty() && !IsStopping()) {
        return false;
    }
    if (threads.IsHeld()) {
        m_threads.remove(GetMyThreadID());
    }
    return true;
}

/// The oldest waiting delegate, entered as running on this thread; null when there is none. Without the memory to
/// enter it, it stays where it is, and the worker comes back for it after a pause.
KvconDelegate* KvconThreadPool::NextWork(bool& stop) {
    HeldLock queue(*m_pWorkLock);
    if (!queue.IsHeld()) {
        return nullptr;
    }
    if (IsStopping()) {
        stop = true;
        return nullptr;
    }
    if (m_workQueue.empty()) {
        ResetSignal(*m_pWorkEvent);
        return nullptr;
    }
    try {
        HeldLock running(RunningTasksGuard());
        m_runningTasks[GetMyThreadID()] = m_workQueue.front();
    } catch (const std::bad_alloc&) {
        queue.Release();
        Kvsleep(kPauseForMemoryMs);
        return nullptr;
    }
    KvconDelegate* const work = m_workQueue.front();
    m_workQueue.pop_front();
    return work;
}

void KvconThreadPool::RunWork(KvconDelegate* work) {
    /// Takes the delegate out of the running ones, also when the worker is ended while it runs.
    struct RunningTask {
        KvconThreadPool& pool;
        ~RunningTask() { pool.ForgetRunningTask(); }
    };
    const std::unique_ptr<KvconDelegate> owned(work);
    const RunningTask running{*this};
    KvRunDelegate(*work);
}

void KvconThreadPool::ForgetRunningTask() {
    HeldLock queue(*m_pWorkLock);
    if (queue.IsHeld()) {
        HeldLock running(RunningTasksGuard());
        m_runningTasks.erase(GetMyThreadID());
    }
}

void KvconThreadPool::Stop(int timeoutMs) {
    DeleteWaitingWork();
    m_pWorkEvent->Broadcast();
    Kvsleep(kStopPauseMs);

    std::list<unsigned long> live = TakeLiveThreads();
    if (live.empty()) {
        return;
    }
    const unsigned int graceMs = GraceMs(timeoutMs, live.size());
    live.remove_if([graceMs](unsigned long id) { return !EndAfterGrace(id, graceMs); });
    std::for_each(live.begin(), live.end(), KvThreadRegistry::WaitUntilGone);
}

void KvconThreadPool::DeleteWaitingWork() {
    HeldLock queue(*m_pWorkLock);
    if (!queue.IsHeld()) {
        return;
    }
    SetStopping();
    while (!m_workQueue.empty()) {
        const std::unique_ptr<KvconDelegate> work(m_workQueue.front());
        m_workQueue.pop_front();
    }
}

std::list<unsigned long> KvconThreadPool::TakeLiveThreads() {
    std::list<unsigned long> live;
    HeldLock threads(*m_pThreadLock);
    if (threads.IsHeld()) {
        SetStopping();
        live.swap(m_threads);
        live.remove_if([](unsigned long id) { return !KvThreadRegistry::IsAlive(id); });
    }
    return live;
}

bool KvconThreadPool::StopTask(KvconDelegate* work) {
    return CallHookOf(work, &KvconDelegate::StopWork);
}

bool KvconThreadPool::PauseTask(KvconDelegate* work) {
    return CallHookOf(work, &KvconDelegate::PauseWork);
}

bool KvconThreadPool::ResumeTask(KvconDelegate* work) {
    return CallHookOf(work, &KvconDelegate::ResumeWork);
}

bool KvconThreadPool::CallHookOf(KvconDelegate* work, Hook hook) {
    HeldLock threads(*m_pThreadLock);
    if (!threads.IsHeld()) {
        return false;
    }
    HeldLock running(RunningTasksGuard());
    const bool found = std::any_of(m_runningTasks.begin(), m_runningTasks.end(),
                                   [work](const auto& task) { return task.second == work; });
    if (found && work != nullptr) {
        (work->*hook)();
    }
    return found;
}

int KvconThreadPool::StopTasks() {
    return CallHookOfAll(&KvconDelegate::StopWork);
}

int KvconThreadPool::PauseTasks() {
    return CallHookOfAll(&KvconDelegate::PauseWork);
}

int KvconThreadPool::ResumeTasks() {
    return CallHookOfAll(&KvconDelegate::ResumeWork);
}

int KvconThreadPool::CallHookOfAll(Hook hook) {
    HeldLock threads(*m_pThreadLock);
    if (!threads.IsHeld()) {
        return threads.Result();
    }
    HeldLock running(RunningTasksGuard());
    for (const auto& [id, work] : m_runningTasks) {
        (work->*hook)();
    }
    running.Release();
    return threads.Release();
}

bool KvconThreadPool::DeleteTask(KvconDelegate* work) {
    if (StopTask(work)) {
        return true;
    }
    HeldLock queue(*m_pWorkLock);
    if (!queue.IsHeld()) {
        return false;
    }
    m_workQueue.remove(work);
    return true;
}

bool KvconThreadPool::WithdrawWork(KvconDelegate* work) {
    HeldLock queue(*m_pWorkLock);
    return queue.IsHeld() && m_workQueue.remove(work) > 0;
}

int KvconThreadPool::DeleteTasks() {
    StopTasks();
    HeldLock queue(*m_pWorkLock);
    if (!queue.IsHeld()) {
        return queue.Result();
    }
    m_workQueue.clear();
    return queue.Release();
}

unsigned int KvconThreadPool::RunningSize() {
    HeldLock threads(*m_pThreadLock);
    return threads.IsHeld() ? static_cast<unsigned int>(m_threads.size()) : 0;
}

unsigned long KvconThreadPool::RemoveThread(unsigned long id) {
    HeldLock threads(*m_pThreadLock);
    if (!threads.IsHeld()) {
        return 0;
    }
    m_threads.remove(id);
    return id;
}

bool KvconThreadPool::IsThreadRunning(unsigned long id) {
    return KvThreadRegistry::IsAlive(id);
}

bool KvconThreadPool::IsStopping() {
    return std::atomic_ref(m_bStopping).load();
}

void KvconThreadPool::SetStopping() {
    std::atomic_ref(m_bStopping).store(true);
}
