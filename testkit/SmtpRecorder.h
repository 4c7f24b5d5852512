#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <vector>

#include "SmtpRecords.h"

namespace kvtest {

/// The records of one scripted server. Thread-safe. Every change wakes those who wait.
class SmtpRecorder {
public:
    struct State {
        std::vector<ConnectionRecord> connections;
        std::vector<TransactionRecord> transactions;
        int open = 0;

        /// The n-th connection, from 1. Throws std::out_of_range.
        ConnectionRecord& connection(int number) {
            return connections.at(static_cast<std::size_t>(number) - 1);
        }
        const ConnectionRecord& connection(int number) const {
            return connections.at(static_cast<std::size_t>(number) - 1);
        }
        /// Ends what is still open on a connection.
        void abandonTransactionsOf(int connection);
    };

    template <typename Change>
    auto change(Change change) {
        const Changing changing(*this);
        return change(m_state);
    }

    template <typename Question>
    auto read(Question question) const {
        const std::lock_guard lock(m_mutex);
        return question(m_state);
    }

    /// Asks without the lock, at first and after every change. False when `bound` has passed without.
    bool waitUntil(const std::function<bool()>& predicate, std::chrono::milliseconds bound) const;

private:
    /// Holds the lock; counts the change and wakes the waiters when it lets go.
    class Changing {
    public:
        explicit Changing(SmtpRecorder& recorder) : m_recorder(recorder), m_lock(recorder.m_mutex) {}
        ~Changing() {
            ++m_recorder.m_version;
            m_recorder.m_changed.notify_all();
        }
        Changing(const Changing&) = delete;
        Changing& operator=(const Changing&) = delete;

    private:
        SmtpRecorder& m_recorder;
        std::lock_guard<std::mutex> m_lock;
    };

    mutable std::mutex m_mutex;
    mutable std::condition_variable m_changed;
    // Guarded by m_mutex.
    State m_state;
    std::uint64_t m_version = 0;
};

}  // namespace kvtest
