#pragma once

#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <optional>
#include <string>

#include "Gate.h"
#include "OpenSslHandles.h"
#include "ScopedDescriptor.h"
#include "SmtpRecorder.h"
#include "SmtpScript.h"

namespace kvtest {

/// Thrown on a connection's own thread to end it: how it is recorded, and how the descriptor is closed.
struct ConnectionOver {
    ConnectionEnd end = ConnectionEnd::ServerClosed;
    Then then = Then::Close;
};

/// The means of another thread to end a connection wherever it waits. Thread-safe; the first cut counts.
class ConnectionCut {
public:
    void close() { cut(ConnectionEnd::ServerClosed); }
    void reset() { cut(ConnectionEnd::ServerReset); }
    void stop() { cut(ConnectionEnd::Stopped); }

    /// Readable for poll() once cut.
    int descriptor() const { return m_gate.descriptor(); }
    ConnectionOver over() const;

private:
    void cut(ConnectionEnd end);

    Gate m_gate;
    std::atomic<ConnectionEnd> m_end = ConnectionEnd::Open;
};

/// The bytes of one connection, in clear or inside TLS; every one is recorded. One thread at a time.
///
/// The socket never blocks; each wait also listens for the cut. What ends the connection is thrown as a
/// ConnectionOver.
class SmtpWire {
public:
    SmtpWire(ScopedDescriptor socket, int connection, SmtpRecorder& recorder, const ConnectionCut& cut);

    /// What one read returns, at least one byte.
    std::string receive();
    /// Sends everything, with one write as far as the socket takes it.
    void send(const std::string& bytes);
    /// The server side of the handshake. Throws std::runtime_error without a context.
    void startTls(SSL_CTX* context);
    bool insideTls() const { return m_ssl != nullptr; }

    /// From now on the connection ends instead of reading more than so many bytes in all.
    void limit(const ByteLimit& limit) { m_limit = limit; }
    void pause(std::chrono::milliseconds time);
    void waitFor(const Gate& gate);
    /// Waits until the client leaves or the connection is cut.
    [[noreturn]] void stall();
    /// Says no more, and reads until the client leaves or the connection is cut.
    [[noreturn]] void halfClose();
    /// For Close, CloseAbruptly, Reset, HalfClose, Stall and Vanish.
    [[noreturn]] void endWith(Then action);

    /// Closes the descriptor in the way that `over` tells.
    void finish(const ConnectionOver& over);

private:
    ssize_t tryReceive(char* buffer, std::size_t size);
    ssize_t tryReceiveTls(char* buffer, std::size_t size);
    std::size_t trySend(const char* bytes, std::size_t size);
    std::size_t trySendTls(const char* bytes, std::size_t size);
    /// Waits as OpenSSL wishes after a result that is no success, or ends the connection.
    void afterTls(int result);
    void recordHandshake();
    void record(Direction direction, const std::string& bytes);
    void obeyLimit();
    short wait(int descriptor, short events, int timeoutMs);

    ScopedDescriptor m_socket;
    const int m_connection;
    SmtpRecorder& m_recorder;
    const ConnectionCut& m_cut;
    std::optional<ByteLimit> m_limit;
    std::size_t m_received = 0;
    TlsConnection m_ssl;
};

}  // namespace kvtest
