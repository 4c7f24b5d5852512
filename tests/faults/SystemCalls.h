#pragma once

#include <sys/time.h>

#include <atomic>
#include <ctime>
#include <functional>
#include <list>
#include <mutex>
#include <optional>
#include <vector>

// Lets a test step in between the libraries and the system. The program is linked so that every call below
// that one of our own object files makes comes here first; calls inside the system's libraries do not.

namespace kvtest {

enum class SystemCall {
    ThreadCreate,        ///< pthread_create
    ThreadDetach,        ///< pthread_detach; object: none
    ThreadKill,          ///< pthread_kill; number: the signal
    MutexInit,           ///< pthread_mutex_init; object: the mutex
    MutexLock,           ///< pthread_mutex_lock
    MutexTryLock,        ///< pthread_mutex_trylock
    MutexUnlock,         ///< pthread_mutex_unlock
    MutexDestroy,        ///< pthread_mutex_destroy
    MutexSetType,        ///< pthread_mutexattr_settype; number: the type
    ConditionInit,       ///< pthread_cond_init; object: the condition variable
    ConditionWait,       ///< pthread_cond_wait
    ConditionTimedWait,  ///< pthread_cond_timedwait; deadline
    ConditionSignal,     ///< pthread_cond_signal
    ConditionBroadcast,  ///< pthread_cond_broadcast
    ConditionDestroy,    ///< pthread_cond_destroy
    SignalAction,        ///< sigaction; number: the signal
    TimeOfDay,           ///< gettimeofday; object: where the time goes
    MicroSleep,          ///< usleep; number: microseconds
    SecondSleep,         ///< sleep; number: seconds
    Once,                ///< pthread_once
    Fork,                ///< fork
    SessionCreate,       ///< setsid
    ProcessExit,         ///< _exit; number: the status. No answer is heeded
    PipeOpen,            ///< popen; object: the command
    RangeClose,          ///< close_range; number: the first descriptor
    Select,              ///< pselect; number: 1 with a time-out, which is the deadline then, else 0
    Count
};

/// The arguments of an intercepted call, as far as a test may want to see them.
struct SystemCallArguments {
    const void* object = nullptr;
    long number = 0;
    timespec deadline{};
};

/// Watches one system call, on every thread, while it lives. Thread-safe. The handler runs before each call;
/// a value that it answers is what the caller gets, without a call of the system: the result itself for the
/// pthread functions and sleeps; for the others 0, or an error number (-1, for popen null, with errno set).
/// System calls that the handler itself makes are not intercepted. The destructor waits for running handlers.
class Interception {
public:
    using Handler = std::function<std::optional<int>(const SystemCallArguments&)>;

    Interception(SystemCall call, Handler handler);
    ~Interception();
    Interception(const Interception&) = delete;
    Interception& operator=(const Interception&) = delete;

private:
    SystemCall m_call;
    std::list<Handler>::iterator m_place;
};

/// Fails one call with `error`: the first one on `object` (on anything, for null), `afterCalls` others
/// spared.
class FailOnce {
public:
    FailOnce(SystemCall call, int error, const void* object = nullptr, int afterCalls = 0);
    /// True when the failure has been handed out.
    bool HasFailed() const { return m_failed; }

private:
    std::atomic<int> m_spared;
    std::atomic<bool> m_failed{false};
    Interception m_interception;
};

/// Counts the calls on `object` (on anything, for null) and lets them through.
class CallCount {
public:
    explicit CallCount(SystemCall call, const void* object = nullptr);
    operator int() const { return m_count; }

private:
    std::atomic<int> m_count{0};
    Interception m_interception;
};

/// Writes down the sleeps of every thread in milliseconds and returns from them at once.
class RecordedSleeps {
public:
    RecordedSleeps();
    /// Microseconds slept, in the order of the calls; sleep(2) counts as 2000000.
    std::vector<long> Microseconds() const;

private:
    std::optional<int> Record(long microseconds);

    mutable std::mutex m_mutex;
    std::vector<long> m_microseconds;  ///< guarded by m_mutex
    Interception m_microSleeps;
    Interception m_secondSleeps;
};

/// Makes gettimeofday answer one fixed time.
class FixedTimeOfDay {
public:
    explicit FixedTimeOfDay(timeval now);

private:
    Interception m_interception;
};

}  // namespace kvtest
