#pragma once

/// Observer of a socket, made by the host. A socket stores one and deletes it; it calls nothing of it.
class KvioSocketEventHandler {
public:
    virtual ~KvioSocketEventHandler() = default;

    KvioSocketEventHandler() = default;
    KvioSocketEventHandler(const KvioSocketEventHandler&) = delete;
    KvioSocketEventHandler& operator=(const KvioSocketEventHandler&) = delete;
};
