#pragma once

#include <optional>
#include <string>

#include "Duration.h"

namespace kvhost {

/// Tells the service manager that started the process how the process does, by datagrams to the socket of the
/// environment variable NOTIFY_SOCKET (a path, or "@" and an abstract name). Without that variable it does nothing.
/// Nothing fails here: a manager that does not listen is no trouble of ours. Thread-safe.
class ServiceNotifier {
public:
    /// Reads NOTIFY_SOCKET, and WATCHDOG_USEC when WATCHDOG_PID is this process or absent, and removes the three from
    /// the environment. While the process has one thread.
    ServiceNotifier();
    ~ServiceNotifier();
    ServiceNotifier(const ServiceNotifier&) = delete;
    ServiceNotifier& operator=(const ServiceNotifier&) = delete;

    void Ready(const std::string& status) const;
    void Reloading() const;
    void Stopping(const std::string& status) const;
    void Status(const std::string& status) const;
    void StillAlive() const;
    /// How often StillAlive is to be called: half the time after which the manager takes the process for dead. Nothing
    /// when it does not watch.
    std::optional<Milliseconds> WatchdogInterval() const { return m_watchdog; }

private:
    void Send(const std::string& message) const;

    std::string m_strSocket;
    std::optional<Milliseconds> m_watchdog;
    int m_fd = -1;
};

}  // namespace kvhost
