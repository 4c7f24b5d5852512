#pragma once

#include <signal.h>

namespace kvhost {

/// While it lives, the thread has all signals blocked but those that a fault of its own raises; threads that are
/// started meanwhile have so for good. A driver may have handlers that end the thread which gets a signal. One thread.
class BlockedSignals {
public:
    BlockedSignals() {
        sigset_t all;
        ::sigfillset(&all);
        for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGTRAP}) {
            ::sigdelset(&all, fault);
        }
        ::pthread_sigmask(SIG_BLOCK, &all, &m_setBefore);
    }
    ~BlockedSignals() { ::pthread_sigmask(SIG_SETMASK, &m_setBefore, nullptr); }
    BlockedSignals(const BlockedSignals&) = delete;
    BlockedSignals& operator=(const BlockedSignals&) = delete;

private:
    sigset_t m_setBefore;
};

}  // namespace kvhost
