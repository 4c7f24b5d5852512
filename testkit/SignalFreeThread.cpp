#include "SignalFreeThread.h"

#include <signal.h>

#include <utility>

namespace kvtest {

namespace {

/// Blocks what a thread can do without; gives the old mask back at the end.
class SignalsBlocked {
public:
    SignalsBlocked() {
        sigset_t all;
        sigfillset(&all);
        for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGTRAP}) {
            sigdelset(&all, fault);
        }
        pthread_sigmask(SIG_SETMASK, &all, &m_before);
    }
    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;

private:
    sigset_t m_before;
};

}  // namespace

std::thread StartSignalFreeThread(std::function<void()> body) {
    const SignalsBlocked blocked;  // a new thread inherits the mask
    return std::thread(std::move(body));
}

}  // namespace kvtest
