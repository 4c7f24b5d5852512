#include "KvioSSLClientSocket.h"

#include <openssl/err.h>
#include <openssl/rand.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <mutex>

#include "KvEndSignals.h"
#include "KvNonBlockingMode.h"
#include "KvOpenSslLibrary.h"
#include "KvSocketWriteBio.h"
#include "KvioException.h"

namespace {

constexpr const char* kSource = "../src/KvioSSLClientSocket";
constexpr int kLineReadError = 267;
constexpr int kLineClosed = 273;
constexpr int kLineReceived = 284;
constexpr int kLineSent = 303;
constexpr int kLineSentText = 326;

constexpr int kNoTimeout = -1;
constexpr int kLateRecords = 100;
constexpr unsigned int kExtractLimit = 1000;
constexpr int kExtractTimeoutMs = 60000;
constexpr std::size_t kSslTextSize = 256;
constexpr int kSeedCount = 100;
constexpr int kSeedBytes = 4;

/// The place in an SSL object that tells that its descriptor was made non-blocking for it; -1 when there is none. One
/// that could not be had, for want of memory, is asked for again next time.
int SwitchedIndex() {
    static std::mutex guard;
    static int index = -1;
    const std::lock_guard lock(guard);
    if (index < 0) {
        index = SSL_get_ex_new_index(0, nullptr, nullptr, nullptr, nullptr);
    }
    return index;
}

bool IsSwitched(const SSL* ssl) {
    return ssl != nullptr && SSL_get_ex_data(ssl, SwitchedIndex()) != nullptr;
}

/// Whether `ssl` reads from and writes to `descriptor` from now on.
bool SetDescriptor(SSL* ssl, int descriptor) {
    BIO* const output = SSL_set_fd(ssl, descriptor) > 0 ? KvSocketWriteBio::New(descriptor) : nullptr;
    if (output != nullptr) {
        SSL_set0_wbio(ssl, output);
    }
    return output != nullptr;
}

/// What is left of `timeoutMs` milliseconds since `start`; of no limit, no limit.
int TimeLeft(std::chrono::steady_clock::time_point start, int timeoutMs) {
    if (timeoutMs == kNoTimeout) {
        return kNoTimeout;
    }
    const auto passed =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start)
            .count();
    return static_cast<int>(std::max<long long>(0, timeoutMs - passed));
}

void SeedGenerator() {
    std::array<int, kSeedCount> seed{};
    std::srand(static_cast<unsigned int>(std::time(nullptr)));
    for (int& number : seed) {
        number = std::rand();
    }
    RAND_seed(seed.data(), kSeedBytes);
}

/// One call of OpenSSL whose result is judged with SSL_get_error afterwards.
template <typename Call>
int CallTls(Call call) {
    ERR_clear_error();
    return call();
}

/// Stands where no callback is set: OpenSSL would ask on the terminal or the standard input of the host, and wait.
int NoPassPhrase(char*, int, int, void*) {
    return 0;
}

/// Whether the last failure was that of a key which does not belong to the certificate; OpenSSL looks at that
/// while it loads the key already.
bool KeyDidNotMatch() {
    const unsigned long code = ERR_peek_last_error();
    const int reason = ERR_GET_REASON(code);
    return ERR_GET_LIB(code) == ERR_LIB_X509 &&
           (reason == X509_R_KEY_VALUES_MISMATCH || reason == X509_R_KEY_TYPE_MISMATCH);
}

/// A failure that is told by path and message only.
[[noreturn]] void Fail(const std::string& path, const std::string& message) {
    throw KvioException(path, message);
}

const char* ErrorText(int code) {
    switch (code) {
        case SSL_ERROR_NONE:
            return "SSL_ERROR_NONE. The TLS/SSL I/O operation completed. ";
        case SSL_ERROR_ZERO_RETURN:
            return "SSL_ERROR_ZERO_RETURN. The TLS/SSL connection has been closed. ";
        case SSL_ERROR_WANT_READ:
        case SSL_ERROR_WANT_WRITE:
            return "SSL_ERROR_WANT_READ. The operation did not complete. ";
        case SSL_ERROR_WANT_CONNECT:
            return "SSL_ERROR_WANT_CONNECT. The operation did not complete. ";
        case SSL_ERROR_WANT_ACCEPT:
            return "SSL_ERROR_WANT_ACCEPT. The operation did not complete. ";
        case SSL_ERROR_WANT_X509_LOOKUP:
            return "SSL_ERROR_WANT_X509_LOOKUP. The operation did not complete. ";
        case SSL_ERROR_SYSCALL:
            return "SSL_ERROR_SYSCALL. Some I/O error occurred. ";
        case SSL_ERROR_SSL:
            return "SSL_ERROR_SSL. A failure in the SSL library occurred, usually a protocol error. ";
        default:
            return "";
    }
}

}  // namespace

bool KvioSSLClientSocket::m_bIsOpenSSLLibraryInitialized = false;

KvioSSLClientSocket::KvioSSLClientSocket() : KvioSSLClientSocket("", "", "") {}

KvioSSLClientSocket::KvioSSLClientSocket(const std::string& certFile, const std::string& keyFile,
                                         const std::string& caFile)
    : m_pMethod(nullptr),
      m_pCtx(nullptr),
      m_pSSL(nullptr),
      m_pPeerCert(nullptr),
      m_bSSLConnected(false),
      m_eMethodType(METHOD_TLSV1),
      m_strCertFile(certFile),
      m_strKeyFile(keyFile),
      m_strCAFile(caFile),
      m_pfnVerify(nullptr),
      m_pfnPassword(nullptr),
      m_pPasswordUserData(nullptr) {}

KvioSSLClientSocket::~KvioSSLClientSocket() {
    KvioSSLClientSocket::Reset();
    KvioClientSocket::Close();
}

int KvioSSLClientSocket::Close() {
    Reset();
    return KvioClientSocket::Close();
}

void KvioSSLClientSocket::StartSSL() {
    FreeTls();
    InitializeOpenSSLLibrary();
    CreateContext();
    if (!m_strCertFile.empty()) {
        UseClientCertificate();
    }
    SeedGenerator();
    CreateConnection();
    KvNonBlockingMode nonBlocking(m_socket);
    if (nonBlocking.IsSwitched()) {
        SSL_set_ex_data(m_pSSL, SwitchedIndex(), this);
    }
    Handshake();
    if (nonBlocking.IsSwitched()) {
        SSL_clear_mode(m_pSSL, SSL_MODE_AUTO_RETRY);  // reads go on by themselves, see ReceiveTls
    }
    CheckPeerCertificate();
    m_bSSLConnected = true;
    nonBlocking.Keep();
}

void KvioSSLClientSocket::CreateContext() {
    m_pMethod = GetSSLMethod(m_eMethodType);
    m_pCtx = m_pMethod == nullptr ? nullptr : SSL_CTX_new(m_pMethod);
    Require(m_pCtx != nullptr, "SSL creation failed.");
    if (SSL_CTX_get_min_proto_version(m_pCtx) < TLS1_VERSION) {
        SSL_CTX_set_min_proto_version(m_pCtx, TLS1_VERSION);
    }
    SSL_CTX_set_verify(m_pCtx, SSL_VERIFY_PEER, m_pfnVerify);
    Require(SSL_CTX_load_verify_locations(m_pCtx, m_strCAFile.c_str(), nullptr) != 0,
            "SSL: Verify Location Failed");
}

void KvioSSLClientSocket::UseClientCertificate() {
    Require(SSL_CTX_use_certificate_file(m_pCtx, m_strCertFile.c_str(), SSL_FILETYPE_PEM) > 0,
            "SSL: Setting Certificate file Failed");
    SSL_CTX_set_default_passwd_cb(m_pCtx, m_pfnPassword != nullptr ? m_pfnPassword : NoPassPhrase);
    if (m_pfnPassword != nullptr && m_pPasswordUserData != nullptr) {
        SSL_CTX_set_default_passwd_cb_userdata(m_pCtx, m_pPasswordUserData);
    }
    ERR_clear_error();
    const bool loaded = SSL_CTX_use_PrivateKey_file(m_pCtx, m_strKeyFile.c_str(), SSL_FILETYPE_PEM) > 0;
    Require(loaded || KeyDidNotMatch(), "SSL: Setting Key file Failed");
    Require(loaded && SSL_CTX_check_private_key(m_pCtx) != 0,
            "SSL: Private key does not match the certificate public key");
}

void KvioSSLClientSocket::CreateConnection() {
    m_pSSL = SSL_new(m_pCtx);
    Require(m_pSSL != nullptr, "SSL: Set SSL Failed");
    Require(SetDescriptor(m_pSSL, m_socket), "SSL: Set SSL Socket Failed");
    SSL_set_connect_state(m_pSSL);
    SSL_set_mode(m_pSSL, SSL_MODE_AUTO_RETRY);
}

void KvioSSLClientSocket::Handshake() {
    int result = 0;
    do {
        result = CallTls([this] { return SSL_connect(m_pSSL); });
    } while (AwaitPeer(AwaitedEvents(result)));
    if (result <= 0) {
        Fail(m_strRemoteAddress, "SSL: SSL Connect Failed. Details: " + GetSSLErrorString(result));
    }
}

void KvioSSLClientSocket::CheckPeerCertificate() {
    m_pPeerCert = SSL_get1_peer_certificate(m_pSSL);
    Require(m_pPeerCert != nullptr, "SSL: Get Certificate Failed");
    std::array<char, 1024> name{};
    Require(X509_NAME_oneline(X509_get_subject_name(m_pPeerCert), name.data(), name.size()) != nullptr,
            "SSL: Get Certificate Subject Name Failed");
    Require(X509_NAME_oneline(X509_get_issuer_name(m_pPeerCert), name.data(), name.size()) != nullptr,
            "SSL: Get Certificate Issuer Failed");
}

int KvioSSLClientSocket::Read(unsigned char* buffer, unsigned int size, int timeoutMs, SocketStatus& status) {
    if (!m_bSSLConnected) {
        return KvioSocket::Read(buffer, size, timeoutMs, status, false);
    }
    const int received = ReceiveTls(buffer, size, timeoutMs, status);
    if (status != SOCKET_READABLE) {
        return -1;
    }
    if (received < 0) {
        status = SOCKET_ERROR;
        throw KvioException(m_strRemoteAddress, kSource, kLineReadError, "SSL Socket Read Error",
                            KvgetLastError());
    }
    if (received == 0) {
        status = SOCKET_ERROR;
        throw KvioException(m_strRemoteAddress, kSource, kLineClosed, "SSL Socket is closed",
                            KvgetLastError());
    }
    status = SOCKET_DONE;
    LogReceived(buffer, static_cast<std::size_t>(received), kLineReceived, kSource);
    return received;
}

int KvioSSLClientSocket::Write(const unsigned char* data, unsigned int size) {
    if (!m_bSSLConnected) {
        return KvioSocket::Write(data, size);
    }
    return WriteTls(data, size, kLineSent);
}

int KvioSSLClientSocket::Write(const std::string& text) {
    if (!m_bSSLConnected) {
        return KvioSocket::Write(text);
    }
    return WriteTls(text.data(), text.size(), kLineSentText);
}

int KvioSSLClientSocket::WriteAsTwo(const std::string& text, std::size_t first) {
    if (!m_bSSLConnected) {
        return KvioSocket::WriteAsTwo(text, first);
    }
    const int written = SendTls(text.data(), text.size());
    LogSent(text.data(), first, kLineSentText, kSource);
    LogSent(text.data() + first, text.size() - first, kLineSent, kSource);
    return written;
}

KvioSSLClientSocket& KvioSSLClientSocket::operator<<(std::string text) {
    Write(reinterpret_cast<const unsigned char*>(text.data()), static_cast<unsigned int>(text.size()));
    return *this;
}

int KvioSSLClientSocket::operator>>(std::string& out) {
    std::array<unsigned char, kExtractLimit> buffer{};
    SocketStatus status = SOCKET_READABLE;
    const int received = Read(buffer.data(), kExtractLimit, kExtractTimeoutMs, status);
    if (received < 1) {
        return received;
    }
    const char* const text = reinterpret_cast<const char*>(buffer.data());
    out.assign(text, strnlen(text, buffer.size()));
    return received;
}

void KvioSSLClientSocket::Reset() {
    if (m_bSSLConnected) {
        CallTls([this] { return SSL_shutdown(m_pSSL); });
    }
    FreeTls();
}

const SSL_METHOD* KvioSSLClientSocket::GetSSLMethod(MethodType type) {
    switch (type) {
        case METHOD_TLSV1:
        case METHOD_SSLV23:
            return TLS_client_method();
        case METHOD_SSLV2:
        case METHOD_SSLV3:
            break;
    }
    return nullptr;
}

void KvioSSLClientSocket::InitializeOpenSSLLibrary() {
    const std::atomic_ref initialized(m_bIsOpenSSLLibraryInitialized);
    if (!initialized.load()) {
        KvOpenSslLibrary::InitializeOnce();
        initialized.store(true);
    }
}

std::string KvioSSLClientSocket::GetSSLErrorString(int result) {
    const int code = m_pSSL == nullptr ? SSL_ERROR_SSL : SSL_get_error(m_pSSL, result);
    std::array<char, kSslTextSize> text{};
    ERR_error_string(static_cast<unsigned long>(code), text.data());
    return std::string(ErrorText(code)) + " Error: " + text.data();
}

void KvioSSLClientSocket::GetSSLErrorStack(std::vector<std::string>& out) {
    while (const unsigned long code = ERR_get_error()) {
        std::array<char, kSslTextSize> text{};
        ERR_error_string_n(code, text.data(), text.size());
        out.emplace_back(text.data());
    }
}

int KvioSSLClientSocket::Callback_PEMPassword_Internal(char* buf, int size, int, void* userData) {
    const auto capacity = static_cast<std::size_t>(size);
    const char* const phrase = userData == nullptr ? "" : static_cast<const char*>(userData);
    const std::size_t length = strnlen(phrase, capacity);
    std::memset(buf, 0, capacity);
    std::memcpy(buf, phrase, length);
    return static_cast<int>(length);
}

int KvioSSLClientSocket::Callback_PeerVerify_AcceptAll(int, X509_STORE_CTX*) {
    return 1;
}

void KvioSSLClientSocket::FreeTls() {
    if (m_bSSLConnected && IsSwitched(m_pSSL)) {
        KvNonBlockingMode::Set(m_socket, false);
    }
    SSL_CTX_free(m_pCtx);
    SSL_free(m_pSSL);
    X509_free(m_pPeerCert);
    m_pMethod = nullptr;
    m_pCtx = nullptr;
    m_pSSL = nullptr;
    m_pPeerCert = nullptr;
    m_bSSLConnected = false;
}

// TLS waits for whole records: a record without data (a session ticket) leaves the read waiting for the next,
// for what is left of the time-out. A server that sends such records without end is read no further when the time is
// over, and does not keep an end signal out; a few that lie there already may stand in front of the data.
int KvioSSLClientSocket::ReceiveTls(unsigned char* buffer, unsigned int size, int timeoutMs,
                                    SocketStatus& status) {
    const auto start = std::chrono::steady_clock::now();
    status = SOCKET_READABLE;
    if (timeoutMs != kNoTimeout) {
        status = static_cast<SocketStatus>(Wait(true, false, timeoutMs));
    }
    int received = -1;
    int late = 0;
    while (status == SOCKET_READABLE) {
        m_tLastActive = std::time(nullptr);
        received = CallTls([&] { return SSL_read(m_pSSL, buffer, static_cast<int>(size)); });
        const short events = AwaitedEvents(received);
        const int timeLeft = TimeLeft(start, timeoutMs);
        if (events == 0 || !AwaitMore(events, timeLeft, status)) {
            break;
        }
        if (timeLeft == 0 && ++late == kLateRecords) {
            status = SOCKET_TIMEOUT;
        }
        KvEndSignals::LetIn();
    }
    return received;
}

int KvioSSLClientSocket::WriteTls(const void* data, std::size_t size, int line) {
    const int written = SendTls(data, size);
    LogSent(data, size, line, kSource);
    return written;
}

int KvioSSLClientSocket::SendTls(const void* data, std::size_t size) {
    int written = 0;
    do {
        written = CallTls([&] { return SSL_write(m_pSSL, data, static_cast<int>(size)); });
    } while (AwaitPeer(AwaitedEvents(written)));
    if (written <= 0 && size != 0) {
        Fail(m_strRemoteAddress, "SSL Write Error");
    }
    return written;
}

// False when the read is over: after an interruption of a read without a time-out `status` stays, because that
// read has failed.
bool KvioSSLClientSocket::AwaitMore(short events, int timeoutMs, SocketStatus& status) {
    const int ready = KvEndSignals::Await(m_socket, events, timeoutMs);
    if (ready <= 0 && timeoutMs != kNoTimeout) {
        status = ready == 0 ? SOCKET_TIMEOUT : SOCKET_ERROR;
    }
    return ready > 0;
}

// A descriptor that the caller has made non-blocking is not waited for.
short KvioSSLClientSocket::AwaitedEvents(int result) {
    if (result > 0 || !IsSwitched(m_pSSL)) {
        return 0;
    }
    switch (SSL_get_error(m_pSSL, result)) {
        case SSL_ERROR_WANT_READ:
            return POLLIN;
        case SSL_ERROR_WANT_WRITE:
            return POLLOUT;
        default:
            return 0;
    }
}

bool KvioSSLClientSocket::AwaitPeer(short events) {
    return events != 0 && KvEndSignals::Await(m_socket, events, kNoTimeout) > 0;
}

void KvioSSLClientSocket::Require(bool ok, const char* message) const {
    if (!ok) {
        Fail(m_strRemoteAddress, message);
    }
}
