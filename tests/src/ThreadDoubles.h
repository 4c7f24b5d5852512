#pragma once

#include <signal.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <initializer_list>
#include <map>
#include <mutex>
#include <thread>

#include "Eventually.h"
#include "KvThreadRegistry.h"
#include "KvconCriticalSection.h"
#include "KvconDelegate.h"
#include "KvconException.h"
#include "KvconThreadPool.h"

// What the tests of the concurrency layer share.

namespace kvtest {

constexpr std::chrono::seconds kBound{20};

/// Opened once; threads wait for it with a bound. Thread-safe.
class Latch {
public:
    void Open() {
        const std::lock_guard<std::mutex> hold(m_mutex);
        m_open = true;
        m_condition.notify_all();
    }
    /// True when it was open or was opened within the bound.
    bool Wait(std::chrono::milliseconds bound = kBound) {
        std::unique_lock<std::mutex> hold(m_mutex);
        return m_condition.wait_for(hold, bound, [this] { return m_open; });
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_condition;
    bool m_open = false;  ///< guarded by m_mutex
};

/// Eventually(), with the bound of this file.
inline bool ComesTrue(const std::function<bool()>& condition, std::chrono::milliseconds bound = kBound) {
    return Eventually(condition, bound);
}

/// What happened to the work objects of one test. Outlives them.
struct WorkLog {
    std::atomic<int> started{0};
    std::atomic<int> finished{0};
    std::atomic<int> deleted{0};
    std::atomic<int> stops{0};
    std::atomic<int> pauses{0};
    std::atomic<int> resumes{0};
};

/// A work object that runs `body` and writes down what is done with it.
class LoggedWork : public KvconDelegate {
public:
    explicit LoggedWork(
        WorkLog& log, std::function<void()> body = [] {})
        : m_log(log), m_body(std::move(body)) {}
    ~LoggedWork() override { ++m_log.deleted; }

    void* DoWork(void*) override {
        ++m_log.started;
        m_body();
        ++m_log.finished;
        return nullptr;
    }
    void StopWork() override { ++m_log.stops; }
    void PauseWork() override { ++m_log.pauses; }
    void ResumeWork() override { ++m_log.resumes; }

private:
    WorkLog& m_log;
    const std::function<void()> m_body;
};

/// The same, ended by a signal only while it waits in KvEndSignals.
class ShieldedLoggedWork : public LoggedWork, public KvconShieldedWork {
public:
    using LoggedWork::LoggedWork;
};

/// Puts the process's handlers back, of the four signals that the library uses.
class SavedSignalHandlers {
public:
    SavedSignalHandlers() {
        for (const int signal : {SIGUSR1, SIGUSR2, SIGQUIT, SIGTERM}) {
            sigaction(signal, nullptr, &m_saved[signal]);
        }
    }
    ~SavedSignalHandlers() {
        for (const auto& [signal, action] : m_saved) {
            sigaction(signal, &action, nullptr);
        }
    }
    SavedSignalHandlers(const SavedSignalHandlers&) = delete;
    SavedSignalHandlers& operator=(const SavedSignalHandlers&) = delete;

private:
    std::map<int, struct sigaction> m_saved;
};

/// Blocks the signals in the calling thread for a while.
class BlockedSignals {
public:
    explicit BlockedSignals(std::initializer_list<int> signals) {
        sigset_t set;
        sigemptyset(&set);
        for (const int signal : signals) {
            sigaddset(&set, signal);
        }
        pthread_sigmask(SIG_BLOCK, &set, &m_before);
    }
    ~BlockedSignals() { pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }
    BlockedSignals(const BlockedSignals&) = delete;
    BlockedSignals& operator=(const BlockedSignals&) = delete;

private:
    sigset_t m_before;
};

/// Waits until the calling thread is ended. `ready` opens before; an end signal comes in only after that, so
/// that it never finds the thread in code of the test that cannot be unwound.
[[noreturn]] inline void HangUntilEnded(Latch& ready) {
    sigset_t ends;
    sigemptyset(&ends);
    sigaddset(&ends, SIGQUIT);
    sigaddset(&ends, SIGTERM);
    sigset_t open;
    pthread_sigmask(SIG_BLOCK, &ends, &open);
    ready.Open();
    for (;;) {
        sigsuspend(&open);
    }
}

/// True when one of the flags of sigaction is set; the system sets some of its own.
inline bool HasFlags(const struct sigaction& action) {
    constexpr auto kFlags = static_cast<unsigned int>(SA_RESTART) | SA_SIGINFO | SA_ONSTACK | SA_NODEFER |
                            static_cast<unsigned int>(SA_RESETHAND);
    return (static_cast<unsigned int>(action.sa_flags) & kFlags) != 0;
}

inline bool IsBlockedHere(int signal) {
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    return sigismember(&mask, signal) == 1;
}

inline bool IsPendingHere(int signal) {
    sigset_t pending;
    sigpending(&pending);
    return sigismember(&pending, signal) == 1;
}

/// A pool that leaves nothing behind: at its end the waiting work is deleted, the workers are told to leave
/// as Stop tells them, and the test waits for each. It restores the signal handlers then.
class TidyPool : public KvconThreadPool {
public:
    TidyPool() = default;
    explicit TidyPool(unsigned int maxThreads) { Initialize(maxThreads); }
    ~TidyPool() override { SendWorkersHome(); }

    void SendWorkersHome() {
        DeleteWaitingWork();
        const std::list<unsigned long> workers = Workers();
        m_pWorkEvent->Broadcast();
        for (const unsigned long worker : workers) {
            KvThreadRegistry::WaitUntilGone(worker);
        }
    }

    std::list<unsigned long> Workers() {
        KvconCriticalSection hold(m_pThreadLock, true, true, false);
        return m_threads;
    }

    /// AddWork; the id of the worker that it made, or 0.
    unsigned long Add(KvconDelegate* work) {
        unsigned long newThreadId = 4711;  // what AddWork must overwrite
        AddWork(work, newThreadId);
        return newThreadId;
    }

    KvconLock* ThreadLock() { return m_pThreadLock; }
    KvconEvent* WorkEvent() { return m_pWorkEvent; }

private:
    SavedSignalHandlers m_handlers;
};

/// True when the pool or its work deletes `count` objects in time.
inline bool AllDeleted(const WorkLog& log, int count) {
    return Eventually([&] { return log.deleted == count; });
}

/// Runs `action`, which must throw KvconException, and hands the exception back.
inline KvconException CaughtFrom(const std::function<void()>& action) {
    try {
        action();
    } catch (const KvconException& exception) {
        return exception;
    }
    return KvconException(0, "nothing was thrown", 0, "nothing was thrown");
}

/// TryLock on a thread of its own: whether `lock` is free for others.
inline int TryLockOnAnotherThread(KvconLock& lock) {
    int result = -1;
    std::thread other([&] {
        result = lock.TryLock();
        if (result == KvconLock::LOCK_ACQUIRED) {
            lock.Unlock();
        }
    });
    other.join();
    return result;
}

}  // namespace kvtest
