#include "KvEndSignals.h"

#include <pthread.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>

#include "KvconThread.h"

namespace {

/// What a thread of this library knows of its own mask. Other threads never fill it in but for bInterrupted.
struct ThreadState {
    bool bKnown;                         ///< m_open and m_blocked are set
    bool bWindow;                        ///< waits open the end signals
    sigset_t openMask;                   ///< the mask with the end signals open
    sigset_t closedMask;                 ///< the mask with the end signals blocked
    volatile sig_atomic_t bInterrupted;  ///< a handler of the library, installed without SA_RESTART, has run
};

/// In the initial block of a thread's variables: a block made at first use ends the process when memory is short.
[[gnu::tls_model("initial-exec")]] thread_local ThreadState t_state;

/// pthread_sigmask through a pointer that is not noexcept: a pending end signal comes in before the call
/// returns, so the compiler must treat the call as one that can be left by unwinding.
int (*const volatile setMask)(int, const sigset_t*, sigset_t*) = pthread_sigmask;

void SetMask(const sigset_t& mask) {
    setMask(SIG_SETMASK, &mask, nullptr);
}

const sigset_t* WindowMask() {
    return t_state.bWindow ? &t_state.openMask : nullptr;
}

/// Signals that report a fault of the thread's own code; their handlers have nothing to do with waits.
bool ReportsFault(int signal) {
    constexpr std::array kFaults{SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS, SIGABRT};
    return std::find(kFaults.begin(), kFaults.end(), signal) != kFaults.end();
}

/// The handlers of the library: the first two note that they have run, the third one never returns.
bool IsOwn(const struct sigaction& action) {
    return action.sa_handler == KvconThread::StopSingleHandler ||
           action.sa_handler == KvconThread::StartSingleHandler ||
           action.sa_handler == KvconThread::EndThreadHandler;
}

bool EndsBlockingCalls(int signal) {
    struct sigaction action {};
    if (ReportsFault(signal) || sigaction(signal, nullptr, &action) != 0) {
        return false;
    }
    const bool handled = action.sa_handler != SIG_DFL && action.sa_handler != SIG_IGN;
    return handled && !IsOwn(action) && (action.sa_flags & SA_RESTART) == 0;
}

/// Whether the host has a handler that ends blocking calls, for a signal that comes in during a wait here.
bool HostMayEndBlockingCalls() {
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    const sigset_t open = WindowMask() == nullptr ? mask : *WindowMask();
    for (int signal = 1; signal <= SIGRTMAX; ++signal) {
        if (sigismember(&open, signal) == 0 && EndsBlockingCalls(signal)) {
            return true;
        }
    }
    return false;
}

class Deadline {
public:
    /// `timeoutMs` milliseconds from now; -1: never.
    explicit Deadline(int timeoutMs) : m_start(std::chrono::steady_clock::now()), m_timeoutMs(timeoutMs) {}

    int MillisecondsLeft() const {
        if (m_timeoutMs < 0) {
            return -1;
        }
        using std::chrono::milliseconds;
        const auto passed =
            std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now() - m_start).count();
        return static_cast<int>(std::max<long long>(0, m_timeoutMs - passed));
    }

private:
    std::chrono::steady_clock::time_point m_start;
    int m_timeoutMs;
};

}  // namespace

void KvEndSignals::BlockForNewThread(const sigset_t& inherited) {
    t_state.openMask = inherited;
    sigdelset(&t_state.openMask, SIGQUIT);
    t_state.closedMask = inherited;
    sigaddset(&t_state.closedMask, SIGQUIT);
    sigaddset(&t_state.closedMask, SIGTERM);
    t_state.bKnown = true;
    t_state.bWindow = false;
    SetMask(t_state.closedMask);
}

// Nothing in this frame needs clean-up, so that it can be unwound at every instruction.
void KvEndSignals::RunOpen(void (*work)(void*), void* argument) {
    if (!t_state.bKnown) {
        work(argument);
        return;
    }
    SetMask(t_state.openMask);
    work(argument);
    BlockAgain();
}

void KvEndSignals::BlockAgain() {
    if (t_state.bKnown) {
        SetMask(t_state.closedMask);
    }
}

KvEndSignals::WaitWindow::WaitWindow() {
    t_state.bWindow = t_state.bKnown;
}

KvEndSignals::WaitWindow::~WaitWindow() {
    t_state.bWindow = false;
}

int KvEndSignals::Poll(pollfd* descriptors, nfds_t count, int timeoutMs) {
    const timespec timeout{timeoutMs / 1000, timeoutMs % 1000 * 1000000L};
    return ppoll(descriptors, count, timeoutMs < 0 ? nullptr : &timeout, WindowMask());
}

// A poll does not tell which handler ended it.
int KvEndSignals::Await(int descriptor, short events, int timeoutMs) {
    const Deadline deadline(timeoutMs);
    pollfd wanted{descriptor, events, 0};
    for (;;) {
        t_state.bInterrupted = false;
        const int result = Poll(&wanted, 1, deadline.MillisecondsLeft());
        if (result != -1 || errno != EINTR) {
            return result;
        }
        if (t_state.bInterrupted || HostMayEndBlockingCalls()) {
            errno = EINTR;
            return result;
        }
    }
}

void KvEndSignals::NoteInterruption() {
    t_state.bInterrupted = true;
}

// ThreadSanitizer hands a signal that comes in during pselect to its handler late, wherever the thread is then;
// in ppoll it does so at once. On other builds nothing is left to let in here.
int KvEndSignals::Select(int descriptorLimit, fd_set* reads, fd_set* writes, const timespec* timeout) {
    const int result = pselect(descriptorLimit, reads, writes, nullptr, timeout, WindowMask());
    if (result == -1 && errno == EINTR) {
        LetIn();
        errno = EINTR;
    }
    return result;
}

void KvEndSignals::LetIn() {
    if (t_state.bWindow) {
        Poll(nullptr, 0, 0);
    }
}

void KvEndSignals::EndThisThread() {
    t_state.bWindow = false;
    sigset_t all;
    sigfillset(&all);
    SetMask(all);
    pthread_exit(nullptr);
}

KvAllSignalsBlocked::KvAllSignalsBlocked() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &m_previous);
}

KvAllSignalsBlocked::~KvAllSignalsBlocked() {
    pthread_sigmask(SIG_SETMASK, &m_previous, nullptr);
}
