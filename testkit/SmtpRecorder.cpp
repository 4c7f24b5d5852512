#include "SmtpRecorder.h"

namespace kvtest {

void SmtpRecorder::State::abandonTransactionsOf(int connection) {
    for (TransactionRecord& transaction : transactions) {
        if (transaction.connection == connection && transaction.end == TransactionEnd::Open) {
            transaction.end = TransactionEnd::Abandoned;
        }
    }
}

bool SmtpRecorder::waitUntil(const std::function<bool()>& predicate, std::chrono::milliseconds bound) const {
    const auto deadline = std::chrono::steady_clock::now() + bound;
    for (;;) {
        std::unique_lock lock(m_mutex);
        const std::uint64_t seen = m_version;
        lock.unlock();
        // A change from here on moves the version, so that none is slept through.
        if (predicate()) {
            return true;
        }
        lock.lock();
        if (!m_changed.wait_until(lock, deadline, [&] { return m_version != seen; })) {
            lock.unlock();
            return predicate();
        }
    }
}

}  // namespace kvtest
