#pragma once

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>

#include <string>

#include "KvioClientSocket.h"
#include "KvioException.h"
#include "LoopbackSocket.h"
#include "RecordingLog.h"
#include "ScopedDescriptor.h"

namespace acceptedsocket {

/// A client socket with its members open to the test.
class OpenSocket : public KvioClientSocket {
public:
    using KvioSocket::m_pEventHandler;
    using KvioSocket::m_pEventLog;
    using KvioSocket::m_socket;
    using KvioSocket::m_strRemoteAddress;
    using KvioSocket::m_tLastActive;
};

/// The server's side of one connection on 127.0.0.1. One thread at a time.
class Peer {
public:
    Peer() : m_listener(kvtest::BoundSocket(0)), m_port(kvtest::PortOf(m_listener)) {
        kvtest::Listen(m_listener, 4);
    }

    int port() const { return m_port; }
    std::string address() const { return "127.0.0.1:" + std::to_string(m_port); }

    void Accept() {
        m_connection = kvtest::ScopedDescriptor(accept4(m_listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
        ASSERT_TRUE(m_connection.valid());
        kvtest::SendAtOnce(m_connection);
    }

    void Send(const std::string& bytes) {
        ASSERT_EQ(send(m_connection.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(bytes.size()));
    }

    /// Reads until `size` bytes have come, the client has closed or nothing came for 10 s.
    std::string Receive(std::size_t size) {
        std::string result;
        while (result.size() < size && AwaitsBytes()) {
            char buffer[65536];
            const ssize_t got = recv(m_connection.get(), buffer, sizeof buffer, 0);
            if (got <= 0) {
                break;
            }
            result.append(buffer, static_cast<std::size_t>(got));
        }
        return result;
    }

    /// Everything that the client sends until it closes.
    std::string ReceiveToTheEnd() { return Receive(static_cast<std::size_t>(-1)); }

    void Close() { kvtest::CloseWithFin(m_connection); }
    void Reset() { kvtest::CloseWithReset(m_connection); }

private:
    bool AwaitsBytes() const {
        pollfd watched{m_connection.get(), POLLIN, 0};
        return poll(&watched, 1, 10000) == 1;
    }

    kvtest::ScopedDescriptor m_listener;
    int m_port;
    kvtest::ScopedDescriptor m_connection;
};

/// A socket that is connected to a peer and logs to `log`.
class ConnectedSocketTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(socket.Connect("127.0.0.1", peer.port(), KvioSocket::SOCKET_TCP), 0);
        ASSERT_NO_FATAL_FAILURE(peer.Accept());
        socket.SetEventLog(&log);
    }
    void TearDown() override { socket.Close(); }

    /// Waits until something can be read without reading it.
    bool IsReadable() { return socket.Wait(true, false, 10000) == KvioSocket::SOCKET_READABLE; }

    /// Bytes that came and were not read yet, without taking them.
    std::string Unread() {
        char buffer[4096];
        const ssize_t got = recv(socket.GetSocket(), buffer, sizeof buffer, MSG_PEEK | MSG_DONTWAIT);
        return got > 0 ? std::string(buffer, static_cast<std::size_t>(got)) : "";
    }

    Peer peer;
    kvtest::RecordingLog log;
    OpenSocket socket;
    KvioSocket::SocketStatus status = KvioSocket::SOCKET_WRITABLE;
};

/// The KvioException that `action` throws.
template <typename Action>
KvioException ThrownBy(Action action) {
    try {
        action();
    } catch (const KvioException& failure) {
        return failure;
    }
    ADD_FAILURE() << "no KvioException";
    return KvioException("none", "none");
}

inline void ExpectFailure(KvioException failure, const std::string& path, const std::string& file, int line,
                          const std::string& message) {
    EXPECT_EQ(failure.GetPath(), path);
    EXPECT_EQ(failure.GetFile(), file);
    EXPECT_EQ(failure.GetLine(), line);
    EXPECT_EQ(failure.GetMsg(), message);
}

}  // namespace acceptedsocket
