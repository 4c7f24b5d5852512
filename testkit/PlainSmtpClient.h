#pragma once

#include <chrono>
#include <cstddef>
#include <string>

#include "OpenSslHandles.h"
#include "ScopedDescriptor.h"

namespace kvtest {

/// A client that sends what it is told and shows what came, byte for byte; made of plain sockets and OpenSSL.
/// One thread at a time. Every wait ends after ten seconds; a wait in vain shows in the result.
///
///     PlainSmtpClient client(server.port());
///     EXPECT_EQ(client.readReply(), "220 test.example ESMTP\r\n");
///     EXPECT_EQ(client.command("NOOP"), "250 2.0.0 ok\r\n");
class PlainSmtpClient {
public:
    enum class End { Closed, Reset, StillOpen };

    /// Connects to 127.0.0.1. Throws std::system_error when that fails.
    explicit PlainSmtpClient(int port);
    ~PlainSmtpClient();

    PlainSmtpClient(const PlainSmtpClient&) = delete;
    PlainSmtpClient& operator=(const PlainSmtpClient&) = delete;

    /// Sends the bytes as they are. False when the connection is gone.
    bool send(const std::string& bytes);
    /// Sends the line with CR LF and answers readReply().
    std::string command(const std::string& line);

    /// A reply up to the line that has no hyphen behind its code; what came so far when no more comes.
    std::string readReply();
    /// What one read returns: at most 64 KiB, at least one byte; empty at the end of the connection.
    std::string readSome();
    /// Exactly `count` bytes, fewer when no more come.
    std::string readExactly(std::size_t count);
    /// Everything up to the end of the connection.
    std::string readToEnd();
    /// True when nothing comes for that long.
    bool staysSilentFor(std::chrono::milliseconds time);
    /// How the connection ends: reads and drops what still comes.
    End waitForEnd();

    /// The TLS handshake, with the server's certificate and the name localhost verified against the CA file.
    /// Empty when it succeeded, otherwise OpenSSL's reason, such as "certificate has expired".
    std::string startTls(const std::string& caFile, const std::string& certFile = "",
                         const std::string& keyFile = "");
    bool insideTls() const { return m_ssl != nullptr; }
    /// Such as "TLSv1.3"; empty in clear.
    std::string tlsVersion() const;
    /// After the end: whether the server sent the TLS close notification.
    bool wasCloseNotified() const { return m_closeNotified; }

    /// Ends the connection with FIN (after the close notification inside TLS), or with RST.
    void close();
    void reset();

private:
    std::string receive();
    void noteEnd(int result);
    bool waitFor(short events, std::chrono::milliseconds bound) const;
    std::string handshake(SSL* ssl) const;

    ScopedDescriptor m_socket;
    TlsContext m_context;
    TlsConnection m_ssl;
    std::string m_pending;
    End m_end = End::StillOpen;
    bool m_closeNotified = false;
};

}  // namespace kvtest
