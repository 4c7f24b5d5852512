#include "KvconThread.h"

#include <sched.h>
#include <signal.h>

#include <atomic>
#include <cerrno>
#include <memory>

#include "KvCoreHelpers.h"
#include "KvEndSignals.h"
#include "KvThreadRegistry.h"
#include "KvconException.h"

namespace {

constexpr const char* kSource = "../src/KvconThread";
constexpr int kLineCreateLock = 97;
constexpr int kLineSuspendSignal = 115;
constexpr int kLineResumeSignal = 119;
constexpr int kLineQuitSignal = 124;
constexpr int kLineTermSignal = 128;
constexpr int kLineCloseLibrary = 138;
constexpr int kLineRun = 200;
constexpr int kLineResume = 217;
constexpr int kLineStop = 243;
constexpr int kLineKill = 276;

constexpr unsigned long kPollIntervalMs = 250;

constexpr pthread_t kNoThread = static_cast<pthread_t>(-1);

struct StartRecord {
    KvconThread* thread;
    KvconDelegate* delegate;
};

/// A detached-thread attribute set.
class DetachedAttributes {
public:
    DetachedAttributes() {
        pthread_attr_init(&m_attributes);
        pthread_attr_setdetachstate(&m_attributes, PTHREAD_CREATE_DETACHED);
    }
    ~DetachedAttributes() { pthread_attr_destroy(&m_attributes); }
    DetachedAttributes(const DetachedAttributes&) = delete;
    DetachedAttributes& operator=(const DetachedAttributes&) = delete;

    const pthread_attr_t* Get() const { return &m_attributes; }

private:
    pthread_attr_t m_attributes;
};

// EAGAIN is not singled out: it reports as "Unknown Error [11]".
std::string CreateErrorText(int error) {
    switch (error) {
        case ENOMEM:
            return "Out of resource";
        case EINVAL:
            return "Invalid attribute";
        case EPERM:
            return "Permission denied";
        default:
            return printfToString("Unknown Error [%d]", error);
    }
}

[[noreturn]] void Throw(int line, const char* message) {
    throw KvconException(GetMyThreadID(), kSource, line, message, KvgetLastError());
}

void Install(int signal, void (*handler)(int), int line) {
    struct sigaction action {};
    action.sa_handler = handler;
    sigemptyset(&action.sa_mask);
    action.sa_flags = 0;
    if (sigaction(signal, &action, nullptr) == -1) {
        Throw(line, "Initialize Thread Lib Failed");
    }
}

}  // namespace

bool KvconThread::is_Suspend = false;
pthread_mutex_t KvconThread::the_ThreadGuard = PTHREAD_MUTEX_INITIALIZER;

KvconThread::KvconThread() : m_bAutoClean(false), m_threadId(kNoThread) {}

void KvconThread::Run(KvconDelegate* delegate) {
    if (GetThreadID() != kNoThread) {
        return;
    }
    auto record = std::make_unique<StartRecord>(StartRecord{this, delegate});
    const DetachedAttributes attributes;
    const int error = KvThreadRegistry::Start(&m_threadId, attributes.Get(), ThreadWork, record.get());
    if (error != 0) {
        throw KvconException(::GetMyThreadID(), kSource, kLineRun, "Create Thread Failed",
                             CreateErrorText(error));
    }
    static_cast<void>(record.release());  // the thread owns it now
}

void* KvconThread::ThreadWork(void* record) {
    const StartRecord start = *static_cast<StartRecord*>(record);
    delete static_cast<StartRecord*>(record);
    if (start.delegate != nullptr) {
        KvRunDelegate(*start.delegate);
    }
    const bool autoClean = start.thread->m_bAutoClean;
    start.thread->SetThreadID(kNoThread);
    if (autoClean) {
        delete start.thread;
        delete start.delegate;
    }
    return nullptr;
}

pthread_t KvconThread::GetThreadID() {
    return std::atomic_ref(m_threadId).load();
}

void KvconThread::SetThreadID(pthread_t id) {
    std::atomic_ref(m_threadId).store(id);
}

pthread_t KvconThread::GetMyThreadID() {
    return pthread_self();
}

bool KvconThread::IsRunning() {
    return KvThreadRegistry::IsAlive(GetThreadID());
}

bool KvconThread::IsThreadActive(unsigned long id) {
    return kill(static_cast<pid_t>(id), 0) == 0;
}

int KvconThread::WaitForThreadObject(unsigned long timeoutMs) {
    while (IsRunning()) {
        Kvsleep(static_cast<int>(kPollIntervalMs));
        timeoutMs -= kPollIntervalMs;
        if (timeoutMs == 0) {
            break;
        }
    }
    return 0;
}

void KvconThread::Kill() {
    if (GetThreadID() != kNoThread) {
        SignalOrThrow(SIGQUIT, kLineKill, "Kill Thread Failed");
    }
}

void KvconThread::Stop() {
    const pthread_t id = GetThreadID();
    if (id == kNoThread) {
        return;
    }
    std::atomic_ref suspended(is_Suspend);
    pthread_mutex_lock(&the_ThreadGuard);
    suspended = false;
    pthread_mutex_unlock(&the_ThreadGuard);
    SignalOrThrow(SIGUSR1, kLineStop, "Suspend Thread Failed");
    while (!suspended && KvThreadRegistry::IsAlive(id)) {
        sched_yield();
    }
}

void KvconThread::Resume() {
    SignalOrThrow(SIGUSR1, kLineResume, "Resume Thread Failed");
}

void KvconThread::SignalOrThrow(int signal, int line, const char* message) {
    if (KvThreadRegistry::Signal(GetThreadID(), signal) != 0) {
        Throw(line, message);
    }
}

void KvconThread::StopSingleHandler(int) {
    const int savedErrno = errno;
    sigset_t allButResume;
    sigfillset(&allButResume);
    sigdelset(&allButResume, SIGUSR2);
    std::atomic_ref(is_Suspend).store(true);
    sigsuspend(&allButResume);
    KvEndSignals::NoteInterruption();
    errno = savedErrno;
}

void KvconThread::StartSingleHandler(int) {
    KvEndSignals::NoteInterruption();
}

void KvconThread::EndThreadHandler(int) {
    KvEndSignals::EndThisThread();
}

// Both functions recognise only -1, which pthread_mutex_init and pthread_mutex_destroy never answer.
void KvconThread::InitializeLibrary() {
    if (pthread_mutex_init(&the_ThreadGuard, nullptr) == -1) {  // NOLINT(bugprone-posix-return)
        Throw(kLineCreateLock, "Create Lock Failed");
    }
    Install(SIGUSR1, StopSingleHandler, kLineSuspendSignal);
    Install(SIGUSR2, StartSingleHandler, kLineResumeSignal);
    Install(SIGQUIT, EndThreadHandler, kLineQuitSignal);
    Install(SIGTERM, EndThreadHandler, kLineTermSignal);
}

void KvconThread::CloseLibrary() {
    if (pthread_mutex_destroy(&the_ThreadGuard) == -1) {  // NOLINT(bugprone-posix-return)
        Throw(kLineCloseLibrary, "Initialize Thread Lib Failed");
    }
}
