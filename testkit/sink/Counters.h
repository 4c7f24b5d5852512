#pragma once

#include <atomic>
#include <cstdint>

namespace kvsink {

/// Counters at one moment.
struct Counts {
    std::uint64_t mails = 0;        ///< mails accepted
    std::uint64_t recipients = 0;   ///< recipients of the accepted mails
    std::uint64_t connections = 0;  ///< connections accepted
    std::uint64_t refused = 0;      ///< recipients refused by name, and mails refused for their size
};

/// What a server has received so far. Thread-safe: the server's thread counts, any thread reads.
class Counters {
public:
    void countMail(std::uint64_t recipients) {
        m_recipients.fetch_add(recipients, std::memory_order_relaxed);
        m_mails.fetch_add(1, std::memory_order_relaxed);
    }
    void countConnection() { m_connections.fetch_add(1, std::memory_order_relaxed); }
    void countRefusal() { m_refused.fetch_add(1, std::memory_order_relaxed); }

    Counts read() const {
        return {m_mails.load(), m_recipients.load(), m_connections.load(), m_refused.load()};
    }

private:
    std::atomic<std::uint64_t> m_mails{0};
    std::atomic<std::uint64_t> m_recipients{0};
    std::atomic<std::uint64_t> m_connections{0};
    std::atomic<std::uint64_t> m_refused{0};
};

}  // namespace kvsink
