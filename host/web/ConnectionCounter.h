#pragma once

#include <atomic>
#include <cstdint>
#include <string>

namespace kvhost {

/// What the driver did about connections since the process began. Immutable value.
struct ConnectionFigures {
    std::uint64_t attempted = 0;  ///< connections that were to be opened
    std::uint64_t failed = 0;     ///< those that could not be
    std::uint64_t reused = 0;     ///< times that an idle one was taken up again
};

/// Counts connections by the lines that a driver logs about them: the contract has no other word on the matter. A driver
/// that logs other lines is counted as one without connections. Thread-safe.
class ConnectionCounter {
public:
    /// Looks at one line of the driver's log.
    void Watch(const std::string& text);
    ConnectionFigures Get() const;

private:
    std::atomic<std::uint64_t> m_nAttempted{0};
    std::atomic<std::uint64_t> m_nFailed{0};
    std::atomic<std::uint64_t> m_nReused{0};
};

}  // namespace kvhost
