#include "KvThreadRegistry.h"

#include <atomic>
#include <cerrno>
#include <list>
#include <memory>

#include "KvEndSignals.h"

namespace {

struct Entry {
    pthread_t id;
    unsigned long serial;  ///< tells a thread from a later one with the same id
};

struct Registry {
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t left = PTHREAD_COND_INITIALIZER;  ///< signalled when a thread has left
    std::list<Entry> threads;                        ///< guarded by mutex
    unsigned long lastSerial = 0;                    ///< guarded by mutex
};

/// Never destroyed: detached threads may outlive the static objects.
Registry& TheRegistry() {
    static Registry* const registry = new Registry;
    return *registry;
}

/// Holds the registry, with every signal blocked.
class Hold {
public:
    Hold() : m_registry(TheRegistry()) { pthread_mutex_lock(&m_registry.mutex); }
    ~Hold() { pthread_mutex_unlock(&m_registry.mutex); }
    Hold(const Hold&) = delete;
    Hold& operator=(const Hold&) = delete;

    const sigset_t& MaskBefore() const { return m_blocked.Previous(); }

    std::list<Entry>::iterator Find(pthread_t id) {
        auto entry = m_registry.threads.begin();
        while (entry != m_registry.threads.end() && pthread_equal(entry->id, id) == 0) {
            ++entry;
        }
        return entry;
    }

    bool Has(pthread_t id) { return Find(id) != m_registry.threads.end(); }

    Registry* operator->() { return &m_registry; }

private:
    KvAllSignalsBlocked m_blocked;  // first in, last out: the signals stay blocked while the mutex is held
    Registry& m_registry;
};

struct StartRecord {
    void* (*routine)(void*);
    void* argument;
    sigset_t inherited;
};

/// Takes the calling thread out of the registry when its routine has returned or has been unwound.
class Registration {
public:
    Registration() {
        Hold gate;  // held by Start until the id is stored and the thread is entered
    }
    ~Registration() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, nullptr);
        Hold hold;
        hold->threads.erase(hold.Find(pthread_self()));
        pthread_cond_broadcast(&hold->left);
    }
    Registration(const Registration&) = delete;
    Registration& operator=(const Registration&) = delete;
};

void* RunRegistered(void* startRecord) {
    StartRecord record = *static_cast<StartRecord*>(startRecord);
    delete static_cast<StartRecord*>(startRecord);
    Registration registration;
    KvEndSignals::BlockForNewThread(record.inherited);
    return record.routine(record.argument);
}

}  // namespace

int KvThreadRegistry::Start(pthread_t* id, const pthread_attr_t* attributes, void* (*routine)(void*),
                            void* argument) {
    auto record = std::make_unique<StartRecord>();
    std::list<Entry> entry(1);
    Hold hold;
    *record = StartRecord{routine, argument, hold.MaskBefore()};
    pthread_t started;
    const int result = pthread_create(&started, attributes, RunRegistered, record.get());
    if (result != 0) {
        return result;
    }
    static_cast<void>(record.release());  // the thread owns it now
    std::atomic_ref(*id).store(started);
    entry.front() = Entry{started, ++hold->lastSerial};
    hold->threads.splice(hold->threads.end(), entry);
    return 0;
}

int KvThreadRegistry::Signal(pthread_t id, int signal) {
    if (pthread_equal(id, pthread_self()) != 0) {
        return pthread_kill(id, signal);
    }
    Hold hold;
    return hold.Has(id) ? pthread_kill(id, signal) : ESRCH;
}

void KvThreadRegistry::WaitUntilGone(pthread_t id) {
    Hold hold;
    const auto entry = hold.Find(id);
    if (entry == hold->threads.end()) {
        return;
    }
    const unsigned long serial = entry->serial;
    const auto sameThreadIsHere = [&] {
        const auto found = hold.Find(id);
        return found != hold->threads.end() && found->serial == serial;
    };
    while (sameThreadIsHere()) {
        pthread_cond_wait(&hold->left, &hold->mutex);
    }
}
