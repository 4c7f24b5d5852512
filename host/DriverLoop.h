#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <exception>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "DriverLibrary.h"
#include "DriverSession.h"
#include "Duration.h"
#include "KvMessageFile.h"
#include "LogSink.h"

namespace kvhost {

/// The one thread that calls the driver: it starts it, hands files over and ticks at once, ticks now and
/// then while there is nothing to hand over, cleans up and releases. A call may last as long as the driver likes, so
/// nothing else is done on this thread. Thread-safe.
class DriverLoop {
public:
    using Clock = std::chrono::steady_clock;
    /// Files that the driver gets between two ticks.
    using TickLoad = std::vector<KvMessageFile*>;

    struct Work {
        DriverLibrary& plugin;
        const HostServices services;
        LogSink& log;
        std::map<std::string, std::string> settings;
        Milliseconds tick;
        /// Called on the driver's thread when something below may have changed; thread-safe, throws nothing.
        std::function<void()> onChange;
    };

    /// A file that the driver did not take: it stays the host's.
    struct Refusal {
        KvMessageFile* file = nullptr;
        std::string reason;
        bool wasOffered = true;  ///< false: the loop ended before
    };

    /// What can be seen of the loop at one moment.
    struct View {
        bool isStarted = false;   ///< the driver is set up
        bool isDone = false;      ///< the driver is released, or could not be started
        bool isReady = false;     ///< set up, outside of any call and with nothing left to hand over
        std::string description;  ///< what the driver says it is; empty until it was asked
        std::string error;  ///< why it could not be started, or what broke off its work; its clean-up follows
        /// Since when it is inside the present call; nothing outside of one.
        std::optional<Clock::time_point> inCallSince;
        std::chrono::system_clock::time_point lastTick;
    };

    /// Starts the thread. What `work` refers to outlives it.
    explicit DriverLoop(Work work);
    /// Asks the thread to finish and waits for it; a driver that does not return makes this wait for ever.
    ~DriverLoop();
    DriverLoop(const DriverLoop&) = delete;
    DriverLoop& operator=(const DriverLoop&) = delete;

    /// Hands the files over, with a tick behind each load. They stay the caller's and live until they come back or are
    /// refused. To be called when the loop is ready; otherwise they wait.
    void HandOver(std::vector<TickLoad> loads);
    /// What still waits to be handed over is refused, as not offered.
    void TakeBack();
    void SetTick(Milliseconds tick);
    /// No further file and no further tick: what follows is the clean-up.
    void Finish();
    /// Waits at most `limit` for the end of the clean-up. True when the driver is released.
    bool WaitUntilDone(Milliseconds limit);

    View Look() const;
    /// The files that the driver did not take, since the last call.
    std::vector<Refusal> TakeRefusals();

private:
    void Main();
    void NoteError(const std::exception& error);
    void Drive();
    void Loop(DriverSession& session);
    bool WaitForWork();
    TickLoad NextLoad();
    void TellIfReady();
    void HandOver(DriverSession& session, const TickLoad& load);
    void Tick(DriverSession& session);
    void Refuse(KvMessageFile* file, const std::string& reason, bool wasOffered);
    template <typename Change>
    void Set(const Change& change);

    Work m_work;
    bool m_bTickFailureTold = false;   ///< the driver thread's own
    Clock::time_point m_timeNextTick;  ///< the driver thread's own

    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    View m_view;                         ///< guarded by m_mutex; isReady is computed
    bool m_bFinish = false;              ///< guarded by m_mutex
    bool m_bEnded = false;               ///< guarded by m_mutex: nothing is handed over any more
    mutable bool m_bAwaited = false;     ///< guarded by m_mutex: somebody found the loop busy
    std::deque<TickLoad> m_dqLoads;      ///< guarded by m_mutex: still to be handed over
    std::vector<Refusal> m_vecRefusals;  ///< guarded by m_mutex
    Milliseconds m_tick;                 ///< guarded by m_mutex

    std::thread m_thread;  ///< last: it uses the members above
};

}  // namespace kvhost
