#include "endurance/Interceptions.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <pthread.h>
#include <signal.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>

// The program is linked with --wrap for usleep, sleep, setsockopt, pselect, pthread_kill, pthread_exit and pthread_sigmask: calls of
// them arrive at the __wrap functions below.

namespace {

constexpr useconds_t kShortPauseUs = 200;
constexpr long kSliceNs = 2000000;

std::atomic<bool> g_shortPauses{false};
std::atomic<int> g_unacknowledgedMs{0};  ///< 0: no limits of the test's
std::atomic<int> g_sendBuffer{0};
std::atomic<bool> g_clockHeld{false};
std::atomic<bool> g_expireAll{false};
std::atomic<int> g_expiriesLeft{0};
std::atomic<int> g_expired{0};
std::atomic<bool> g_unshielded{false};
std::atomic<unsigned long> g_signalsSent{0};
std::atomic<unsigned long> g_threadsEnded{0};

/// Whether the wait of the calling thread, which has found nothing so far, is over.
bool TakeExpiry() {
    int left = g_expiriesLeft;
    while (left > 0 && !g_expiriesLeft.compare_exchange_weak(left, left - 1)) {
    }
    const bool over = left > 0 || g_expireAll;
    g_expired += over ? 1 : 0;
    return over;
}

void Restore(fd_set* set, const fd_set& saved) {
    if (set != nullptr) {
        *set = saved;
    }
}

}  // namespace

extern "C" {

int __real_usleep(useconds_t microseconds);
unsigned int __real_sleep(unsigned int seconds);
int __real_setsockopt(int socket, int level, int option, const void* value, socklen_t size);
int __real_pselect(int limit, fd_set* reads, fd_set* writes, fd_set* errors, const timespec* timeout,
                   const sigset_t* mask);
int __real_pthread_kill(pthread_t thread, int signal);
[[noreturn]] void __real_pthread_exit(void* result);
int __real_pthread_sigmask(int how, const sigset_t* set, sigset_t* old);

int __wrap_usleep(useconds_t microseconds) {
    return __real_usleep(g_shortPauses ? std::min(microseconds, kShortPauseUs) : microseconds);
}

unsigned int __wrap_sleep(unsigned int seconds) {
    return g_shortPauses ? 0 : __real_sleep(seconds);
}

int __wrap_setsockopt(int socket, int level, int option, const void* value, socklen_t size) {
    const int unacknowledgedMs = g_unacknowledgedMs;
    if (unacknowledgedMs == 0 || level != IPPROTO_TCP || option != TCP_USER_TIMEOUT) {
        return __real_setsockopt(socket, level, option, value, size);
    }
    const int sendBuffer = g_sendBuffer;
    if (sendBuffer != 0) {
        __real_setsockopt(socket, SOL_SOCKET, SO_SNDBUF, &sendBuffer, sizeof sendBuffer);
    }
    return __real_setsockopt(socket, level, option, &unacknowledgedMs, sizeof unacknowledgedMs);
}

// Waits in slices, so that an expiry is seen by waits that are under way. The sets hold one descriptor, which is
// below 1024 here.
int __wrap_pselect(int limit, fd_set* reads, fd_set* writes, fd_set* errors, const timespec* timeout,
                   const sigset_t* mask) {
    if (!g_clockHeld || timeout == nullptr) {
        return __real_pselect(limit, reads, writes, errors, timeout, mask);
    }
    const fd_set readsAsked = *reads;
    const fd_set writesAsked = *writes;
    const timespec slice{0, kSliceNs};
    for (;;) {
        const int result = __real_pselect(limit, reads, writes, errors, &slice, mask);
        if (result != 0 || TakeExpiry()) {
            return result;
        }
        Restore(reads, readsAsked);
        Restore(writes, writesAsked);
    }
}

int __wrap_pthread_kill(pthread_t thread, int signal) {
    const int result = __real_pthread_kill(thread, signal);
    g_signalsSent += signal == SIGQUIT && result == 0 ? 1UL : 0UL;
    return result;
}

[[noreturn]] void __wrap_pthread_exit(void* result) {
    ++g_threadsEnded;
    __real_pthread_exit(result);
}

// May be left by unwinding: a pending signal comes in before the call returns.
int __wrap_pthread_sigmask(int how, const sigset_t* set, sigset_t* old) {
    if (!g_unshielded || set == nullptr || how == SIG_UNBLOCK) {
        return __real_pthread_sigmask(how, set, old);
    }
    sigset_t open = *set;
    sigdelset(&open, SIGQUIT);
    return __real_pthread_sigmask(how, &open, old);
}
}

namespace kvtest {

ShortPauses::ShortPauses() {
    g_shortPauses = true;
}

ShortPauses::~ShortPauses() {
    g_shortPauses = false;
}

SocketLimits::SocketLimits(int unacknowledgedMs, int sendBuffer) {
    g_sendBuffer = sendBuffer;
    g_unacknowledgedMs = unacknowledgedMs;
}

SocketLimits::~SocketLimits() {
    g_unacknowledgedMs = 0;
    g_sendBuffer = 0;
}

ReplyClock::ReplyClock() {
    g_expiriesLeft = 0;
    g_expireAll = false;
    g_expired = 0;
    g_clockHeld = true;
}

ReplyClock::~ReplyClock() {
    g_clockHeld = false;
}

void ReplyClock::expireNext() {
    ++g_expiriesLeft;
}

void ReplyClock::expireAll() {
    g_expireAll = true;
}

int ReplyClock::expired() const {
    return g_expired;
}

UnshieldedWorkers::UnshieldedWorkers() {
    g_unshielded = true;
}

UnshieldedWorkers::~UnshieldedWorkers() {
    g_unshielded = false;
}

unsigned long EndSignalsSent() {
    return g_signalsSent;
}

unsigned long ThreadsEndedBySignal() {
    return g_threadsEnded;
}

}  // namespace kvtest
