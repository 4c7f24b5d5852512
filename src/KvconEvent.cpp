#include "KvconEvent.h"

#include <sys/time.h>

#include <cerrno>
#include <cstring>
#include <ctime>

#include "KvCoreHelpers.h"
#include "KvconException.h"

namespace {

constexpr const char* kSource = "../src/KvconEvent";
constexpr int kLineCreateLock = 91;
constexpr int kLineCreateCondition = 98;
constexpr int kLineWaitLock = 136;
constexpr int kLineUnlockSignaled = 150;
constexpr int kLineUnlockTimed = 179;
constexpr int kLineUnlockUnbounded = 194;
constexpr int kLineBroadcast = 265;
constexpr int kLineResetLock = 289;

constexpr long kNanosecondsPerSecond = 1000000000L;

[[noreturn]] void Throw(int line, const char* message) {
    throw KvconException(GetMyThreadID(), kSource, line, message, KvgetLastError());
}

/// The event's mutex, held. Unlocks when a wait is left by unwinding, as when the waiting thread is ended.
class HeldMutex {
public:
    explicit HeldMutex(pthread_mutex_t& mutex) : m_pMutex(&mutex) {}
    ~HeldMutex() {
        if (m_pMutex != nullptr) {
            pthread_mutex_unlock(m_pMutex);
        }
    }
    HeldMutex(const HeldMutex&) = delete;
    HeldMutex& operator=(const HeldMutex&) = delete;

    void UnlockOrThrow(int line) {
        pthread_mutex_t* mutex = m_pMutex;
        m_pMutex = nullptr;
        if (pthread_mutex_unlock(mutex) != 0) {
            Throw(line, "Unlock failed");
        }
    }

private:
    pthread_mutex_t* m_pMutex;
};

int WaitResultOf(int result) {
    switch (result) {
        case 0:
            return KvconEvent::EVENT_SIGNALED;
        case ETIMEDOUT:
            return KvconEvent::EVENT_TIMEOUT;
        default:
            return KvconEvent::EVENT_ERROR;
    }
}

timespec DeadlineIn(int timeoutMs) {
    timeval now{};
    gettimeofday(&now, nullptr);
    const long long nanoseconds = (timeoutMs % 1000 * 1000LL + now.tv_usec) * 1000LL;
    timespec deadline{};
    deadline.tv_sec =
        now.tv_sec + timeoutMs / 1000 + static_cast<time_t>(nanoseconds / kNanosecondsPerSecond);
    deadline.tv_nsec = static_cast<long>(nanoseconds % kNanosecondsPerSecond);
    return deadline;
}

}  // namespace

KvconEvent::KvconEvent() : KvconEvent(false) {}

KvconEvent::KvconEvent(bool manualReset) : m_bManualReset(manualReset), m_bReset(true), m_bSignaled(false) {
    Initialize();
}

KvconEvent::~KvconEvent() {
    try {
        Broadcast();
    } catch (const KvconException&) {
        // Nobody can be told from here; the primitives are released all the same.
    }
    pthread_cond_destroy(&m_cond);
    pthread_mutex_destroy(&m_mutex);
}

void KvconEvent::Initialize() {
    std::memset(&m_cond, 0, sizeof(m_cond));
    std::memset(&m_mutex, 0, sizeof(m_mutex));
    if (pthread_mutex_init(&m_mutex, nullptr) != 0) {
        Throw(kLineCreateLock, "Create lock failed");
    }
    if (pthread_cond_init(&m_cond, nullptr) != 0) {
        Throw(kLineCreateCondition, "Create condition event failed");
    }
}

int KvconEvent::Wait(int timeoutMs) {
    if (pthread_mutex_lock(&m_mutex) != 0) {
        Throw(kLineWaitLock, "Lock failed");
    }
    if (m_bSignaled) {
        HeldMutex held(m_mutex);
        ConsumeIfAutoReset();
        held.UnlockOrThrow(kLineUnlockSignaled);
        return EVENT_SIGNALED;
    }
    if (timeoutMs == -1) {
        return WaitWithoutLimit();
    }
    return WaitOnceUntil(DeadlineIn(timeoutMs));
}

int KvconEvent::WaitWithoutLimit() {
    HeldMutex held(m_mutex);
    int result = 0;
    while (!m_bSignaled) {
        result = pthread_cond_wait(&m_cond, &m_mutex);
    }
    ConsumeIfAutoReset();
    held.UnlockOrThrow(kLineUnlockUnbounded);
    return WaitResultOf(result);
}

int KvconEvent::WaitOnceUntil(const timespec& deadline) {
    HeldMutex held(m_mutex);
    const int result = pthread_cond_timedwait(&m_cond, &m_mutex, &deadline);
    if (result == 0) {
        ConsumeIfAutoReset();
    }
    held.UnlockOrThrow(kLineUnlockTimed);
    return WaitResultOf(result);
}

void KvconEvent::ConsumeIfAutoReset() {
    if (!m_bManualReset) {
        m_bSignaled = false;
    }
}

void KvconEvent::Reset() {
    if (!m_bManualReset) {
        return;
    }
    if (pthread_mutex_lock(&m_mutex) != 0) {
        Throw(kLineResetLock, "Lock Failed");
    }
    m_bSignaled = false;
    m_bReset = true;
    pthread_mutex_unlock(&m_mutex);
}

void KvconEvent::Broadcast() {
    pthread_mutex_lock(&m_mutex);
    m_bSignaled = true;
    pthread_mutex_unlock(&m_mutex);
    const int result = m_bManualReset ? pthread_cond_broadcast(&m_cond) : pthread_cond_signal(&m_cond);
    if (result != 0) {
        Throw(kLineBroadcast, "Broadcast Event Failed");
    }
}
