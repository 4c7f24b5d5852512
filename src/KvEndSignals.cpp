#include "KvEndSignals.h"

#include <pthread.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>

namespace {

/// What a thread of this library knows of its own mask. Other threads never fill it in.
struct ThreadState {
    bool bKnown;          ///< m_open and m_blocked are set
    bool bWindow;         ///< waits open the end signals
    sigset_t openMask;    ///< the mask with the end signals open
    sigset_t closedMask;  ///< the mask with the end signals blocked
};

thread_local ThreadState t_state;

/// pthread_sigmask through a pointer that is not noexcept: a pending end signal comes in before the call
/// returns, so the compiler must treat the call as one that can be left by unwinding.
int (*const volatile setMask)(int, const sigset_t*, sigset_t*) = pthread_sigmask;

void SetMask(const sigset_t& mask) {
    setMask(SIG_SETMASK, &mask, nullptr);
}

const sigset_t* WindowMask() {
    return t_state.bWindow ? &t_state.openMask : nullptr;
}

int PollWithMask(pollfd* descriptors, nfds_t count, int timeoutMs, const sigset_t* mask) {
    const timespec timeout{timeoutMs / 1000, timeoutMs % 1000 * 1000000L};
    return ppoll(descriptors, count, timeoutMs < 0 ? nullptr : &timeout, mask);
}

bool EndsBlockingCalls(const struct sigaction& action) {
    const bool handled = action.sa_handler != SIG_DFL && action.sa_handler != SIG_IGN;
    return handled && (action.sa_flags & SA_RESTART) == 0;
}

/// The signals, of those that `mask` lets through, whose handlers end a blocking call.
sigset_t InterruptingSignals(const sigset_t& mask) {
    sigset_t signals;
    sigemptyset(&signals);
    for (int signal = 1; signal <= SIGRTMAX; ++signal) {
        struct sigaction action {};
        if (sigismember(&mask, signal) == 0 && sigaction(signal, nullptr, &action) == 0 &&
            EndsBlockingCalls(action)) {
            sigaddset(&signals, signal);
        }
    }
    return signals;
}

/// A descriptor that is readable while one of the signals is pending; -1 when none can be made.
class PendingSignals {
public:
    explicit PendingSignals(const sigset_t& signals)
        : m_descriptor(signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK)) {}
    ~PendingSignals() {
        if (m_descriptor != -1) {
            close(m_descriptor);
        }
    }
    PendingSignals(const PendingSignals&) = delete;
    PendingSignals& operator=(const PendingSignals&) = delete;

    int Descriptor() const { return m_descriptor; }

private:
    int m_descriptor;
};

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

/// Waits for `wanted` while the signals that `pending` shows are blocked; they come in between the waits, with
/// `open` as the mask. One of them may be taken by another thread before: then nothing came in here.
int AwaitAsABlockingCall(pollfd wanted, int pending, const sigset_t& open, const sigset_t& interrupting,
                         int timeoutMs) {
    sigset_t others;
    sigorset(&others, &open, &interrupting);
    const Deadline deadline(timeoutMs);
    pollfd entries[] = {wanted, {pending, POLLIN, 0}};
    for (;;) {
        const int result = PollWithMask(entries, 2, deadline.MillisecondsLeft(), &others);
        if (result == 0 || (result == -1 && errno != EINTR)) {
            return result;
        }
        if (result > 0 && entries[0].revents != 0) {
            return 1;
        }
        if (result > 0 && PollWithMask(nullptr, 0, 0, &open) == -1) {
            return -1;
        }
    }
}

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
    return PollWithMask(descriptors, count, timeoutMs, WindowMask());
}

// A poll does not tell which handler ended it. So the signals whose handlers end a blocking call are blocked for
// the wait and seen coming through a descriptor; whatever else ends the poll lets the wait go on.
int KvEndSignals::Await(int descriptor, short events, int timeoutMs) {
    pollfd wanted{descriptor, events, 0};
    sigset_t before;
    pthread_sigmask(SIG_SETMASK, nullptr, &before);
    const sigset_t open = t_state.bWindow ? t_state.openMask : before;
    const sigset_t interrupting = InterruptingSignals(open);
    const PendingSignals pending(interrupting);
    if (pending.Descriptor() == -1) {
        return Poll(&wanted, 1, timeoutMs);
    }
    setMask(SIG_BLOCK, &interrupting, nullptr);
    const int result = AwaitAsABlockingCall(wanted, pending.Descriptor(), open, interrupting, timeoutMs);
    const int error = errno;
    SetMask(before);
    errno = error;
    return result;
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
