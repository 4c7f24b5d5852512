#pragma once

#include <poll.h>
#include <signal.h>
#include <sys/select.h>

/// When a thread of this library may be ended by SIGQUIT or SIGTERM (the end signals).
///
/// The handlers of both signals call pthread_exit, which unwinds the thread's stack from wherever the signal
/// found it. That is safe only where every frame can be unwound, so a thread of this library keeps the end
/// signals blocked and opens them in two places:
///  - around the work objects of others, which have always run with the signals open (RunOpen);
///  - while a shielded work object waits for a peer, inside ppoll or pselect (the wait window).
/// Other threads are left alone: on them the waits below are plain waits.
///
/// SIGQUIT is what the library sends, so it is opened always. SIGTERM comes from outside and is opened only
/// where the thread that started this one had it open, so that a host which reads it with sigwait or signalfd
/// keeps getting it.
///
/// Thread-safe: all state is per thread.
class KvEndSignals {
public:
    /// Blocks the end signals in the calling, newly started thread. `inherited` is the mask of the thread that
    /// started it; it is restored for every other signal.
    static void BlockForNewThread(const sigset_t& inherited);

    /// Runs `work(argument)` with the end signals open, and blocks them again. An exception out of `work` leaves
    /// them open: who catches it calls BlockAgain, so that no frame in between needs clean-up.
    static void RunOpen(void (*work)(void*), void* argument);
    static void BlockAgain();

    /// While an object of this class lives, the waits of the calling thread open the end signals.
    class WaitWindow {
    public:
        WaitWindow();
        ~WaitWindow();
        WaitWindow(const WaitWindow&) = delete;
        WaitWindow& operator=(const WaitWindow&) = delete;
    };

    /// poll and select, with the end signals open on a thread that has a wait window.
    static int Poll(pollfd* descriptors, nfds_t count, int timeoutMs);
    static int Select(int descriptorLimit, fd_set* reads, fd_set* writes, const timespec* timeout);

    /// Waits for one of `events` (see poll) on `descriptor`, up to `timeoutMs` milliseconds (-1: no limit), with
    /// the end signals open on a thread that has a wait window. 1; 0 after the time-out; -1 with errno.
    ///
    /// It stands for a blocking call such as recv: a signal handler installed with SA_RESTART lets it go on,
    /// another handler ends it with EINTR. A host that has handlers of both kinds for signals which this thread
    /// does not block cannot be told which one came: there every handler of its own ends the wait.
    static int Await(int descriptor, short events, int timeoutMs);
    /// For handlers of the library that return: the wait which they interrupted is to end. Async-signal-safe.
    static void NoteInterruption();

    /// Lets a pending end signal in without waiting; for loops that might never wait.
    static void LetIn();

    /// Ends the calling thread, as the handlers of the end signals do. No end signal comes in while it unwinds.
    [[noreturn]] static void EndThisThread();
};

/// Blocks every signal in the calling thread for the life of the object.
class KvAllSignalsBlocked {
public:
    KvAllSignalsBlocked();
    ~KvAllSignalsBlocked();
    KvAllSignalsBlocked(const KvAllSignalsBlocked&) = delete;
    KvAllSignalsBlocked& operator=(const KvAllSignalsBlocked&) = delete;

    /// The mask that the thread had before, and has again afterwards.
    const sigset_t& Previous() const { return m_previous; }

private:
    sigset_t m_previous;
};
