#include "KvconLock.h"

#include <cerrno>
#include <cstring>

#include "KvCoreHelpers.h"
#include "KvconException.h"

namespace {

constexpr const char* kSource = "../src/KvconLock";
constexpr int kLineCreate = 66;

int AcquiredOrFailed(int result) {
    return result == 0 || result == EDEADLK ? KvconLock::LOCK_ACQUIRED : KvconLock::LOCK_FAILED;
}

}  // namespace

KvconLock::KvconLock() {
    std::memset(&m_mutex, 0, sizeof(m_mutex));
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
    if (pthread_mutex_init(&m_mutex, &attributes) != 0) {
        throw KvconException(GetMyThreadID(), kSource, kLineCreate, "Create Lock Failed", KvgetLastError());
    }
}

KvconLock::~KvconLock() {
    pthread_mutex_unlock(&m_mutex);
    pthread_mutex_destroy(&m_mutex);
}

int KvconLock::Lock() {
    return AcquiredOrFailed(pthread_mutex_lock(&m_mutex));
}

int KvconLock::TryLock() {
    const int result = pthread_mutex_trylock(&m_mutex);
    return result == EBUSY ? LOCK_BUSY : AcquiredOrFailed(result);
}

int KvconLock::Unlock() {
    return pthread_mutex_unlock(&m_mutex);
}
