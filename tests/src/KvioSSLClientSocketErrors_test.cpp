#include "src/KvioSSLClientSocketFixture.h"

namespace kvtlssockettest {
namespace {

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

}  // namespace
}  // namespace kvtlssockettest
