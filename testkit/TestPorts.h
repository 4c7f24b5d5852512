#pragma once

#include <memory>
#include <string>
#include <vector>

#include "ScopedDescriptor.h"

namespace kvtest {

class ScriptedSmtpServer;

/// A port of 127.0.0.1 that was free a moment ago. Another process may take it before the caller does; where
/// that matters, listen on port 0 or use a RefusingPort.
int FreePort();

/// A port on 127.0.0.1 that is surely closed while this lives: it is taken, and nobody listens. Immutable.
class RefusingPort {
public:
    RefusingPort();
    int port() const { return m_port; }
    /// "127.0.0.1:port".
    std::string address() const;

private:
    ScopedDescriptor m_socket;
    int m_port;
};

/// A port that accepts every client and never says a word. Thread-safe.
class SilentListener {
public:
    SilentListener();
    ~SilentListener();
    int port() const;
    std::string address() const;
    bool waitForConnections(int n) const;
    int openConnections() const;

private:
    std::unique_ptr<ScriptedSmtpServer> m_server;
};

/// A port whose queue is full: a connect to it neither succeeds nor fails while this lives. Immutable.
class UnansweringPort {
public:
    /// `port` 0 for a free one; else one that is free but for connections which are open on it.
    explicit UnansweringPort(int port = 0);
    int port() const { return m_port; }
    std::string address() const;

private:
    ScopedDescriptor m_listener;
    int m_port;
    std::vector<ScopedDescriptor> m_queued;
};

}  // namespace kvtest
