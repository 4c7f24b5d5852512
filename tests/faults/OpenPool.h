#pragma once

#include <cstddef>

#include "src/ThreadDoubles.h"

// A thread pool whose parts a test can name to SystemCalls.

namespace kvtest {

/// A lock whose mutex the test can name.
class OpenLock : public KvconLock {
public:
    static const void* MutexOf(KvconLock* lock) { return &(lock->*&OpenLock::m_mutex); }
};

class OpenEvent : public KvconEvent {
public:
    static const void* MutexOf(KvconEvent* event) { return &(event->*&OpenEvent::m_mutex); }
    static const void* ConditionOf(KvconEvent* event) { return &(event->*&OpenEvent::m_cond); }
};

class OpenPool : public TidyPool {
public:
    using TidyPool::TidyPool;
    const void* WorkMutex() { return OpenLock::MutexOf(m_pWorkLock); }
    const void* ThreadMutex() { return OpenLock::MutexOf(m_pThreadLock); }
    const void* EventMutex() { return OpenEvent::MutexOf(m_pWorkEvent); }
    const void* EventCondition() { return OpenEvent::ConditionOf(m_pWorkEvent); }
    std::size_t RunningTasks() {
        KvconCriticalSection hold(m_pWorkLock, true, true, false);
        return m_runningTasks.size();
    }
    std::size_t WaitingWork() {
        KvconCriticalSection hold(m_pWorkLock, true, true, false);
        return m_workQueue.size();
    }
};

}  // namespace kvtest
