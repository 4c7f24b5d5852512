#include "PlainSmtpClient.h"

#include <openssl/err.h>
#include <openssl/x509v3.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <ctime>

#include "LoopbackSocket.h"

namespace kvtest {

namespace {

constexpr std::chrono::milliseconds Bound{10000};

/// Where the reply at the beginning ends; npos when it is not complete (RFC 5321 4.2.1).
std::size_t EndOfReply(const std::string& bytes) {
    std::size_t begin = 0;
    for (;;) {
        const std::size_t end = bytes.find('\n', begin);
        if (end == std::string::npos) {
            return end;
        }
        const bool goesOn = end - begin > 3 && bytes[begin + 3] == '-';
        begin = end + 1;
        if (!goesOn) {
            return begin;
        }
    }
}

/// OpenSSL writes without MSG_NOSIGNAL: keeps SIGPIPE from the calling thread, and takes back one that is
/// due.
class NoBrokenPipeSignal {
public:
    NoBrokenPipeSignal() {
        sigemptyset(&m_brokenPipe);
        sigaddset(&m_brokenPipe, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &m_brokenPipe, &m_before);
    }
    ~NoBrokenPipeSignal() {
        const timespec atOnce{};
        sigtimedwait(&m_brokenPipe, nullptr, &atOnce);
        pthread_sigmask(SIG_SETMASK, &m_before, nullptr);
    }
    NoBrokenPipeSignal(const NoBrokenPipeSignal&) = delete;
    NoBrokenPipeSignal& operator=(const NoBrokenPipeSignal&) = delete;

private:
    sigset_t m_brokenPipe;
    sigset_t m_before;
};

std::string TakeFront(std::string& bytes, std::size_t count) {
    std::string front = bytes.substr(0, count);
    bytes.erase(0, front.size());
    return front;
}

}  // namespace

PlainSmtpClient::PlainSmtpClient(int port) : m_socket(ConnectingSocket(port)) {
    SendAtOnce(m_socket);
}

PlainSmtpClient::~PlainSmtpClient() = default;

bool PlainSmtpClient::send(const std::string& bytes) {
    if (bytes.empty() || !m_socket.valid()) {
        return bytes.empty();
    }
    if (m_ssl) {
        const NoBrokenPipeSignal guard;
        ERR_clear_error();
        return SSL_write(m_ssl.get(), bytes.data(), static_cast<int>(bytes.size())) > 0;
    }
    std::size_t sent = 0;
    while (sent < bytes.size()) {
        const ssize_t count = ::send(m_socket.get(), bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (count < 0) {
            return false;
        }
        sent += static_cast<std::size_t>(count);
    }
    return true;
}

std::string PlainSmtpClient::command(const std::string& line) {
    send(line + "\r\n");
    return readReply();
}

std::string PlainSmtpClient::readReply() {
    while (EndOfReply(m_pending) == std::string::npos) {
        const std::string more = receive();
        if (more.empty()) {
            break;
        }
        m_pending += more;
    }
    return TakeFront(m_pending, EndOfReply(m_pending));
}

std::string PlainSmtpClient::readSome() {
    return m_pending.empty() ? receive() : TakeFront(m_pending, m_pending.size());
}

std::string PlainSmtpClient::readExactly(std::size_t count) {
    std::string more = "-";
    while (m_pending.size() < count && !more.empty()) {
        more = receive();
        m_pending += more;
    }
    return TakeFront(m_pending, count);
}

std::string PlainSmtpClient::readToEnd() {
    for (std::string more = receive(); !more.empty(); more = receive()) {
        m_pending += more;
    }
    return TakeFront(m_pending, m_pending.size());
}

bool PlainSmtpClient::staysSilentFor(std::chrono::milliseconds time) {
    return m_pending.empty() && !waitFor(POLLIN, time);
}

PlainSmtpClient::End PlainSmtpClient::waitForEnd() {
    while (!receive().empty()) {
    }
    return m_end;
}

std::string PlainSmtpClient::receive() {
    char buffer[65536];
    if (m_end != End::StillOpen || !waitFor(POLLIN, Bound)) {
        return "";
    }
    ssize_t count = 0;
    if (m_ssl) {
        ERR_clear_error();
        count = SSL_read(m_ssl.get(), buffer, sizeof buffer);
    } else {
        count = recv(m_socket.get(), buffer, sizeof buffer, 0);
    }
    if (count <= 0) {
        noteEnd(static_cast<int>(count));
    }
    return std::string(buffer, static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
}

void PlainSmtpClient::noteEnd(int result) {
    const int systemError = errno;
    if (!m_ssl) {
        m_end = result == 0 ? End::Closed : End::Reset;
        return;
    }
    const int error = SSL_get_error(m_ssl.get(), result);
    m_closeNotified = error == SSL_ERROR_ZERO_RETURN;
    m_end = error == SSL_ERROR_SYSCALL && systemError == ECONNRESET ? End::Reset : End::Closed;
}

bool PlainSmtpClient::waitFor(short events, std::chrono::milliseconds bound) const {
    if (!m_socket.valid()) {
        return false;
    }
    if (m_ssl && SSL_pending(m_ssl.get()) > 0) {
        return true;
    }
    pollfd watched{m_socket.get(), events, 0};
    return poll(&watched, 1, static_cast<int>(bound.count())) == 1;
}

std::string PlainSmtpClient::startTls(const std::string& caFile, const std::string& certFile,
                                      const std::string& keyFile) {
    m_context.reset(SSL_CTX_new(TLS_client_method()));
    SSL_CTX_set_mode(m_context.get(), SSL_MODE_AUTO_RETRY);
    SSL_CTX_set_verify(m_context.get(), SSL_VERIFY_PEER, nullptr);
    if (SSL_CTX_load_verify_file(m_context.get(), caFile.c_str()) != 1) {
        return "CA file: " + TakeTlsError();
    }
    if (!certFile.empty()) {
        SSL_CTX_use_certificate_file(m_context.get(), certFile.c_str(), SSL_FILETYPE_PEM);
        SSL_CTX_use_PrivateKey_file(m_context.get(), keyFile.c_str(), SSL_FILETYPE_PEM);
    }
    TlsConnection ssl(SSL_new(m_context.get()));
    SSL_set1_host(ssl.get(), "localhost");
    SSL_set_fd(ssl.get(), m_socket.get());
    const std::string failure = handshake(ssl.get());
    if (failure.empty()) {
        m_ssl = std::move(ssl);
    }
    return failure;
}

std::string PlainSmtpClient::handshake(SSL* ssl) const {
    const NoBrokenPipeSignal guard;
    ERR_clear_error();
    const timeval bound{Bound.count() / 1000, 0};
    setsockopt(m_socket.get(), SOL_SOCKET, SO_RCVTIMEO, &bound, sizeof bound);
    if (SSL_connect(ssl) == 1) {
        return "";
    }
    const long verification = SSL_get_verify_result(ssl);
    const std::string reason = TakeTlsError();
    if (verification != X509_V_OK) {
        return X509_verify_cert_error_string(verification);
    }
    return reason.empty() ? "the connection ended" : reason;
}

std::string PlainSmtpClient::tlsVersion() const {
    return m_ssl ? SSL_get_version(m_ssl.get()) : "";
}

void PlainSmtpClient::close() {
    if (m_ssl) {
        const NoBrokenPipeSignal guard;
        SSL_shutdown(m_ssl.get());
        ERR_clear_error();
    }
    m_ssl.reset();
    CloseWithFin(m_socket);
}

void PlainSmtpClient::reset() {
    m_ssl.reset();
    CloseWithReset(m_socket);
}

}  // namespace kvtest
