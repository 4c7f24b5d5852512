#include "BoundedTasks.h"

#include <utility>

namespace kvhost {

BoundedTasks::BoundedTasks(std::size_t threads, std::size_t waiting) : m_nWaiting(waiting) {
    for (std::size_t i = 0; i < threads; ++i) {
        m_vecThreads.emplace_back([this] { Work(); });
    }
}

void BoundedTasks::enqueue(std::function<void()> task) {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait(lock, [this] { return m_deqTasks.size() < m_nWaiting; });
    m_deqTasks.push_back(std::move(task));
    m_changed.notify_all();
}

void BoundedTasks::shutdown() {
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        m_isEnding = true;
    }
    m_changed.notify_all();
    for (std::thread& thread : m_vecThreads) {
        thread.join();
    }
}

void BoundedTasks::Work() {
    std::unique_lock<std::mutex> lock(m_mutex);
    while (true) {
        m_changed.wait(lock, [this] { return !m_deqTasks.empty() || m_isEnding; });
        if (m_deqTasks.empty()) {
            return;
        }
        const std::function<void()> task = std::move(m_deqTasks.front());
        m_deqTasks.pop_front();
        m_changed.notify_all();
        lock.unlock();
        task();
        lock.lock();
    }
}

}  // namespace kvhost
