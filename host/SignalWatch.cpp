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

SignalWatch::SignalWatch() : m_arrSaved{{{SIGINT, {}}, {SIGTERM, {}}, {SIGQUIT, {}}}} {
    ::sigemptyset(&m_setWatched);
    ::sigaddset(&m_setWatched, DoneSignal());
    for (Saved& saved : m_arrSaved) {
        ::sigaddset(&m_setWatched, saved.number);
        ::sigaction(saved.number, nullptr, &saved.action);
    }
    ::pthread_sigmask(SIG_BLOCK, &m_setWatched, &m_setBefore);
}

SignalWatch::~SignalWatch() {
    for (const Saved& saved : m_arrSaved) {
        ::sigaction(saved.number, &saved.action, nullptr);
    }
    ::pthread_sigmask(SIG_SETMASK, &m_setBefore, nullptr);
}

void SignalWatch::RunWatched(const std::function<void()>& work, const std::function<void()>& onStop) {
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
        if (number > 0 && number != DoneSignal() && !WasIgnored(number)) {
            onStop();
        }
    }
    worker.join();
    if (thrown) {
        std::rethrow_exception(thrown);
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
