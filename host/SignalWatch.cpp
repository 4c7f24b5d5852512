#include "SignalWatch.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <optional>
#include <string>
#include <thread>

namespace kvhost {

namespace {

/// What the work's thread sends when it is through. No driver has a use for it.
int DoneSignal() {
    return SIGRTMIN;
}

/// The signals that the thread has blocked, as the kernel tells them; nothing when it does not.
std::optional<unsigned long long> BlockedBy(pid_t thread) {
    std::ifstream status("/proc/self/task/" + std::to_string(thread) + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("SigBlk:", 0) == 0) {
            return std::strtoull(line.c_str() + 7, nullptr, 16);
        }
    }
    return std::nullopt;
}

/// Waits, at most a second, until the thread is inside sigwaitinfo: there the kernel takes the signals that it waits for
/// as not blocked. Until then a signal sent to the process could go to a driver's worker.
void AwaitWatching(pid_t watcher) {
    constexpr unsigned long long kStop = 1ULL << (SIGTERM - 1);
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(1);
    std::optional<unsigned long long> blocked = BlockedBy(watcher);
    while (blocked && (*blocked & kStop) != 0 && std::chrono::steady_clock::now() < end) {
        std::this_thread::yield();
        blocked = BlockedBy(watcher);
    }
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
    const auto watcherNumber = static_cast<pid_t>(::syscall(SYS_gettid));
    std::thread worker([&] {
        AwaitWatching(watcherNumber);
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
