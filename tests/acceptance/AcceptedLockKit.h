#pragma once

#include <errno.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <functional>
#include <string>
#include <thread>

#include "KvconException.h"
#include "KvconLock.h"

namespace acceptedlock {

/// Runs `action` on another thread and waits for it.
inline void OnAnotherThread(const std::function<void()>& action) {
    std::thread(action).join();
}

/// TryLock of another thread, which gives the lock back at once when it got it.
inline int TryFromAnotherThread(KvconLock& lock) {
    int result = -1;
    OnAnotherThread([&] {
        result = lock.TryLock();
        if (result == 0) {
            lock.Unlock();
        }
    });
    return result;
}

/// Makes `mutex` anew with the given type, and robust when asked for.
inline void Remake(pthread_mutex_t& mutex, int type, bool robust = false) {
    pthread_mutex_destroy(&mutex);
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, type);
    if (robust) {
        pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST);
    }
    ASSERT_EQ(pthread_mutex_init(&mutex, &attributes), 0);
    pthread_mutexattr_destroy(&attributes);
}

/// Leaves a robust `mutex` behind that can never be locked again.
inline void MakeUnusable(pthread_mutex_t& mutex) {
    // Recursive: the C library crashes when another robust mutex is unlocked after a trylock that failed so.
    Remake(mutex, PTHREAD_MUTEX_RECURSIVE, true);
    OnAnotherThread([&] { pthread_mutex_lock(&mutex); });
    ASSERT_EQ(pthread_mutex_lock(&mutex), EOWNERDEAD);
    pthread_mutex_unlock(&mutex);
    ASSERT_EQ(pthread_mutex_lock(&mutex), ENOTRECOVERABLE);
}

/// A lock whose mutex can be replaced.
class OpenLock : public KvconLock {
public:
    using KvconLock::m_mutex;
};

/// A lock that nobody can take: Lock and TryLock answer 2.
class UnusableLock : public OpenLock {
public:
    UnusableLock() { MakeUnusable(m_mutex); }
};

/// The KvconException that `action` throws.
template <typename Action>
KvconException ThrownBy(Action action) {
    try {
        action();
    } catch (const KvconException& failure) {
        return failure;
    }
    ADD_FAILURE() << "no KvconException";
    return KvconException(0, "none");
}

}  // namespace acceptedlock
