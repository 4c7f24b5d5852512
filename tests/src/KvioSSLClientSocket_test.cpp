#include "src/KvioSSLClientSocketFixture.h"

namespace kvtlssockettest {
namespace {

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
}  // namespace kvtlssockettest
