#include "src/KvioSSLClientSocketFixture.h"

namespace kvtlssockettest {
namespace {

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
    StartTlsAndLoseTheServer();
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

}  // namespace
}  // namespace kvtlssockettest
