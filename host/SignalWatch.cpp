#include "SignalWatch.h"

#include <exception>
#include <thread>

namespace kvhost {

namespace {

/// What the work's thread sends when it is through. No driver has a use for it.
int DoneSignal() {
    return SIGRTMIN;
}

}  // namespace

// A blocked signal that is ignored is dropped and never read, so SIGHUP gets its default disposition.
SignalWatch::SignalWatch(HangUp hangUp)
    : m_arrSaved{{{SIGINT, {}}, {SIGTERM, {}}, {SIGQUIT, {}}, {SIGHUP, {}}}} {
    ::sigemptyset(&m_setWatched);
    ::sigaddset(&m_setWatched, DoneSignal());
    for (Saved& saved : m_arrSaved) {
        if (saved.number != SIGHUP || hangUp == HangUp::Watch) {
            ::sigaddset(&m_setWatched, saved.number);
        }
        ::sigaction(saved.number, nullptr, &saved.action);
    }
    ::pthread_sigmask(SIG_BLOCK, &m_setWatched, &m_setBefore);
    if (hangUp == HangUp::Watch) {
        struct sigaction standard {};
        standard.sa_handler = SIG_DFL;
        ::sigaction(SIGHUP, &standard, nullptr);
    }
}

SignalWatch::~SignalWatch() {
    for (const Saved& saved : m_arrSaved) {
        ::sigaction(saved.number, &saved.action, nullptr);
    }
    ::pthread_sigmask(SIG_SETMASK, &m_setBefore, nullptr);
}

void SignalWatch::RunWatched(const std::function<void()>& work, const std::function<void()>& onStop,
                             const std::function<void()>& onHangUp) {
    std::exception_ptr thrown;
    const pthread_t watcher = ::pthread_self();
    std::thread worker([&] {
        try {
            work();
        } catch (...) {
            thrown = std::current_exception();
        }
        ::pthread_kill(watcher, DoneSignal());
    });
    for (int number = 0; number != DoneSignal();) {
        number = ::sigwaitinfo(&m_setWatched, nullptr);
        Dispatch(number, onStop, onHangUp);
    }
    worker.join();
    if (thrown) {
        std::rethrow_exception(thrown);
    }
}

void SignalWatch::Dispatch(int number, const std::function<void()>& onStop,
                           const std::function<void()>& onHangUp) const {
    if (number == SIGHUP) {
        if (onHangUp) {
            onHangUp();
        }
    } else if (number > 0 && number != DoneSignal() && !WasIgnored(number)) {
        onStop();
    }
}

bool SignalWatch::WasIgnored(int number) const {
    for (const Saved& saved : m_arrSaved) {
        if (saved.number == number) {
            return saved.action.sa_handler == SIG_IGN;
        }
    }
    return false;
}

}  // namespace kvhost
