#pragma once

#include <signal.h>

#include <cerrno>
#include <ctime>

/// Keeps SIGPIPE from the calling thread for the life of the object: the signal is blocked, and one that came
/// meanwhile is taken away. The process's disposition and errno stay as they are. One thread at a time.
///
/// For calls that write to a socket without MSG_NOSIGNAL. A SIGPIPE that was pending before stays pending.
class KvSigPipeGuard {
public:
    KvSigPipeGuard() {
        sigset_t pending;
        sigpending(&pending);
        m_bPendingBefore = sigismember(&pending, SIGPIPE) == 1;
        sigset_t previous;
        sigemptyset(&m_pipe);
        sigaddset(&m_pipe, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &m_pipe, &previous);
        m_bBlockedBefore = sigismember(&previous, SIGPIPE) == 1;
    }

    ~KvSigPipeGuard() {
        const int error = errno;
        if (!m_bPendingBefore) {
            const timespec now{0, 0};
            while (sigtimedwait(&m_pipe, nullptr, &now) == -1 && errno == EINTR) {
            }
        }
        if (!m_bBlockedBefore) {
            pthread_sigmask(SIG_UNBLOCK, &m_pipe, nullptr);
        }
        errno = error;
    }

    KvSigPipeGuard(const KvSigPipeGuard&) = delete;
    KvSigPipeGuard& operator=(const KvSigPipeGuard&) = delete;

private:
    sigset_t m_pipe;
    bool m_bPendingBefore;
    bool m_bBlockedBefore;
};
