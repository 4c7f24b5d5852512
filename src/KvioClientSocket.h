#pragma once

#include <netinet/in.h>

#include <string>

#include "KvioSocket.h"

/// A socket that connects to a server by host name. IPv4 only. One thread at a time.
class KvioClientSocket : public KvioSocket {
public:
    /// The result of KvioSocket::Close.
    int Close() override;

    /// Resolves `host`, takes its first address and connects to `port`. Waits as long as the system's own
    /// connect time-out. Always 0. The descriptor is close-on-exec; a TCP connection is dropped by the system
    /// when data stays unacknowledged for 10 s, and sends small writes at once.
    ///
    /// Throws KvioException "Socket Create Failed", "Socket Unknown Type", "Socket Unknown Remote Host" or
    /// "Socket Connecting Failed", without a system message. The descriptor then stays open until Close.
    int Connect(const std::string& host, int port, SocketType type);

private:
    void CreateDescriptor(SocketType type);
    void CreateDescriptor(int kind, int protocol, int line);
    void SetOptions(SocketType type);
    bool ConnectTo(const sockaddr_in& address);
};
