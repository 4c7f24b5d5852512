#pragma once

#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "AcceptedLockKit.h"
#include "KvCoreHelpers.h"
#include "KvconDelegate.h"
#include "KvconThreadPool.h"

namespace acceptedpool {

/// What the works of one test did, in order: "begin a", "end a", "delete a", "stop a", ... Thread-safe.
class Diary {
public:
    void Write(const std::string& entry, unsigned long thread = 0) {
        const std::lock_guard lock(m_mutex);
        m_entries.push_back(entry);
        m_threads.push_back(thread);
        m_written.notify_all();
    }

    /// Waits until there are `count` entries equal to `entry`.
    bool Has(const std::string& entry, int count = 1,
             std::chrono::milliseconds bound = std::chrono::milliseconds(10000)) const {
        std::unique_lock lock(m_mutex);
        return m_written.wait_for(lock, bound, [&] { return CountOf(entry) >= count; });
    }
    /// Waits until there are `count` entries that begin with `start`.
    bool HasBeginning(const std::string& start, int count) const {
        std::unique_lock lock(m_mutex);
        return m_written.wait_for(lock, std::chrono::milliseconds(10000), [&] {
            int found = 0;
            for (const std::string& entry : m_entries) {
                found += entry.compare(0, start.size(), start) == 0 ? 1 : 0;
            }
            return found >= count;
        });
    }
    int Count(const std::string& entry) const {
        const std::lock_guard lock(m_mutex);
        return CountOf(entry);
    }
    std::vector<std::string> Entries() const {
        const std::lock_guard lock(m_mutex);
        return m_entries;
    }
    /// The entries that begin with `start`, without it.
    std::vector<std::string> EntriesBehind(const std::string& start) const {
        const std::lock_guard lock(m_mutex);
        std::vector<std::string> result;
        for (const std::string& entry : m_entries) {
            if (entry.compare(0, start.size(), start) == 0) {
                result.push_back(entry.substr(start.size()));
            }
        }
        return result;
    }
    /// The thread that wrote the first such entry; 0 when there is none.
    unsigned long ThreadOf(const std::string& entry) const {
        const std::lock_guard lock(m_mutex);
        for (std::size_t i = 0; i < m_entries.size(); ++i) {
            if (m_entries[i] == entry) {
                return m_threads[i];
            }
        }
        return 0;
    }

private:
    int CountOf(const std::string& entry) const {
        int count = 0;
        for (const std::string& written : m_entries) {
            count += written == entry ? 1 : 0;
        }
        return count;
    }

    mutable std::mutex m_mutex;
    mutable std::condition_variable m_written;
    std::vector<std::string> m_entries;
    std::vector<unsigned long> m_threads;
};

/// Opens once; a work may wait for it, for at most 30 s. Thread-safe.
class Barrier {
public:
    void Open() {
        const std::lock_guard lock(m_mutex);
        m_open = true;
        m_opened.notify_all();
    }
    bool Await() {
        std::unique_lock lock(m_mutex);
        return m_opened.wait_for(lock, std::chrono::seconds(30), [&] { return m_open; });
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_opened;
    bool m_open = false;
};

/// A work that writes what happens to it into a diary.
class Work : public KvconDelegate {
public:
    Work(Diary& diary, std::string name, std::function<void()> body = {})
        : m_diary(diary), m_name(std::move(name)), m_body(std::move(body)) {}
    ~Work() override { Note("delete "); }

    void* DoWork(void* userData) override {
        m_received = userData;
        Note("begin ");
        if (m_body) {
            m_body();
        }
        Note("end ");
        return nullptr;
    }
    void StopWork() override { Note("stop "); }
    void PauseWork() override { Note("pause "); }
    void ResumeWork() override { Note("resume "); }

    void* received() const { return m_received; }

private:
    void Note(const char* what) { m_diary.Write(what + m_name, GetMyThreadID()); }

    Diary& m_diary;
    std::string m_name;
    std::function<void()> m_body;
    void* m_received = nullptr;
};

/// A pool with its members open to the test.
class OpenPool : public KvconThreadPool {
public:
    using KvconThreadPool::m_bStopping;
    using KvconThreadPool::m_maxThreads;
    using KvconThreadPool::m_pThreadLock;
    using KvconThreadPool::m_pWorkEvent;
    using KvconThreadPool::m_pWorkLock;
    using KvconThreadPool::m_runningTasks;
    using KvconThreadPool::m_threads;
    using KvconThreadPool::m_workQueue;
};

/// Puts a lock that cannot be taken in the place of one of the pool's, for as long as it lives.
class Substitute {
public:
    explicit Substitute(KvconLock*& place) : m_place(place), m_before(place) { place = &m_lock; }
    ~Substitute() { m_place = m_before; }
    Substitute(const Substitute&) = delete;
    Substitute& operator=(const Substitute&) = delete;

private:
    acceptedlock::UnusableLock m_lock;
    KvconLock*& m_place;
    KvconLock* m_before;
};

/// A pool for one test. What the works wait for is opened at the end, and the pool stopped, so that no worker
/// outlives it; the handlers of the process are put back.
class PoolTest : public testing::Test {
protected:
    PoolTest() {
        sigaction(SIGQUIT, nullptr, &m_quit);
        sigaction(SIGTERM, nullptr, &m_term);
    }
    ~PoolTest() override {
        release.Open();
        if (pool.RunningSize() > 0 || !pool.m_workQueue.empty()) {
            pool.Stop(20000);
        }
        sigaction(SIGQUIT, &m_quit, nullptr);
        sigaction(SIGTERM, &m_term, nullptr);
    }

    Work* NewWork(const std::string& name, std::function<void()> body = {}) {
        return new Work(diary, name, std::move(body));
    }
    /// A work that ends when `release` is opened.
    Work* NewBusyWork(const std::string& name) {
        return NewWork(name, [this] { release.Await(); });
    }
    /// Queues a busy work and waits until it runs.
    Work* RunBusy(const std::string& name) {
        Work* work = NewBusyWork(name);
        pool.AddWork(work);
        EXPECT_TRUE(diary.Has("begin " + name));
        return work;
    }

    Diary diary;
    Barrier release;
    OpenPool pool;

private:
    struct sigaction m_quit = {};
    struct sigaction m_term = {};
};

}  // namespace acceptedpool
