#include "SmtpWire.h"

#include <openssl/err.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <stdexcept>

#include "LoopbackSocket.h"

namespace kvtest {

namespace {

constexpr int Forever = -1;

bool WouldBlock() {
    return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR;
}

std::string SubjectOf(X509* certificate) {
    char text[256];
    return X509_NAME_oneline(X509_get_subject_name(certificate), text, sizeof text);
}

}  // namespace

ConnectionOver ConnectionCut::over() const {
    const ConnectionEnd end = m_end.load();
    return {end, end == ConnectionEnd::ServerReset ? Then::Reset : Then::Close};
}

void ConnectionCut::cut(ConnectionEnd end) {
    ConnectionEnd none = ConnectionEnd::Open;
    m_end.compare_exchange_strong(none, end);
    m_gate.open();
}

SmtpWire::SmtpWire(ScopedDescriptor socket, int connection, SmtpRecorder& recorder, const ConnectionCut& cut)
    : m_socket(std::move(socket)), m_connection(connection), m_recorder(recorder), m_cut(cut) {}

std::string SmtpWire::receive() {
    obeyLimit();
    char buffer[16384];
    const std::size_t most = m_limit ? std::min(sizeof buffer, m_limit->bytes - m_received) : sizeof buffer;
    ssize_t count = 0;
    while (count == 0) {
        wait(-1, 0, 0);
        count = m_ssl ? tryReceiveTls(buffer, most) : tryReceive(buffer, most);
    }
    std::string bytes(buffer, static_cast<std::size_t>(count));
    m_received += bytes.size();
    record(Direction::FromClient, bytes);
    return bytes;
}

ssize_t SmtpWire::tryReceive(char* buffer, std::size_t size) {
    const ssize_t count = recv(m_socket.get(), buffer, size, 0);
    if (count == 0) {
        throw ConnectionOver{ConnectionEnd::ClientClosed, Then::Close};
    }
    if (count < 0 && !WouldBlock()) {
        throw ConnectionOver{ConnectionEnd::ClientReset, Then::Close};
    }
    if (count < 0) {
        wait(m_socket.get(), POLLIN, Forever);
    }
    return std::max<ssize_t>(count, 0);
}

ssize_t SmtpWire::tryReceiveTls(char* buffer, std::size_t size) {
    ERR_clear_error();
    const int count = SSL_read(m_ssl.get(), buffer, static_cast<int>(size));
    if (count <= 0) {
        afterTls(count);
        return 0;
    }
    return count;
}

void SmtpWire::send(const std::string& bytes) {
    record(Direction::FromServer, bytes);
    std::size_t sent = 0;
    while (sent < bytes.size()) {
        wait(-1, 0, 0);
        const char* rest = bytes.data() + sent;
        sent += m_ssl ? trySendTls(rest, bytes.size() - sent) : trySend(rest, bytes.size() - sent);
    }
}

std::size_t SmtpWire::trySend(const char* bytes, std::size_t size) {
    const ssize_t count = ::send(m_socket.get(), bytes, size, MSG_NOSIGNAL);
    if (count < 0 && !WouldBlock()) {
        throw ConnectionOver{ConnectionEnd::ClientReset, Then::Close};
    }
    if (count < 0) {
        wait(m_socket.get(), POLLOUT, Forever);
    }
    return static_cast<std::size_t>(std::max<ssize_t>(count, 0));
}

std::size_t SmtpWire::trySendTls(const char* bytes, std::size_t size) {
    ERR_clear_error();
    const int count = SSL_write(m_ssl.get(), bytes, static_cast<int>(size));
    if (count <= 0) {
        afterTls(count);
        return 0;
    }
    return static_cast<std::size_t>(count);
}

void SmtpWire::startTls(SSL_CTX* context) {
    if (context == nullptr) {
        throw std::runtime_error("STARTTLS is scripted, but the server has no certificate");
    }
    m_ssl.reset(SSL_new(context));
    SSL_set_fd(m_ssl.get(), m_socket.get());
    int result = 0;
    while (result <= 0) {
        wait(-1, 0, 0);
        ERR_clear_error();
        result = SSL_accept(m_ssl.get());
        if (result <= 0) {
            afterTls(result);
        }
    }
    recordHandshake();
}

void SmtpWire::afterTls(int result) {
    const int systemError = errno;
    const int error = SSL_get_error(m_ssl.get(), result);
    if (error == SSL_ERROR_WANT_READ || error == SSL_ERROR_WANT_WRITE) {
        wait(m_socket.get(), error == SSL_ERROR_WANT_READ ? POLLIN : POLLOUT, Forever);
        return;
    }
    const bool unexpectedEof = ERR_GET_REASON(ERR_peek_last_error()) == SSL_R_UNEXPECTED_EOF_WHILE_READING;
    const std::string reason = TakeTlsError();
    if (error == SSL_ERROR_ZERO_RETURN) {
        m_recorder.change([&](auto& state) { state.connection(m_connection).closeNotified = true; });
        throw ConnectionOver{ConnectionEnd::ClientClosed, Then::Close};
    }
    const bool duringHandshake = !SSL_is_init_finished(m_ssl.get());
    if (error == SSL_ERROR_SSL && (duringHandshake || !unexpectedEof)) {
        m_recorder.change([&](auto& state) { state.connection(m_connection).tlsError = reason; });
        throw ConnectionOver{ConnectionEnd::TlsFailed, Then::CloseAbruptly};
    }
    const bool reset = error == SSL_ERROR_SYSCALL && systemError != 0;
    throw ConnectionOver{reset ? ConnectionEnd::ClientReset : ConnectionEnd::ClientClosed,
                         Then::CloseAbruptly};
}

void SmtpWire::recordHandshake() {
    X509* certificate = SSL_get1_peer_certificate(m_ssl.get());
    const std::string subject = certificate == nullptr ? "" : SubjectOf(certificate);
    X509_free(certificate);
    m_recorder.change([&](auto& state) {
        ConnectionRecord& connection = state.connection(m_connection);
        connection.tls = true;
        connection.tlsVersion = SSL_get_version(m_ssl.get());
        connection.clientCertificate = subject;
    });
}

void SmtpWire::obeyLimit() {
    if (m_limit && m_received >= m_limit->bytes) {
        endWith(m_limit->then);
    }
}

void SmtpWire::pause(std::chrono::milliseconds time) {
    if (time.count() > 0) {
        wait(-1, 0, static_cast<int>(time.count()));
    }
}

void SmtpWire::waitFor(const Gate& gate) {
    wait(gate.descriptor(), POLLIN, Forever);
}

void SmtpWire::stall() {
    const short left = wait(m_socket.get(), POLLRDHUP, Forever);
    throw ConnectionOver{(left & POLLERR) != 0 ? ConnectionEnd::ClientReset : ConnectionEnd::ClientClosed,
                         Then::CloseAbruptly};
}

void SmtpWire::halfClose() {
    m_limit.reset();
    shutdown(m_socket.get(), SHUT_WR);
    for (;;) {
        receive();
    }
}

void SmtpWire::endWith(Then action) {
    if (action == Then::HalfClose) {
        halfClose();
    }
    if (action == Then::Vanish) {
        DropWhatComes(m_socket);
        m_recorder.change([&](auto& state) { state.connection(m_connection).vanished = true; });
    }
    if (action == Then::Stall || action == Then::Vanish) {
        stall();
    }
    throw ConnectionOver{action == Then::Reset ? ConnectionEnd::ServerReset : ConnectionEnd::ServerClosed,
                         action};
}

void SmtpWire::finish(const ConnectionOver& over) {
    if (m_ssl && over.then == Then::Close) {
        SSL_shutdown(m_ssl.get());
        ERR_clear_error();
    }
    m_ssl.reset();
    if (over.then == Then::Reset) {
        CloseWithReset(m_socket);
    } else {
        CloseWithFin(m_socket);
    }
}

void SmtpWire::record(Direction direction, const std::string& bytes) {
    m_recorder.change([&](auto& state) {
        state.connection(m_connection).chunks.push_back({direction, bytes, insideTls()});
    });
}

short SmtpWire::wait(int descriptor, short events, int timeoutMs) {
    pollfd watched[] = {{m_cut.descriptor(), POLLIN, 0}, {descriptor, events, 0}};
    // A negative descriptor is passed over by poll().
    poll(watched, 2, timeoutMs);
    if (watched[0].revents != 0) {
        throw m_cut.over();
    }
    return watched[1].revents;
}

}  // namespace kvtest
