#pragma once

#include <httplib.h>

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace kvhost {

/// The threads that answer requests, with a queue that does not grow without end: the one who adds to a full queue
/// waits. Thread-safe.
class BoundedTasks : public httplib::TaskQueue {
public:
    BoundedTasks(std::size_t threads, std::size_t waiting);
    /// Call shutdown first.
    ~BoundedTasks() override = default;

    void enqueue(std::function<void()> task) override;
    /// Ends the threads when everything that was added is done.
    void shutdown() override;

private:
    void Work();

    const std::size_t m_nWaiting;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<std::function<void()>> m_deqTasks;  ///< guarded by m_mutex
    bool m_isEnding = false;                       ///< guarded by m_mutex
    std::vector<std::thread> m_vecThreads;
};

}  // namespace kvhost
