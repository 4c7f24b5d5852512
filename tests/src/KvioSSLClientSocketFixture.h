#pragma once

#include "KvioSSLClientSocket.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/err.h>
#include <openssl/pem.h>

#include <future>
#include <optional>

#include "Descriptors.h"

#include "KvconThread.h"
#include "RecordingLog.h"
#include "TempDir.h"
#include "TestCertificates.h"
#include "src/SocketDoubles.h"
#include "src/TlsPeer.h"

namespace kvtlssockettest {

using kvtest::Bytes;
using kvtest::HasStatusFlag;
using kvtest::IoFailureOf;
using kvtest::IsOpen;
using kvtest::Latch;
using kvtest::LoopbackListener;
using kvtest::ReceiveText;
using kvtest::RecordingLog;
using kvtest::ScopedDescriptor;
using kvtest::SendText;
using kvtest::TestCertificates;
using kvtest::TlsConnection;
using kvtest::TlsPeer;
using testing::ElementsAre;
using testing::IsEmpty;

inline const std::string kFailureOfCode1 =
    "SSL: SSL Connect Failed. Details: SSL_ERROR_SSL. A failure in the SSL library occurred, usually a "
    "protocol "
    "error.  Error: error:00000001:lib(0)::reason(1)";

class TestSocket : public kvtest::Attachable<KvioSSLClientSocket> {
public:
    using Attachable::Attachable;

    SSL* Ssl() const { return m_pSSL; }
    X509* PeerCertificate() const { return m_pPeerCert; }
    bool HasNoTlsObjects() const {
        return m_pMethod == nullptr && m_pCtx == nullptr && m_pSSL == nullptr && m_pPeerCert == nullptr;
    }
    bool IsTls() const { return m_bSSLConnected; }
    std::string Version() const { return SSL_get_version(m_pSSL); }

    /// The members' distances from the end of the base, in bytes.
    std::vector<std::ptrdiff_t> MemberOffsets() const {
        const auto offset = [this](const void* member) {
            return static_cast<const char*>(member) - reinterpret_cast<const char*>(this) -
                   static_cast<std::ptrdiff_t>(sizeof(KvioClientSocket));
        };
        return {offset(&m_pMethod),          offset(&m_pCtx),          offset(&m_pSSL),
                offset(&m_pPeerCert),        offset(&m_bSSLConnected), offset(&m_eMethodType),
                offset(&m_strCertFile),      offset(&m_strKeyFile),    offset(&m_strExtra),
                offset(&m_strCAFile),        offset(&m_pfnVerify),     offset(&m_pfnPassword),
                offset(&m_pPasswordUserData)};
    }
};

/// A client that trusts the test authority, and the peer of the test when it has one.
class KvioSSLClientSocketTest : public ::testing::Test {
protected:
    KvioSSLClientSocketTest() { socket.m_strCAFile = certificates.caFile(); }

    void Connect(int port) { ASSERT_EQ(socket.Connect("127.0.0.1", port, KvioSocket::SOCKET_TCP), 0); }
    void Start(const TlsPeer::Options& options, TlsPeer::Script script) {
        peer.emplace(options, std::move(script));
        Connect(peer->Port());
    }
    /// Connects to a server that runs `script` and starts TLS.
    void StartTls(TlsPeer::Script script, const TlsPeer::Options& options = {}) {
        Start(options, std::move(script));
        ASSERT_NO_THROW(socket.StartSSL());
    }
    /// Starts TLS with a server that then resets the connection. The error that waits for the first call is taken away, so
    /// that the next write meets a broken pipe, for which the system has SIGPIPE.
    void StartTlsAndLoseTheServer() {
        StartTls([this](TlsConnection& client) {
            client.Send("x");
            const linger abort{1, 0};
            setsockopt(client.Descriptor(), SOL_SOCKET, SO_LINGER, &abort, sizeof(abort));
            latch.Wait();
        });
        ASSERT_EQ(Read(20000), 1);
        latch.Open();
        peer->Finish();
        ASSERT_EQ(socket.Wait(true, false, 20000), 33);  // the reset is here
        int error = 0;
        socklen_t size = sizeof(error);
        ASSERT_EQ(getsockopt(socket.GetSocket(), SOL_SOCKET, SO_ERROR, &error, &size), 0);
        ASSERT_EQ(error, ECONNRESET);
    }
    /// Connects to a listener that speaks no TLS; answers its end.
    ScopedDescriptor ConnectPlain() {
        Connect(listener.Port());
        return listener.Accept();
    }
    std::string FailureOfStart() {
        return IoFailureOf([&] { socket.StartSSL(); });
    }
    /// The description of a failure that is told by path and message only.
    std::string Plain(const std::string& message) const {
        return "Exception raised! IO path[" + socket.GetRemoteAddress() + "] File[] Line[0] Msg[" + message +
               "] SysMsg[]";
    }
    std::string ReadFailure(int line, const std::string& message, const std::string& systemMessage) const {
        return "Exception raised! IO path[" + socket.GetRemoteAddress() +
               "] File[../src/KvioSSLClientSocket] Line[" + std::to_string(line) + "] Msg[" + message +
               "] SysMsg[" + systemMessage + "]";
    }
    int Read(int timeoutMs) { return socket.Read(Bytes(buffer), sizeof(buffer), timeoutMs, status); }
    std::string TextOf(int count) const { return std::string(buffer, static_cast<std::size_t>(count)); }

    const TestCertificates& certificates = TestCertificates::Shared();
    LoopbackListener listener;
    RecordingLog log;
    KvioSocket::SocketStatus status{};
    char buffer[64] = {};
    Latch latch;
    std::optional<TlsPeer> peer;
    TestSocket socket;
};

MATCHER_P3(IsTraffic, text, line, file, "") {
    return arg.severity == kvtest::Severity::Trace && arg.text == text && arg.line == line &&
           arg.file == file;
}

inline void AwaitEnd(TlsConnection& client) {
    client.AwaitEnd();
}

}  // namespace kvtlssockettest
