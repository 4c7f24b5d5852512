#include "KvioSSLClientSocket.h"

#include <gtest/gtest.h>

#include <string>

#include "TestCertificates.h"
#include "faults/TlsCalls.h"
#include "src/SocketDoubles.h"
#include "src/TlsPeer.h"

namespace {

using kvtest::FailedTlsCall;
using kvtest::IoFailureOf;
using kvtest::TestCertificates;
using kvtest::TlsCall;
using kvtest::TlsConnection;
using kvtest::TlsPeer;

/// A client that is connected to a TLS server and trusts it.
class KvioSSLClientSocketFaultTest : public testing::Test {
protected:
    KvioSSLClientSocketFaultTest() : peer([](TlsConnection& client) { client.AwaitEnd(); }) {
        socket.m_strCAFile = TestCertificates::Shared().caFile();
        socket.Connect("127.0.0.1", peer.Port(), KvioSocket::SOCKET_TCP);
    }

    std::string FailureOfStart() {
        return IoFailureOf([this] { socket.StartSSL(); });
    }
    /// The description of a failure that is told by path and message only.
    std::string Plain(const std::string& message) const {
        return "Exception raised! IO path[" + socket.GetRemoteAddress() + "] File[] Line[0] Msg[" + message +
               "] SysMsg[]";
    }

    TlsPeer peer;
    kvtest::Attachable<KvioSSLClientSocket> socket;
};

TEST_F(KvioSSLClientSocketFaultTest, ATlsObjectThatCannotBeMadeThrows) {
    const FailedTlsCall failure(TlsCall::NewConnection);
    EXPECT_EQ(FailureOfStart(), Plain("SSL: Set SSL Failed"));
}

TEST_F(KvioSSLClientSocketFaultTest, ADescriptorThatCannotBeSetThrows) {
    const FailedTlsCall failure(TlsCall::SetDescriptor);
    EXPECT_EQ(FailureOfStart(), Plain("SSL: Set SSL Socket Failed"));
}

TEST_F(KvioSSLClientSocketFaultTest, AServerWithoutACertificateThrows) {
    const FailedTlsCall failure(TlsCall::PeerCertificate);
    EXPECT_EQ(FailureOfStart(), Plain("SSL: Get Certificate Failed"));
}

TEST_F(KvioSSLClientSocketFaultTest, ASubjectNameThatCannotBeReadThrows) {
    const FailedTlsCall failure(TlsCall::NameText);
    EXPECT_EQ(FailureOfStart(), Plain("SSL: Get Certificate Subject Name Failed"));
}

TEST_F(KvioSSLClientSocketFaultTest, AnIssuerNameThatCannotBeReadThrows) {
    const FailedTlsCall failure(TlsCall::NameText, 1);
    EXPECT_EQ(FailureOfStart(), Plain("SSL: Get Certificate Issuer Failed"));
}

}  // namespace
