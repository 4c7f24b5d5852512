#include "faults/SystemCalls.h"

#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <sys/select.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>

namespace {

using kvtest::Interception;
using kvtest::SystemCall;
using kvtest::SystemCallArguments;

/// The handlers of one call. `lock` is a spin lock, because the mutex functions are intercepted themselves.
struct Handlers {
    std::atomic_flag lock;
    std::list<Interception::Handler> list;  ///< guarded by lock
    std::atomic<int> running{0};
};

Handlers& HandlersOf(SystemCall call) {
    static auto* const all = new std::array<Handlers, static_cast<std::size_t>(SystemCall::Count)>;
    return (*all)[static_cast<std::size_t>(call)];
}

class Spin {
public:
    explicit Spin(std::atomic_flag& flag) : m_flag(flag) {
        while (m_flag.test_and_set(std::memory_order_acquire)) {
            sched_yield();
        }
    }
    ~Spin() { m_flag.clear(std::memory_order_release); }
    Spin(const Spin&) = delete;
    Spin& operator=(const Spin&) = delete;

private:
    std::atomic_flag& m_flag;
};

thread_local bool t_inHandler = false;

std::optional<int> RunHandlers(Handlers& handlers, const SystemCallArguments& arguments) {
    std::vector<Interception::Handler> snapshot;
    {
        Spin hold(handlers.lock);
        if (handlers.list.empty()) {
            return std::nullopt;
        }
        snapshot.assign(handlers.list.begin(), handlers.list.end());
        ++handlers.running;
    }
    std::optional<int> answer;
    for (const auto& handler : snapshot) {
        const std::optional<int> own = handler(arguments);
        answer = answer.has_value() ? answer : own;
    }
    --handlers.running;
    return answer;
}

std::optional<int> Ask(SystemCall call, const SystemCallArguments& arguments) {
    if (t_inHandler) {
        return std::nullopt;
    }
    t_inHandler = true;
    const int savedErrno = errno;
    const std::optional<int> answer = RunHandlers(HandlersOf(call), arguments);
    errno = savedErrno;
    t_inHandler = false;
    return answer;
}

int MinusOneWithErrno(int error) {
    if (error == 0) {
        return 0;
    }
    errno = error;
    return -1;
}

}  // namespace

namespace kvtest {

Interception::Interception(SystemCall call, Handler handler) : m_call(call) {
    Handlers& handlers = HandlersOf(call);
    std::list<Handler> one;
    one.push_back(std::move(handler));
    Spin hold(handlers.lock);
    m_place = one.begin();
    handlers.list.splice(handlers.list.end(), one);
}

Interception::~Interception() {
    Handlers& handlers = HandlersOf(m_call);
    std::list<Handler> removed;
    {
        Spin hold(handlers.lock);
        removed.splice(removed.end(), handlers.list, m_place);
    }
    while (handlers.running > 0) {
        sched_yield();
    }
}

FailOnce::FailOnce(SystemCall call, int error, const void* object, int afterCalls)
    : m_spared(afterCalls),
      m_interception(call, [=, this](const SystemCallArguments& arguments) -> std::optional<int> {
          const bool meant = object == nullptr || object == arguments.object;
          if (!meant || m_spared-- != 0) {
              return std::nullopt;
          }
          if (call == SystemCall::MutexUnlock) {
              pthread_mutex_unlock(static_cast<pthread_mutex_t*>(const_cast<void*>(arguments.object)));
          }
          m_failed = true;
          return error;
      }) {}

CallCount::CallCount(SystemCall call, const void* object)
    : m_interception(call, [this, object](const SystemCallArguments& arguments) -> std::optional<int> {
          if (object == nullptr || object == arguments.object) {
              ++m_count;
          }
          return std::nullopt;
      }) {}

RecordedSleeps::RecordedSleeps()
    : m_microSleeps(SystemCall::MicroSleep,
                    [this](const SystemCallArguments& arguments) { return Record(arguments.number); }),
      m_secondSleeps(SystemCall::SecondSleep, [this](const SystemCallArguments& arguments) {
          return Record(arguments.number * 1000000L);
      }) {}

std::vector<long> RecordedSleeps::Microseconds() const {
    const std::lock_guard<std::mutex> hold(m_mutex);
    return m_microseconds;
}

std::optional<int> RecordedSleeps::Record(long microseconds) {
    const std::lock_guard<std::mutex> hold(m_mutex);
    m_microseconds.push_back(microseconds);
    return 0;
}

FixedTimeOfDay::FixedTimeOfDay(timeval now)
    : m_interception(SystemCall::TimeOfDay,
                     [now](const SystemCallArguments& arguments) -> std::optional<int> {
                         *static_cast<timeval*>(const_cast<void*>(arguments.object)) = now;
                         return 0;
                     }) {}

}  // namespace kvtest

// The linker sends each call of a wrapped function here and calls of __real_<name> to the system's own.
extern "C" {

int __real_pthread_create(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
int __real_pthread_detach(pthread_t);
int __real_pthread_kill(pthread_t, int);
int __real_pthread_mutex_init(pthread_mutex_t*, const pthread_mutexattr_t*);
int __real_pthread_mutex_lock(pthread_mutex_t*);
int __real_pthread_mutex_trylock(pthread_mutex_t*);
int __real_pthread_mutex_unlock(pthread_mutex_t*);
int __real_pthread_mutex_destroy(pthread_mutex_t*);
int __real_pthread_mutexattr_settype(pthread_mutexattr_t*, int);
int __real_pthread_cond_init(pthread_cond_t*, const pthread_condattr_t*);
int __real_pthread_cond_wait(pthread_cond_t*, pthread_mutex_t*);
int __real_pthread_cond_timedwait(pthread_cond_t*, pthread_mutex_t*, const timespec*);
int __real_pthread_cond_signal(pthread_cond_t*);
int __real_pthread_cond_broadcast(pthread_cond_t*);
int __real_pthread_cond_destroy(pthread_cond_t*);
int __real_sigaction(int, const struct sigaction*, struct sigaction*);
int __real_gettimeofday(timeval*, void*);
int __real_usleep(useconds_t);
unsigned int __real_sleep(unsigned int);
int __real_pthread_once(pthread_once_t*, void (*)());
pid_t __real_fork();
pid_t __real_setsid();
[[noreturn]] void __real__exit(int);
FILE* __real_popen(const char*, const char*);
int __real_close_range(unsigned int, unsigned int, int);
int __real_pselect(int, fd_set*, fd_set*, fd_set*, const timespec*, const sigset_t*);

int __wrap_pthread_create(pthread_t* id, const pthread_attr_t* attributes, void* (*routine)(void*),
                          void* argument) {
    const auto answer = Ask(SystemCall::ThreadCreate, {});
    return answer ? *answer : __real_pthread_create(id, attributes, routine, argument);
}

int __wrap_pthread_detach(pthread_t id) {
    const auto answer = Ask(SystemCall::ThreadDetach, {});
    return answer ? *answer : __real_pthread_detach(id);
}

int __wrap_pthread_kill(pthread_t id, int signal) {
    const auto answer = Ask(SystemCall::ThreadKill, {.number = signal});
    return answer ? *answer : __real_pthread_kill(id, signal);
}

int __wrap_pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attributes) {
    const auto answer = Ask(SystemCall::MutexInit, {.object = mutex});
    return answer ? *answer : __real_pthread_mutex_init(mutex, attributes);
}

int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {
    const auto answer = Ask(SystemCall::MutexLock, {.object = mutex});
    return answer ? *answer : __real_pthread_mutex_lock(mutex);
}

int __wrap_pthread_mutex_trylock(pthread_mutex_t* mutex) {
    const auto answer = Ask(SystemCall::MutexTryLock, {.object = mutex});
    return answer ? *answer : __real_pthread_mutex_trylock(mutex);
}

int __wrap_pthread_mutex_unlock(pthread_mutex_t* mutex) {
    const auto answer = Ask(SystemCall::MutexUnlock, {.object = mutex});
    return answer ? *answer : __real_pthread_mutex_unlock(mutex);
}

int __wrap_pthread_mutex_destroy(pthread_mutex_t* mutex) {
    const auto answer = Ask(SystemCall::MutexDestroy, {.object = mutex});
    return answer ? *answer : __real_pthread_mutex_destroy(mutex);
}

int __wrap_pthread_mutexattr_settype(pthread_mutexattr_t* attributes, int type) {
    const auto answer = Ask(SystemCall::MutexSetType, {.object = attributes, .number = type});
    return answer ? *answer : __real_pthread_mutexattr_settype(attributes, type);
}

int __wrap_pthread_cond_init(pthread_cond_t* condition, const pthread_condattr_t* attributes) {
    const auto answer = Ask(SystemCall::ConditionInit, {.object = condition});
    return answer ? *answer : __real_pthread_cond_init(condition, attributes);
}

int __wrap_pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex) {
    const auto answer = Ask(SystemCall::ConditionWait, {.object = condition});
    return answer ? *answer : __real_pthread_cond_wait(condition, mutex);
}

int __wrap_pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                  const timespec* deadline) {
    const auto answer =
        Ask(SystemCall::ConditionTimedWait, {.object = condition, .number = 0, .deadline = *deadline});
    return answer ? *answer : __real_pthread_cond_timedwait(condition, mutex, deadline);
}

int __wrap_pthread_cond_signal(pthread_cond_t* condition) {
    const auto answer = Ask(SystemCall::ConditionSignal, {.object = condition});
    return answer ? *answer : __real_pthread_cond_signal(condition);
}

int __wrap_pthread_cond_broadcast(pthread_cond_t* condition) {
    const auto answer = Ask(SystemCall::ConditionBroadcast, {.object = condition});
    return answer ? *answer : __real_pthread_cond_broadcast(condition);
}

int __wrap_pthread_cond_destroy(pthread_cond_t* condition) {
    const auto answer = Ask(SystemCall::ConditionDestroy, {.object = condition});
    return answer ? *answer : __real_pthread_cond_destroy(condition);
}

int __wrap_sigaction(int signal, const struct sigaction* action, struct sigaction* old) {
    const auto answer = Ask(SystemCall::SignalAction, {.number = signal});
    return answer ? MinusOneWithErrno(*answer) : __real_sigaction(signal, action, old);
}

int __wrap_gettimeofday(timeval* now, void* zone) {
    const auto answer = Ask(SystemCall::TimeOfDay, {.object = now});
    return answer ? MinusOneWithErrno(*answer) : __real_gettimeofday(now, zone);
}

int __wrap_usleep(useconds_t microseconds) {
    const auto answer = Ask(SystemCall::MicroSleep, {.number = static_cast<long>(microseconds)});
    return answer ? *answer : __real_usleep(microseconds);
}

unsigned int __wrap_sleep(unsigned int seconds) {
    const auto answer = Ask(SystemCall::SecondSleep, {.number = static_cast<long>(seconds)});
    return answer ? static_cast<unsigned int>(*answer) : __real_sleep(seconds);
}

int __wrap_pthread_once(pthread_once_t* once, void (*routine)()) {
    const auto answer = Ask(SystemCall::Once, {.object = once});
    return answer ? *answer : __real_pthread_once(once, routine);
}

pid_t __wrap_fork() {
    const auto answer = Ask(SystemCall::Fork, {});
    return answer ? MinusOneWithErrno(*answer) : __real_fork();
}

pid_t __wrap_setsid() {
    const auto answer = Ask(SystemCall::SessionCreate, {});
    return answer ? MinusOneWithErrno(*answer) : __real_setsid();
}

[[noreturn]] void __wrap__exit(int status) {
    Ask(SystemCall::ProcessExit, {.number = status});
    __real__exit(status);
}

FILE* __wrap_popen(const char* command, const char* mode) {
    const auto answer = Ask(SystemCall::PipeOpen, {.object = command});
    if (answer) {
        MinusOneWithErrno(*answer);
        return nullptr;
    }
    return __real_popen(command, mode);
}

int __wrap_close_range(unsigned int first, unsigned int last, int flags) {
    const auto answer = Ask(SystemCall::RangeClose, {.number = static_cast<long>(first)});
    return answer ? MinusOneWithErrno(*answer) : __real_close_range(first, last, flags);
}

int __wrap_pselect(int limit, fd_set* reads, fd_set* writes, fd_set* exceptions, const timespec* timeout,
                   const sigset_t* mask) {
    const bool limited = timeout != nullptr;
    const auto answer =
        Ask(SystemCall::Select,
            {.object = nullptr, .number = limited ? 1 : 0, .deadline = limited ? *timeout : timespec{}});
    return answer ? MinusOneWithErrno(*answer)
                  : __real_pselect(limit, reads, writes, exceptions, timeout, mask);
}

}  // extern "C"
