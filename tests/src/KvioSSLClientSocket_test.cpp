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

namespace {

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

const std::string kFailureOfCode1 =
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

void AwaitEnd(TlsConnection& client) {
    client.AwaitEnd();
}

// --- what hosts were compiled against ---

TEST_F(KvioSSLClientSocketTest, SlotsAreInTheirFixedOrder) {
    using Socket = KvioSSLClientSocket;
    using WriteBytes = int (Socket::*)(const unsigned char*, unsigned int);
    using WriteText = int (Socket::*)(const std::string&);
    EXPECT_EQ(kvtest::SlotOf(&Socket::Close), 2U);
    EXPECT_EQ(kvtest::SlotOf(&Socket::StartSSL), 3U);
    EXPECT_EQ(kvtest::SlotOf(&Socket::Read), 4U);
    EXPECT_EQ(kvtest::SlotOf(static_cast<WriteBytes>(&Socket::Write)), 5U);
    EXPECT_EQ(kvtest::SlotOf(static_cast<WriteText>(&Socket::Write)), 6U);
    EXPECT_EQ(kvtest::SlotOf(&Socket::operator<<), 7U);
    EXPECT_EQ(kvtest::SlotOf(&Socket::operator>>), 8U);
    EXPECT_EQ(kvtest::SlotOf(&Socket::Reset), 9U);
    EXPECT_EQ(kvtest::SlotOf(&Socket::GetSSLMethod), 10U);
}

TEST_F(KvioSSLClientSocketTest, MembersFollowTheBaseInTheirFixedOrder) {
    constexpr std::ptrdiff_t kWord = sizeof(void*);
    constexpr std::ptrdiff_t kText = sizeof(std::string);
    constexpr std::ptrdiff_t kTexts = 4 * kWord + 8;
    EXPECT_THAT(socket.MemberOffsets(),
                ElementsAre(0, kWord, 2 * kWord, 3 * kWord, 4 * kWord, 4 * kWord + 4, kTexts, kTexts + kText,
                            kTexts + 2 * kText, kTexts + 3 * kText, kTexts + 4 * kText,
                            kTexts + 4 * kText + kWord, kTexts + 4 * kText + 2 * kWord));
}

TEST_F(KvioSSLClientSocketTest, MethodValuesAreFixed) {
    EXPECT_EQ(KvioSSLClientSocket::METHOD_TLSV1, 1);
    EXPECT_EQ(KvioSSLClientSocket::METHOD_SSLV2, 3);
    EXPECT_EQ(KvioSSLClientSocket::METHOD_SSLV23, 4);
    EXPECT_EQ(KvioSSLClientSocket::METHOD_SSLV3, 5);
}

TEST_F(KvioSSLClientSocketTest, NewSocketIsPlainAndHasNoSettings) {
    const TestSocket fresh;
    EXPECT_TRUE(fresh.HasNoTlsObjects());
    EXPECT_FALSE(fresh.IsTls());
    EXPECT_EQ(fresh.m_eMethodType, KvioSSLClientSocket::METHOD_TLSV1);
    EXPECT_EQ(fresh.m_strCertFile + fresh.m_strKeyFile + fresh.m_strExtra + fresh.m_strCAFile, "");
    EXPECT_EQ(fresh.m_pfnVerify, nullptr);
    EXPECT_EQ(fresh.m_pfnPassword, nullptr);
    EXPECT_EQ(fresh.m_pPasswordUserData, nullptr);
}

TEST_F(KvioSSLClientSocketTest, ConstructorKeepsTheFileNames) {
    const KvioSSLClientSocket named("cert.pem", "key.pem", "ca.pem");
    EXPECT_EQ(named.m_strCertFile, "cert.pem");
    EXPECT_EQ(named.m_strKeyFile, "key.pem");
    EXPECT_EQ(named.m_strCAFile, "ca.pem");
    EXPECT_EQ(named.m_strExtra, "");
}

// --- the handshake ---

TEST_F(KvioSSLClientSocketTest, HandshakeWithATrustedServerSucceeds) {
    StartTls(AwaitEnd);
    EXPECT_TRUE(socket.IsTls());
    EXPECT_NE(socket.PeerCertificate(), nullptr);
    EXPECT_EQ(socket.Version(), "TLSv1.3");
}

TEST_F(KvioSSLClientSocketTest, HandshakeAgreesOnAnOlderVersion) {
    TlsPeer::Options options;
    options.maxVersion = TLS1_2_VERSION;
    StartTls(AwaitEnd, options);
    EXPECT_EQ(socket.Version(), "TLSv1.2");
}

TEST_F(KvioSSLClientSocketTest, FlexibleMethodAgreesOnTheNewestVersion) {
    socket.m_eMethodType = KvioSSLClientSocket::METHOD_SSLV23;
    StartTls(AwaitEnd);
    EXPECT_EQ(socket.Version(), "TLSv1.3");
}

TEST_F(KvioSSLClientSocketTest, VersionsBeforeTls10AreNotOffered) {
    StartTls(AwaitEnd);
    EXPECT_GE(SSL_get_min_proto_version(socket.Ssl()), TLS1_VERSION);
    EXPECT_EQ(SSL_get_max_proto_version(socket.Ssl()), 0);  // no ceiling
}

TEST_F(KvioSSLClientSocketTest, OnlyTheTlsMethodsAreAvailable) {
    const auto method = [&](int type) {
        return socket.GetSSLMethod(static_cast<KvioSSLClientSocket::MethodType>(type));
    };
    EXPECT_EQ(method(1), TLS_client_method());
    EXPECT_EQ(method(4), TLS_client_method());
    for (const int type : {0, 2, 3, 5, 6}) {
        EXPECT_EQ(method(type), nullptr) << type;
    }
}

TEST_F(KvioSSLClientSocketTest, ObsoleteMethodsCannotBeCreated) {
    ERR_clear_error();
    const ScopedDescriptor server = ConnectPlain();
    for (const auto type : {KvioSSLClientSocket::METHOD_SSLV2, KvioSSLClientSocket::METHOD_SSLV3}) {
        socket.m_eMethodType = type;
        EXPECT_EQ(FailureOfStart(), Plain("SSL creation failed."));
    }
    EXPECT_EQ(ERR_peek_error(), 0U);
}

class MethodlessSocket : public TestSocket {
public:
    const SSL_METHOD* GetSSLMethod(MethodType) override { return nullptr; }
};

TEST_F(KvioSSLClientSocketTest, MethodIsTakenFromTheVirtualOperation) {
    MethodlessSocket methodless;
    methodless.m_strCAFile = certificates.caFile();
    EXPECT_EQ(IoFailureOf([&] { methodless.StartSSL(); }),
              "Exception raised! IO path[] File[] Line[0] Msg[SSL creation failed.] SysMsg[]");
}

TEST_F(KvioSSLClientSocketTest, EmptyCaFileFails) {
    const ScopedDescriptor server = ConnectPlain();
    socket.m_strCAFile = "";
    EXPECT_EQ(FailureOfStart(), Plain("SSL: Verify Location Failed"));
}

TEST_F(KvioSSLClientSocketTest, CaFileThatDoesNotExistFails) {
    const kvtest::TempDir dir;
    const ScopedDescriptor server = ConnectPlain();
    socket.m_strCAFile = dir.file("missing.pem");
    EXPECT_EQ(FailureOfStart(), Plain("SSL: Verify Location Failed"));
}

TEST_F(KvioSSLClientSocketTest, CaFileThatIsNoCertificateFails) {
    const kvtest::TempDir dir;
    const ScopedDescriptor server = ConnectPlain();
    socket.m_strCAFile = dir.write("ca.pem", "no certificate at all\n");
    EXPECT_EQ(FailureOfStart(), Plain("SSL: Verify Location Failed"));
    socket.m_strCAFile = dir.path();  // cannot be read as a file
    EXPECT_EQ(FailureOfStart(), Plain("SSL: Verify Location Failed"));
}

class KvioSSLClientSocketTrustTest
    : public KvioSSLClientSocketTest,
      public ::testing::WithParamInterface<const kvtest::CertificateFiles& (TestCertificates::*)() const> {
protected:
    TlsPeer::Options Server() const { return {.certificate = (certificates.*GetParam())()}; }
};

TEST_P(KvioSSLClientSocketTrustTest, UntrustedServerFailsTheHandshake) {
    Start(Server(), AwaitEnd);
    EXPECT_EQ(FailureOfStart(), Plain(kFailureOfCode1));
    EXPECT_FALSE(socket.IsTls());
}

TEST_P(KvioSSLClientSocketTrustTest, AcceptAllCallbackLetsAnUntrustedServerPass) {
    socket.m_pfnVerify = KvioSSLClientSocket::Callback_PeerVerify_AcceptAll;
    Start(Server(), AwaitEnd);
    EXPECT_NO_THROW(socket.StartSSL());
    EXPECT_TRUE(socket.IsTls());
}

INSTANTIATE_TEST_SUITE_P(Certificates, KvioSSLClientSocketTrustTest,
                         ::testing::Values(&TestCertificates::selfSigned, &TestCertificates::expired,
                                           &TestCertificates::fromOtherCa));

TEST_F(KvioSSLClientSocketTest, OtherAuthorityIsTrustedWhenItIsTheCaFile) {
    socket.m_strCAFile = certificates.otherCaFile();
    StartTls(AwaitEnd, {.certificate = certificates.fromOtherCa()});
    EXPECT_TRUE(socket.IsTls());
}

TEST_F(KvioSSLClientSocketTest, RejectedHandshakeIsDescribedByTheGeneralTextOfCode1) {
    TlsPeer::Options options;
    options.certificate = {};  // the server has nothing to offer and sends a fatal alert
    Start(options, AwaitEnd);
    EXPECT_EQ(FailureOfStart(), Plain(kFailureOfCode1));
}

TEST_F(KvioSSLClientSocketTest, ServerThatSpeaksNoTlsFailsTheHandshake) {
    const ScopedDescriptor server = ConnectPlain();
    SendText(server.get(), "220 mail.example ready\r\n");
    EXPECT_EQ(FailureOfStart(), Plain(kFailureOfCode1));
}

TEST_F(KvioSSLClientSocketTest, ServerThatStallsAndClosesFailsTheHandshake) {
    ScopedDescriptor server = ConnectPlain();
    auto starting = std::async(std::launch::async, [&] { return FailureOfStart(); });
    EXPECT_EQ(ReceiveText(server.get(), 5).size(), 5U);  // the handshake has begun
    EXPECT_EQ(starting.wait_for(std::chrono::milliseconds(30)), std::future_status::timeout);
    kvtest::CloseWithFin(server);
    EXPECT_EQ(starting.get(), Plain(kFailureOfCode1));
}

TEST_F(KvioSSLClientSocketTest, ServerThatResetsInTheHandshakeIsASystemError) {
    ScopedDescriptor server = ConnectPlain();
    auto starting = std::async(std::launch::async, [&] { return FailureOfStart(); });
    EXPECT_EQ(ReceiveText(server.get(), 5).size(), 5U);
    kvtest::CloseWithReset(server);
    EXPECT_EQ(starting.get(), Plain("SSL: SSL Connect Failed. Details: SSL_ERROR_SYSCALL. Some I/O error "
                                    "occurred.  Error: error:00000005:lib(0)::reason(5)"));
}

TEST_F(KvioSSLClientSocketTest, HandshakeWithAServerThatIsGoneRaisesNoSigPipe) {
    ScopedDescriptor server = ConnectPlain();
    kvtest::CloseWithReset(server);
    ASSERT_EQ(socket.Wait(true, false, 20000), 33);
    EXPECT_NE(FailureOfStart(), "nothing was thrown");
    EXPECT_NE(FailureOfStart(), "nothing was thrown");
    EXPECT_TRUE(kvtest::SigPipeIsUntouched());
}

TEST_F(KvioSSLClientSocketTest, StartWithoutAConnectionFailsTheHandshake) {
    EXPECT_EQ(FailureOfStart(), Plain("SSL: SSL Connect Failed. Details: SSL_ERROR_SYSCALL. Some I/O error "
                                      "occurred.  Error: error:00000005:lib(0)::reason(5)"));
}

TEST_F(KvioSSLClientSocketTest, InterruptedHandshakeFails) {
    const ScopedDescriptor server = ConnectPlain();
    std::string failure;
    kvtest::RunInterrupted([&] { failure = FailureOfStart(); });
    EXPECT_EQ(failure, Plain("SSL: SSL Connect Failed. Details: SSL_ERROR_WANT_READ. The operation did not "
                             "complete.  Error: error:00000002:lib(0)::reason(2)"));
}

TEST_F(KvioSSLClientSocketTest, HandshakeOnANonBlockingSocketDoesNotWait) {
    const ScopedDescriptor server = ConnectPlain();
    socket.SetNonBlockingMode();
    EXPECT_EQ(FailureOfStart(),
              Plain("SSL: SSL Connect Failed. Details: SSL_ERROR_WANT_READ. The operation did not complete.  "
                    "Error: error:00000002:lib(0)::reason(2)"));
    EXPECT_TRUE(HasStatusFlag(socket.GetSocket(), O_NONBLOCK));
}

TEST_F(KvioSSLClientSocketTest, FailedStartLeavesThePlainSocket) {
    const ScopedDescriptor server = ConnectPlain();
    SendText(server.get(), "220 no TLS here\r\n");
    FailureOfStart();
    EXPECT_FALSE(socket.IsTls());
    EXPECT_FALSE(socket.HasNoTlsObjects());
    EXPECT_FALSE(HasStatusFlag(socket.GetSocket(), O_NONBLOCK));
    socket.Reset();
    EXPECT_TRUE(socket.HasNoTlsObjects());
    EXPECT_TRUE(IsOpen(socket.GetSocket()));
}

TEST_F(KvioSSLClientSocketTest, StartCanBeRepeatedAfterAFailure) {
    Start({}, AwaitEnd);
    socket.m_strCAFile = "";
    EXPECT_EQ(FailureOfStart(), Plain("SSL: Verify Location Failed"));
    socket.m_strCAFile = certificates.caFile();
    EXPECT_NO_THROW(socket.StartSSL());
}

// --- client certificates ---

TEST_F(KvioSSLClientSocketTest, WithoutAClientCertificateTheKeyFileIsNotTouched) {
    const kvtest::TempDir dir;
    socket.m_strKeyFile = dir.file("missing.pem");
    StartTls(AwaitEnd);
    EXPECT_TRUE(socket.IsTls());
}

TEST_F(KvioSSLClientSocketTest, ClientCertificateIsShownToTheServer) {
    socket.m_strCertFile = certificates.client().certificate;
    socket.m_strKeyFile = certificates.client().key;
    std::string subject;
    const auto look = [&](TlsConnection& client) {
        const std::unique_ptr<X509, decltype(&X509_free)> shown(SSL_get1_peer_certificate(client.Ssl()),
                                                                X509_free);
        char name[256] = {};
        X509_NAME_oneline(X509_get_subject_name(shown.get()), name, sizeof(name));
        subject = name;
    };
    StartTls(look, {.clientCaFile = certificates.caFile()});
    EXPECT_TRUE(peer->Finish());
    EXPECT_EQ(subject, "/CN=test client");
}

TEST_F(KvioSSLClientSocketTest, MissingClientCertificateFailsTheHandshakeOfTls12) {
    Start({.clientCaFile = certificates.caFile(), .maxVersion = TLS1_2_VERSION}, AwaitEnd);
    EXPECT_EQ(FailureOfStart(), Plain(kFailureOfCode1));
}

TEST_F(KvioSSLClientSocketTest, PassPhraseOfTheKeyComesFromTheCallback) {
    std::string phrase = TestCertificates::passPhrase();
    socket.m_strCertFile = certificates.clientWithPassPhrase().certificate;
    socket.m_strKeyFile = certificates.clientWithPassPhrase().key;
    socket.m_pfnPassword = KvioSSLClientSocket::Callback_PEMPassword_Internal;
    socket.m_pPasswordUserData = phrase.data();
    StartTls(AwaitEnd, {.clientCaFile = certificates.caFile()});
    EXPECT_TRUE(socket.IsTls());
}

TEST_F(KvioSSLClientSocketTest, WrongPassPhraseFails) {
    std::string phrase = "close sesame";
    const ScopedDescriptor server = ConnectPlain();
    socket.m_strCertFile = certificates.clientWithPassPhrase().certificate;
    socket.m_strKeyFile = certificates.clientWithPassPhrase().key;
    socket.m_pfnPassword = KvioSSLClientSocket::Callback_PEMPassword_Internal;
    socket.m_pPasswordUserData = phrase.data();
    EXPECT_EQ(FailureOfStart(), Plain("SSL: Setting Key file Failed"));
    socket.m_pPasswordUserData = nullptr;
    EXPECT_EQ(FailureOfStart(), Plain("SSL: Setting Key file Failed"));
}

TEST_F(KvioSSLClientSocketTest, ClientCertificateThatCannotBeReadFails) {
    const kvtest::TempDir dir;
    const ScopedDescriptor server = ConnectPlain();
    socket.m_strCertFile = dir.file("missing.pem");
    socket.m_strKeyFile = certificates.client().key;
    EXPECT_EQ(FailureOfStart(), Plain("SSL: Setting Certificate file Failed"));
    socket.m_strCertFile = dir.write("garbage.pem", "no certificate at all\n");
    EXPECT_EQ(FailureOfStart(), Plain("SSL: Setting Certificate file Failed"));
}

TEST_F(KvioSSLClientSocketTest, KeyThatCannotBeReadFails) {
    const kvtest::TempDir dir;
    const ScopedDescriptor server = ConnectPlain();
    socket.m_strCertFile = certificates.client().certificate;
    socket.m_strKeyFile = dir.file("missing.pem");
    EXPECT_EQ(FailureOfStart(), Plain("SSL: Setting Key file Failed"));
    socket.m_strKeyFile = "";
    EXPECT_EQ(FailureOfStart(), Plain("SSL: Setting Key file Failed"));
}

TEST_F(KvioSSLClientSocketTest, KeyThatDoesNotBelongToTheCertificateFails) {
    const ScopedDescriptor server = ConnectPlain();
    socket.m_strCertFile = certificates.client().certificate;
    socket.m_strKeyFile = certificates.unrelatedKeyFile();
    EXPECT_EQ(FailureOfStart(), Plain("SSL: Private key does not match the certificate public key"));
}

TEST_F(KvioSSLClientSocketTest, KeyOfAnotherKindThanTheCertificateFails) {
    const kvtest::TempDir dir;
    const std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key(EVP_RSA_gen(2048), EVP_PKEY_free);
    const std::string file = dir.file("rsa.pem");
    const std::unique_ptr<BIO, decltype(&BIO_free)> out(BIO_new_file(file.c_str(), "w"), BIO_free);
    PEM_write_bio_PrivateKey(out.get(), key.get(), nullptr, nullptr, 0, nullptr, nullptr);
    BIO_flush(out.get());
    const ScopedDescriptor server = ConnectPlain();
    socket.m_strCertFile = certificates.client().certificate;
    socket.m_strKeyFile = file;
    EXPECT_EQ(FailureOfStart(), Plain("SSL: Private key does not match the certificate public key"));
}

// --- plain text before and after TLS ---

TEST_F(KvioSSLClientSocketTest, ReadAndWriteBeforeStartAreThoseOfThePlainSocket) {
    const ScopedDescriptor server = ConnectPlain();
    socket.SetEventLog(&log);
    SendText(server.get(), "220 ready\r\n");
    EXPECT_EQ(Read(20000), 11);
    EXPECT_EQ(TextOf(11), "220 ready\r\n");
    EXPECT_EQ(socket.Write(Bytes("EHLO"), 4), 4);
    EXPECT_EQ(socket.Write(" x\r\n"), 4);
    EXPECT_EQ(ReceiveText(server.get(), 8), "EHLO x\r\n");
    EXPECT_THAT(log.entries(), ElementsAre(IsTraffic("=> 220 ready<CR><LF>", 226, "../src/KvioSocket"),
                                           IsTraffic("<= EHLO", 174, "../src/KvioSocket"),
                                           IsTraffic("<=  x<CR><LF>", 174, "../src/KvioSocket")));
}

TEST_F(KvioSSLClientSocketTest, PlainTextCanBeFollowedByTls) {
    peer.emplace([](TlsConnection& client) { client.Send("inside"); });
    Connect(peer->Port());
    socket.StartSSL();
    EXPECT_EQ(Read(20000), 6);
    EXPECT_EQ(TextOf(6), "inside");
}

TEST_F(KvioSSLClientSocketTest, ResetMakesTheConnectionPlainAgain) {
    bool alert = false;
    StartTls([&](TlsConnection& client) {
        client.Send("inside");
        alert = client.ReceivesClosingAlert();
        SendText(client.Descriptor(), "outside");
        EXPECT_EQ(ReceiveText(client.Descriptor(), 5), "plain");
    });
    ASSERT_EQ(Read(20000), 6);
    socket.Reset();
    EXPECT_TRUE(socket.HasNoTlsObjects());
    EXPECT_FALSE(socket.IsTls());
    EXPECT_FALSE(HasStatusFlag(socket.GetSocket(), O_NONBLOCK));
    EXPECT_EQ(Read(20000), 7);
    EXPECT_EQ(TextOf(7), "outside");
    socket.Write("plain");
    peer->Finish();
    EXPECT_TRUE(alert);
}

TEST_F(KvioSSLClientSocketTest, ResetLeavesASocketOfTheCallersNonBlocking) {
    StartTls(AwaitEnd);
    socket.Reset();
    socket.SetNonBlockingMode();
    socket.Reset();
    EXPECT_TRUE(HasStatusFlag(socket.GetSocket(), O_NONBLOCK));
}

TEST_F(KvioSSLClientSocketTest, ResetToAServerThatIsGoneRaisesNoSigPipe) {
    StartTls([](TlsConnection& client) { client.Send("bye"); });
    ASSERT_EQ(Read(20000), 3);
    peer->Finish();
    EXPECT_THROW(Read(20000), KvioException);
    socket.Reset();
    EXPECT_TRUE(kvtest::SigPipeIsUntouched());
}

TEST_F(KvioSSLClientSocketTest, SecondStartReplacesTheFirst) {
    StartTls([](TlsConnection& client) { client.Send("inside"); });
    ASSERT_EQ(Read(20000), 6);
    peer->Finish();
    const ScopedDescriptor first(socket.GetSocket());
    peer.reset();
    StartTls([](TlsConnection& client) { client.Send("again"); });
    EXPECT_EQ(Read(20000), 5);
}

TEST_F(KvioSSLClientSocketTest, CloseEndsTlsAndReleasesTheDescriptor) {
    bool alert = false;
    StartTls([&](TlsConnection& client) { alert = client.ReceivesClosingAlert(); });
    EXPECT_EQ(socket.Close(), 0);
    EXPECT_TRUE(socket.HasNoTlsObjects());
    EXPECT_FALSE(IsOpen(socket.GetSocket()));
    peer->Finish();
    EXPECT_TRUE(alert);
}

TEST_F(KvioSSLClientSocketTest, DestructionEndsTlsAndReleasesTheDescriptor) {
    bool alert = false;
    peer.emplace([&](TlsConnection& client) { alert = client.ReceivesClosingAlert(); });
    int number = -1;
    {
        KvioSSLClientSocket other("", "", certificates.caFile());
        other.Connect("127.0.0.1", peer->Port(), KvioSocket::SOCKET_TCP);
        other.StartSSL();
        number = other.GetSocket();
    }
    peer->Finish();
    EXPECT_FALSE(IsOpen(number));
    EXPECT_TRUE(alert);
}

TEST_F(KvioSSLClientSocketTest, DestructionAfterCloseLeavesTheNewOwnerOfTheDescriptorAlone) {
    ScopedDescriptor newOwner;
    {
        KvioSSLClientSocket other;
        other.Connect("127.0.0.1", listener.Port(), KvioSocket::SOCKET_TCP);
        const int number = other.GetSocket();
        const ScopedDescriptor server = listener.Accept();
        ASSERT_EQ(other.Close(), 0);
        newOwner = ScopedDescriptor(dup2(server.get(), number));
    }
    EXPECT_TRUE(IsOpen(newOwner.get()));
}

// --- reading in TLS ---

TEST_F(KvioSSLClientSocketTest, ReadAnswersTheDecryptedBytesAndLogsThem) {
    StartTls([](TlsConnection& client) { client.Send("250 ok\r\n"); });
    socket.SetEventLog(&log);
    EXPECT_EQ(Read(20000), 8);
    EXPECT_EQ(TextOf(8), "250 ok\r\n");
    EXPECT_EQ(status, KvioSocket::SOCKET_DONE);
    EXPECT_THAT(log.entries(),
                ElementsAre(IsTraffic("=> 250 ok<CR><LF>", 284, "../src/KvioSSLClientSocket")));
}

TEST_F(KvioSSLClientSocketTest, ReadWithoutATimeoutWaitsForData) {
    StartTls([&](TlsConnection& client) {
        latch.Wait();
        client.Send("late");
    });
    auto reading = std::async(std::launch::async, [&] { return Read(-1); });
    EXPECT_EQ(reading.wait_for(std::chrono::milliseconds(30)), std::future_status::timeout);
    latch.Open();
    EXPECT_EQ(reading.get(), 4);
    EXPECT_EQ(TextOf(4), "late");
}

TEST_F(KvioSSLClientSocketTest, ReadTimesOutWhenTheServerSaysNothing) {
    StartTls(AwaitEnd, {.maxVersion = TLS1_2_VERSION});
    EXPECT_EQ(Read(20), -1);
    EXPECT_EQ(status, KvioSocket::SOCKET_TIMEOUT);
    EXPECT_EQ(Read(0), -1);
    EXPECT_EQ(status, KvioSocket::SOCKET_TIMEOUT);
    EXPECT_EQ(std::string(buffer), "");
}

// A server of TLS 1.3 sends session tickets after the handshake: the descriptor is readable without any data.
TEST_F(KvioSSLClientSocketTest, ReadTimesOutWhenOnlyRecordsWithoutDataCome) {
    StartTls(AwaitEnd);
    ASSERT_EQ(socket.Wait(true, false, 20000), 33);
    EXPECT_EQ(Read(50), -1);
    EXPECT_EQ(status, KvioSocket::SOCKET_TIMEOUT);
}

TEST_F(KvioSSLClientSocketTest, ReadAfterATimeoutAnswersTheData) {
    StartTls([&](TlsConnection& client) {
        latch.Wait();
        client.Send("late");
    });
    EXPECT_EQ(Read(20), -1);
    latch.Open();
    EXPECT_EQ(Read(20000), 4);
    EXPECT_EQ(TextOf(4), "late");
}

TEST_F(KvioSSLClientSocketTest, DecryptedBytesDoNotEndAWait) {
    StartTls([&](TlsConnection& client) {
        client.Send("abcdef");
        client.AwaitEnd();
    });
    ASSERT_EQ(socket.Read(Bytes(buffer), 3, 20000, status), 3);
    EXPECT_EQ(TextOf(3), "abc");
    EXPECT_EQ(socket.Read(Bytes(buffer), 3, 20, status), -1);
    EXPECT_EQ(status, KvioSocket::SOCKET_TIMEOUT);
    EXPECT_EQ(socket.Read(Bytes(buffer), 3, -1, status), 3);
    EXPECT_EQ(TextOf(3), "def");
}

TEST_F(KvioSSLClientSocketTest, ReadStampsTheActivityTime) {
    StartTls([](TlsConnection& client) { client.Send("x"); });
    socket.ForgetActivity();
    const std::time_t before = std::time(nullptr);
    Read(20000);
    EXPECT_GE(socket.GetLastActiveTime(), before);
}

TEST_F(KvioSSLClientSocketTest, ClosingAlertOfTheServerThrowsClosed) {
    StartTls([](TlsConnection& client) { client.SendClosingAlert(); });
    errno = 0;
    EXPECT_EQ(IoFailureOf([&] { Read(20000); }), ReadFailure(273, "SSL Socket is closed", "Success"));
    EXPECT_EQ(status, KvioSocket::SOCKET_ERROR);
    EXPECT_EQ(socket.GetSSLErrorString(0),
              "SSL_ERROR_ZERO_RETURN. The TLS/SSL connection has been closed.  Error: "
              "error:00000006:lib(0)::reason(6)");
}

TEST_F(KvioSSLClientSocketTest, EndWithoutAClosingAlertThrows) {
    StartTls([](TlsConnection& client) { client.Send("x"); });
    ASSERT_EQ(Read(20000), 1);
    EXPECT_EQ(IoFailureOf([&] { Read(20000); }), ReadFailure(273, "SSL Socket is closed", "Success"));
    EXPECT_EQ(status, KvioSocket::SOCKET_ERROR);
}

TEST_F(KvioSSLClientSocketTest, ResetByTheServerThrowsReadError) {
    StartTls([&](TlsConnection& client) {
        client.Send("x");
        const linger abort{1, 0};
        setsockopt(client.Descriptor(), SOL_SOCKET, SO_LINGER, &abort, sizeof(abort));
        latch.Wait();
    });
    ASSERT_EQ(Read(20000), 1);
    latch.Open();
    EXPECT_EQ(IoFailureOf([&] { Read(20000); }),
              ReadFailure(267, "SSL Socket Read Error", "Connection reset by peer"));
    EXPECT_EQ(status, KvioSocket::SOCKET_ERROR);
    EXPECT_EQ(socket.GetSSLErrorString(-1),
              "SSL_ERROR_SYSCALL. Some I/O error occurred.  Error: error:00000005:lib(0)::reason(5)");
}

TEST_F(KvioSSLClientSocketTest, GarbageInsteadOfARecordThrowsReadError) {
    StartTls([&](TlsConnection& client) {
        client.Send("x");
        SendText(client.Descriptor(), "this is no TLS record at all");
        client.AwaitEnd();
    });
    ASSERT_EQ(Read(20000), 1);
    errno = 0;
    EXPECT_EQ(IoFailureOf([&] { Read(20000); }), ReadFailure(267, "SSL Socket Read Error", "Success"));
}

TEST_F(KvioSSLClientSocketTest, FailedReadsAreNotLogged) {
    StartTls([](TlsConnection& client) { client.SendClosingAlert(); });
    socket.SetEventLog(&log);
    EXPECT_THROW(Read(20000), KvioException);
    EXPECT_THAT(log.entries(), IsEmpty());
}

TEST_F(KvioSSLClientSocketTest, ReadWhoseWaitIsInterruptedAnswersMinusOneAndError) {
    StartTls(AwaitEnd);
    int result = 0;
    kvtest::RunInterrupted([&] { result = Read(20000); });
    EXPECT_EQ(result, -1);
    EXPECT_EQ(status, KvioSocket::SOCKET_ERROR);
}

TEST_F(KvioSSLClientSocketTest, InterruptedReadWithoutATimeoutThrowsReadError) {
    StartTls(AwaitEnd);
    std::string failure;
    kvtest::RunInterrupted([&] { failure = IoFailureOf([&] { Read(-1); }); });
    EXPECT_EQ(failure, ReadFailure(267, "SSL Socket Read Error", "Interrupted system call"));
    EXPECT_EQ(status, KvioSocket::SOCKET_ERROR);
}

// --- writing in TLS ---

TEST_F(KvioSSLClientSocketTest, WritesReachTheServerAndAreLoggedAfterwards) {
    std::string received;
    StartTls([&](TlsConnection& client) { received = client.Receive(15); });
    socket.SetEventLog(&log);
    EXPECT_EQ(socket.Write(Bytes("EHLO x\r\n"), 8), 8);
    EXPECT_EQ(socket.Write(std::string("NOOP \0\n", 7)), 7);
    peer->Finish();
    EXPECT_EQ(received, std::string("EHLO x\r\nNOOP \0\n", 15));
    EXPECT_THAT(log.entries(),
                ElementsAre(IsTraffic("<= EHLO x<CR><LF>", 303, "../src/KvioSSLClientSocket"),
                            IsTraffic("<= NOOP <NUL><LF>", 326, "../src/KvioSSLClientSocket")));
}

TEST_F(KvioSSLClientSocketTest, WriteLeavesTheActivityTime) {
    StartTls(AwaitEnd);
    socket.ForgetActivity();
    socket.Write("x");
    EXPECT_EQ(socket.GetLastActiveTime(), 0);
}

TEST_F(KvioSSLClientSocketTest, EmptyWriteNeitherThrowsNorLogs) {
    StartTls(AwaitEnd);
    socket.SetEventLog(&log);
    EXPECT_EQ(socket.Write(Bytes("x"), 0), 0);
    EXPECT_EQ(socket.Write(""), 0);
    EXPECT_THAT(log.entries(), IsEmpty());
}

TEST_F(KvioSSLClientSocketTest, WriteToAServerThatIsGoneThrowsRaisesNoSigPipeAndIsNotLogged) {
    StartTls([&](TlsConnection& client) {
        client.Send("x");
        const linger abort{1, 0};
        setsockopt(client.Descriptor(), SOL_SOCKET, SO_LINGER, &abort, sizeof(abort));
        latch.Wait();
    });
    ASSERT_EQ(Read(20000), 1);
    latch.Open();
    peer->Finish();
    ASSERT_EQ(socket.Wait(true, false, 20000), 33);  // the reset is here
    socket.SetEventLog(&log);
    EXPECT_EQ(IoFailureOf([&] { socket.Write("x"); }), Plain("SSL Write Error"));
    EXPECT_EQ(IoFailureOf([&] { socket.Write(Bytes("x"), 1); }), Plain("SSL Write Error"));
    EXPECT_THAT(log.entries(), IsEmpty());
    EXPECT_TRUE(kvtest::SigPipeIsUntouched());
}

TEST_F(KvioSSLClientSocketTest, WriteWaitsForASlowReader) {
    constexpr int kManyBytes = 16 << 20;  // more than the system keeps on the way
    const std::string text(kManyBytes, 'm');
    std::string received;
    StartTls([&](TlsConnection& client) {
        latch.Wait();
        received = client.Receive(kManyBytes);
    });
    auto writing = std::async(std::launch::async, [&] { return socket.Write(text); });
    EXPECT_EQ(writing.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
    latch.Open();
    EXPECT_EQ(writing.get(), kManyBytes);
    peer->Finish();
    EXPECT_EQ(received, text);
}

TEST_F(KvioSSLClientSocketTest, InterruptedWriteThrowsWriteError) {
    StartTls([&](TlsConnection&) { latch.Wait(); });
    std::string failure;
    kvtest::RunInterrupted([&] { failure = IoFailureOf([&] { socket.Write(std::string(64 << 20, 'm')); }); });
    latch.Open();
    EXPECT_EQ(failure, Plain("SSL Write Error"));
}

TEST_F(KvioSSLClientSocketTest, DescriptorsAbove1024CarryTls) {
    const kvtest::OccupiedDescriptors occupied(1100);
    StartTls([](TlsConnection& client) { client.Send(client.Receive(4)); });
    EXPECT_GE(socket.GetSocket(), 1100);
    socket.Write("echo");
    EXPECT_EQ(Read(20000), 4);
    EXPECT_EQ(TextOf(4), "echo");
}

// --- the text operators ---

TEST_F(KvioSSLClientSocketTest, TextOperatorsWorkInTls) {
    StartTls([](TlsConnection& client) { client.Send(client.Receive(8)); });
    std::string text;
    socket << "ping"
           << "pong";
    ASSERT_EQ(socket >> text, 8);
    EXPECT_EQ(text, "pingpong");
}

TEST_F(KvioSSLClientSocketTest, ExtractionTakesAtMost1000Bytes) {
    const ScopedDescriptor server = ConnectPlain();
    SendText(server.get(), std::string(1500, 'x'));
    std::string text;
    EXPECT_EQ(socket >> text, 1000);
    EXPECT_EQ(text, std::string(1000, 'x'));
    EXPECT_EQ(socket >> text, 500);
    EXPECT_EQ(text, std::string(500, 'x'));
}

TEST_F(KvioSSLClientSocketTest, ExtractionStopsTheTextAtTheFirstNul) {
    const ScopedDescriptor server = ConnectPlain();
    SendText(server.get(), std::string("ab\0cd", 5));
    std::string text = "before";
    EXPECT_EQ(socket >> text, 5);
    EXPECT_EQ(text, "ab");
}

TEST_F(KvioSSLClientSocketTest, ExtractionThatFailsLeavesTheText) {
    const ScopedDescriptor server = ConnectPlain();
    std::string text = "before";
    int result = 0;
    kvtest::RunInterrupted([&] { result = socket >> text; });
    EXPECT_EQ(result, -1);
    EXPECT_EQ(text, "before");
}

class RecordingSocket : public KvioSSLClientSocket {
public:
    using KvioSSLClientSocket::Write;
    int Write(const unsigned char* data, unsigned int size) override {
        written.assign(reinterpret_cast<const char*>(data), size);
        return static_cast<int>(size);
    }
    int Read(unsigned char* out, unsigned int size, int timeoutMs, SocketStatus&) override {
        requestedSize = size;
        requestedTimeout = timeoutMs;
        out[0] = 'r';
        return 1;
    }

    std::string written;
    unsigned int requestedSize = 0;
    int requestedTimeout = 0;
};

TEST_F(KvioSSLClientSocketTest, TextOperatorsUseTheVirtualReadAndWrite) {
    RecordingSocket recording;
    std::string text;
    recording << std::string("a\0b", 3);
    EXPECT_EQ(recording.written, std::string("a\0b", 3));
    EXPECT_EQ(recording >> text, 1);
    EXPECT_EQ(text, "r");
    EXPECT_EQ(recording.requestedSize, 1000U);
    EXPECT_EQ(recording.requestedTimeout, 60000);
}

// --- error texts ---

/// A TLS client whose transport stops every operation for the given reason.
class StoppedSocket : public TestSocket {
public:
    StoppedSocket(int flags, int reason)
        : m_method(BIO_meth_new(BIO_TYPE_SOURCE_SINK, "stopped"), BIO_meth_free) {
        BIO_meth_set_read(m_method.get(), [](BIO*, char*, int) { return -1; });
        BIO_meth_set_write(m_method.get(), [](BIO*, const char*, int size) { return size; });
        BIO_meth_set_ctrl(m_method.get(),
                          [](BIO*, int command, long, void*) { return command == BIO_CTRL_EOF ? 0L : 1L; });
        m_pCtx = SSL_CTX_new(TLS_client_method());
        m_pSSL = SSL_new(m_pCtx);
        BIO* const bio = BIO_new(m_method.get());
        BIO_set_init(bio, 1);
        BIO_set_flags(bio, flags);
        BIO_set_retry_reason(bio, reason);
        SSL_set_bio(m_pSSL, bio, bio);
        m_result = SSL_connect(m_pSSL);
    }
    ~StoppedSocket() override { Reset(); }

    std::string ErrorString() { return GetSSLErrorString(m_result); }

private:
    std::unique_ptr<BIO_METHOD, decltype(&BIO_meth_free)> m_method;
    int m_result = 0;
};

TEST(KvioSSLClientSocketErrorTest, TextOfCode0IsThatOfSuccess) {
    StoppedSocket socket(BIO_FLAGS_READ | BIO_FLAGS_SHOULD_RETRY, 0);
    EXPECT_EQ(
        socket.GetSSLErrorString(1),
        "SSL_ERROR_NONE. The TLS/SSL I/O operation completed.  Error: error:00000000:lib(0)::reason(0)");
}

TEST(KvioSSLClientSocketErrorTest, TextOfCode2IsThatOfReading) {
    StoppedSocket socket(BIO_FLAGS_READ | BIO_FLAGS_SHOULD_RETRY, 0);
    EXPECT_EQ(
        socket.ErrorString(),
        "SSL_ERROR_WANT_READ. The operation did not complete.  Error: error:00000002:lib(0)::reason(2)");
}

TEST(KvioSSLClientSocketErrorTest, TextOfCode3IsThatOfReadingToo) {
    StoppedSocket socket(BIO_FLAGS_WRITE | BIO_FLAGS_SHOULD_RETRY, 0);
    EXPECT_EQ(
        socket.ErrorString(),
        "SSL_ERROR_WANT_READ. The operation did not complete.  Error: error:00000003:lib(0)::reason(3)");
}

TEST(KvioSSLClientSocketErrorTest, TextOfCode5IsThatOfASystemCall) {
    StoppedSocket socket(0, 0);
    EXPECT_EQ(socket.ErrorString(),
              "SSL_ERROR_SYSCALL. Some I/O error occurred.  Error: error:00000005:lib(0)::reason(5)");
}

TEST(KvioSSLClientSocketErrorTest, TextOfCode7IsThatOfConnecting) {
    StoppedSocket socket(BIO_FLAGS_IO_SPECIAL | BIO_FLAGS_SHOULD_RETRY, BIO_RR_CONNECT);
    EXPECT_EQ(
        socket.ErrorString(),
        "SSL_ERROR_WANT_CONNECT. The operation did not complete.  Error: error:00000007:lib(0)::reason(7)");
}

TEST(KvioSSLClientSocketErrorTest, TextOfCode8IsThatOfAccepting) {
    StoppedSocket socket(BIO_FLAGS_IO_SPECIAL | BIO_FLAGS_SHOULD_RETRY, BIO_RR_ACCEPT);
    EXPECT_EQ(
        socket.ErrorString(),
        "SSL_ERROR_WANT_ACCEPT. The operation did not complete.  Error: error:00000008:lib(0)::reason(8)");
}

TEST(KvioSSLClientSocketErrorTest, WithoutATlsObjectTheTextIsThatOfAFailureInTheLibrary) {
    KvioSSLClientSocket socket;
    EXPECT_EQ(socket.GetSSLErrorString(-1),
              "SSL_ERROR_SSL. A failure in the SSL library occurred, usually a protocol error.  Error: "
              "error:00000001:lib(0)::reason(1)");
}

SSL* SslOf(X509_STORE_CTX* context) {
    return static_cast<SSL*>(X509_STORE_CTX_get_ex_data(context, SSL_get_ex_data_X509_STORE_CTX_idx()));
}

TEST_F(KvioSSLClientSocketTest, TextOfCode4IsThatOfACertificateLookup) {
    socket.m_pfnVerify = [](int, X509_STORE_CTX* context) {
        SSL_set_cert_cb(
            SslOf(context), [](SSL*, void*) { return -1; }, nullptr);
        return 1;
    };
    Start({.clientCaFile = certificates.caFile()}, AwaitEnd);
    EXPECT_EQ(FailureOfStart(),
              Plain("SSL: SSL Connect Failed. Details: SSL_ERROR_WANT_X509_LOOKUP. The operation did not "
                    "complete.  Error: error:00000004:lib(0)::reason(4)"));
}

TEST_F(KvioSSLClientSocketTest, UnlistedCodeHasNoTextOfItsOwn) {
    socket.m_pfnVerify = [](int, X509_STORE_CTX* context) -> int {
        return SSL_set_retry_verify(SslOf(context));
    };
    Start({}, AwaitEnd);
    EXPECT_EQ(FailureOfStart(), Plain("SSL: SSL Connect Failed. Details:  Error: "
                                      "error:0000000C:lib(0)::reason(12)"));
}

TEST_F(KvioSSLClientSocketTest, ErrorStackIsMovedOutOldestFirst) {
    KvioSSLClientSocket::InitializeOpenSSLLibrary();  // loads the texts
    ERR_clear_error();
    ERR_raise(ERR_LIB_SSL, SSL_R_NO_CIPHERS_AVAILABLE);
    ERR_raise(ERR_LIB_SSL, SSL_R_WRONG_VERSION_NUMBER);
    std::vector<std::string> texts{"kept"};
    socket.GetSSLErrorStack(texts);
    EXPECT_THAT(texts, ElementsAre("kept", "error:0A0000B5:SSL routines::no ciphers available",
                                   "error:0A00010B:SSL routines::wrong version number"));
    EXPECT_EQ(ERR_peek_error(), 0U);
}

TEST_F(KvioSSLClientSocketTest, ErrorStackTellsTheCauseOfAFailedHandshake) {
    Start({.certificate = certificates.expired()}, AwaitEnd);
    ERR_raise(ERR_LIB_SSL, SSL_R_NO_CIPHERS_AVAILABLE);  // left behind by somebody else
    FailureOfStart();
    std::vector<std::string> texts;
    socket.GetSSLErrorStack(texts);
    EXPECT_THAT(texts, ElementsAre("error:0A000086:SSL routines::certificate verify failed"));
}

// --- callbacks and the library ---

TEST_F(KvioSSLClientSocketTest, PassPhraseCallbackCopiesThePhraseAndClearsTheRest) {
    char phrase[] = "secret";
    char out[10];
    std::fill(std::begin(out), std::end(out), '#');
    EXPECT_EQ(KvioSSLClientSocket::Callback_PEMPassword_Internal(out, 9, 0, phrase), 6);
    EXPECT_EQ(std::string(out, 10), std::string("secret\0\0\0#", 10));
}

TEST_F(KvioSSLClientSocketTest, PassPhraseCallbackCutsALongPhrase) {
    char phrase[] = "secret";
    char out[5] = "####";
    EXPECT_EQ(KvioSSLClientSocket::Callback_PEMPassword_Internal(out, 4, 0, phrase), 4);
    EXPECT_EQ(std::string(out), "secr");
}

TEST_F(KvioSSLClientSocketTest, AcceptAllCallbackAcceptsWhatWasRefused) {
    EXPECT_EQ(KvioSSLClientSocket::Callback_PeerVerify_AcceptAll(0, nullptr), 1);
    EXPECT_EQ(KvioSSLClientSocket::Callback_PeerVerify_AcceptAll(1, nullptr), 1);
}

TEST_F(KvioSSLClientSocketTest, LibraryIsInitializedByTheFirstUseOnAnyThread) {
    std::vector<std::thread> users;
    for (int i = 0; i < 8; ++i) {
        users.emplace_back(KvioSSLClientSocket::InitializeOpenSSLLibrary);
    }
    for (std::thread& user : users) {
        user.join();
    }
    EXPECT_TRUE(KvioSSLClientSocket::m_bIsOpenSSLLibraryInitialized);
}

TEST_F(KvioSSLClientSocketTest, StartInitializesTheLibrary) {
    StartTls(AwaitEnd);
    EXPECT_TRUE(KvioSSLClientSocket::m_bIsOpenSSLLibraryInitialized);
}

// --- the end of a worker ---

class KvioSSLClientSocketEndTest : public KvioSSLClientSocketTest {
protected:
    KvioSSLClientSocketEndTest() { KvconThread::InitializeLibrary(); }

private:
    kvtest::SavedSignalHandlers m_handlers;
};

TEST_F(KvioSSLClientSocketEndTest, WorkerIsEndedInAHandshakeThatStalls) {
    const ScopedDescriptor server = ConnectPlain();
    kvtest::EndableThread worker([&] { socket.StartSSL(); });
    EXPECT_EQ(ReceiveText(server.get(), 5).size(), 5U);
    EXPECT_TRUE(worker.End());
    EXPECT_FALSE(socket.IsTls());
    EXPECT_FALSE(HasStatusFlag(socket.GetSocket(), O_NONBLOCK));
}

TEST_F(KvioSSLClientSocketEndTest, WorkerIsEndedInAReadWithATimeout) {
    StartTls(AwaitEnd);
    kvtest::EndableThread worker([&] { Read(20000); });
    EXPECT_TRUE(worker.End());
    EXPECT_EQ(socket.Close(), 0);
}

TEST_F(KvioSSLClientSocketEndTest, WorkerIsEndedInAReadWithoutATimeout) {
    StartTls(AwaitEnd);
    kvtest::EndableThread worker([&] { Read(-1); });
    EXPECT_TRUE(worker.End());
    EXPECT_EQ(socket.Close(), 0);
}

TEST_F(KvioSSLClientSocketEndTest, WorkerIsEndedInAWriteToAServerThatDoesNotRead) {
    StartTls([&](TlsConnection&) { latch.Wait(); });
    const std::string text(64 << 20, 'm');
    kvtest::EndableThread worker([&] { socket.Write(text); });
    EXPECT_TRUE(worker.End());
    latch.Open();
    EXPECT_EQ(socket.Close(), 0);
}

}  // namespace
