#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "FileDescriptor.h"

namespace kvsink {

/// A client that was accepted: a socket that does not block, and its address in text ("127.0.0.1").
struct Arrival {
    FileDescriptor socket;
    std::string address;
};

/// A listening TCP socket on the loopback interface. Externally synchronised.
class Listener {
public:
    /// Binds "127.0.0.1:PORT" (any of 127.0.0.0/8), "[::1]:PORT" or "localhost:PORT" and listens; port 0
    /// takes a free one. Throws StartError "--listen: ...".
    explicit Listener(const std::string& address);

    int fd() const { return m_socket.get(); }
    std::uint16_t port() const { return m_port; }
    /// Address and port as bound, "127.0.0.1:40001" or "[::1]:40001".
    const std::string& boundAddress() const { return m_boundAddress; }

    /// The next client that waits; nothing when none does. A client for which there is no descriptor left is
    /// accepted and closed at once, so that it does not wait for ever.
    std::optional<Arrival> accept();

    /// Takes no more clients.
    void close() { m_socket.reset(); }

private:
    void turnAway();

    FileDescriptor m_socket;
    FileDescriptor m_reserve;  // given up for a moment when the process has no descriptor left
    std::uint16_t m_port = 0;
    std::string m_boundAddress;
};

}  // namespace kvsink
