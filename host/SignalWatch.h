#pragma once

#include <pthread.h>
#include <signal.h>

#include <array>
#include <functional>

namespace kvhost {

/// Takes the signals that ask the process to stop, SIGINT, SIGTERM and SIGQUIT, while work runs on another
/// thread. Use it on the main thread, before a driver is loaded.
///
/// A driver's worker may open SIGTERM and SIGQUIT while it waits, and end when it gets one. A signal sent to
/// the process goes to the main thread first whenever that one wants it, and a thread inside sigwaitinfo
/// does; so the main thread does nothing but wait.
class SignalWatch {
public:
    enum class HangUp {
        Leave,  ///< SIGHUP does what it did before
        Watch   ///< SIGHUP is read too, even in a process that was started to ignore it
    };

    /// Blocks the signals in the calling thread and, by inheritance, in all that are started later.
    explicit SignalWatch(HangUp hangUp = HangUp::Leave);
    /// Puts back the dispositions, which a driver may have replaced, and the mask.
    ~SignalWatch();

    SignalWatch(const SignalWatch&) = delete;
    SignalWatch& operator=(const SignalWatch&) = delete;

    /// Runs `work` on a thread of its own and waits for its end. `onStop` is called on the calling thread for
    /// every stop signal, except for one that the process was started to ignore, and `onHangUp` for SIGHUP when that is
    /// watched. What `work` throws is thrown here.
    void RunWatched(const std::function<void()>& work, const std::function<void()>& onStop,
                    const std::function<void()>& onHangUp = {});

private:
    struct Saved {
        int number;
        struct sigaction action;
    };

    void Dispatch(int number, const std::function<void()>& onStop,
                  const std::function<void()>& onHangUp) const;
    bool WasIgnored(int number) const;

    std::array<Saved, 4> m_arrSaved;
    sigset_t m_setWatched;
    sigset_t m_setBefore;
};

}  // namespace kvhost
