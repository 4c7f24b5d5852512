#include "KvEndSignals.h"

#include <pthread.h>

#include <cerrno>

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
