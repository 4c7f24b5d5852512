#include "ProbeWire.h"

#include <openssl/err.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>

#include "ProbeError.h"

namespace kvhost {

namespace {

constexpr std::size_t kMostInput = 65536;  // of one reply

std::string SystemText(int error) {
    return std::generic_category().message(error);
}

[[noreturn]] void ThrowSystem(const std::string& what, int error) {
    throw ProbeError(what + ": " + SystemText(error));
}

bool IsNothingYet(int error) {
    return error == EAGAIN || error == EWOULDBLOCK || error == EINTR;
}

}  // namespace

std::string TakeTlsReason() {
    const char* reason = nullptr;
    while (const unsigned long error = ERR_get_error()) {
        reason = ERR_reason_error_string(error);
    }
    return reason == nullptr ? "unknown reason" : reason;
}

ProbeWire::~ProbeWire() {
    if (m_nSocket >= 0) {
        ::close(m_nSocket);
    }
}

void ProbeWire::Connect(const sockaddr_in& address) {
    BeginStep();
    m_nSocket = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (m_nSocket < 0) {
        ThrowSystem("no socket", errno);
    }
    if (::connect(m_nSocket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0) {
        return;
    }
    if (errno != EINPROGRESS && errno != EINTR) {
        ThrowSystem("no connection", errno);
    }
    Wait(POLLOUT);
    int error = 0;
    socklen_t size = sizeof(error);
    ::getsockopt(m_nSocket, SOL_SOCKET, SO_ERROR, &error, &size);
    if (error != 0) {
        ThrowSystem("no connection", error);
    }
}

void ProbeWire::Wait(short events) const {
    for (;;) {
        const auto rest = std::chrono::ceil<Milliseconds>(m_timeEnd - Clock::now()).count();
        pollfd wait{m_nSocket, events, 0};
        const int ready =
            ::poll(&wait, 1, static_cast<int>(std::clamp<Milliseconds::rep>(rest, 0, 86400000)));
        if (ready > 0) {
            return;
        }
        if (ready == 0) {
            throw ProbeError("no answer within " + DurationText(m_limit));
        }
        if (errno != EINTR) {
            ThrowSystem("the connection failed", errno);
        }
    }
}

std::size_t ProbeWire::Receive(char* buffer, std::size_t size) const {
    for (;;) {
        Wait(POLLIN);
        const ssize_t count = ::recv(m_nSocket, buffer, size, 0);
        if (count > 0) {
            return static_cast<std::size_t>(count);
        }
        if (count == 0) {
            throw ProbeError("the server closed the connection");
        }
        if (!IsNothingYet(errno)) {
            ThrowSystem("the connection broke off", errno);
        }
    }
}

void ProbeWire::SendAll(std::string_view bytes) const {
    while (!bytes.empty()) {
        const ssize_t count = ::send(m_nSocket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (count >= 0) {
            bytes.remove_prefix(static_cast<std::size_t>(count));
        } else if (IsNothingYet(errno)) {
            Wait(POLLOUT);
        } else {
            ThrowSystem("the connection broke off", errno);
        }
    }
}

void ProbeWire::Send(std::string_view bytes) {
    BeginStep();
    if (m_tls == nullptr) {
        SendAll(bytes);
    } else {
        RunTls([&] { return SSL_write(m_tls.get(), bytes.data(), static_cast<int>(bytes.size())); });
    }
}

std::string ProbeWire::ReadSome() {
    std::array<char, 4096> buffer{};
    if (m_tls == nullptr) {
        return {buffer.data(), Receive(buffer.data(), buffer.size())};
    }
    const int count =
        RunTls([&] { return SSL_read(m_tls.get(), buffer.data(), static_cast<int>(buffer.size())); });
    return {buffer.data(), static_cast<std::size_t>(count)};
}

ProbeReply ProbeWire::ReadReply() {
    BeginStep();
    for (int pieces = 0;; ++pieces) {
        if (auto reply = TakeReply(m_strInput)) {
            reply->pieces = pieces;
            return *reply;
        }
        if (m_strInput.size() > kMostInput) {
            throw ProbeError("the server sends a reply without end");
        }
        m_strInput += ReadSome();
    }
}

void ProbeWire::StartTls(SSL_CTX& settings) {
    BeginStep();
    if (!m_strInput.empty()) {
        throw ProbeError("the server sent more than its reply before TLS");
    }
    m_tls.reset(SSL_new(&settings));
    BIO* const input = BIO_new(BIO_s_mem());
    BIO* const output = BIO_new(BIO_s_mem());
    SSL_set_bio(m_tls.get(), input, output);  // owns both from here on
    RunTls([this] { return SSL_connect(m_tls.get()); });
}

/// Carries the bytes between OpenSSL's memory and the socket until the call has succeeded.
int ProbeWire::RunTls(const std::function<int()>& call) {
    for (;;) {
        ERR_clear_error();
        const int result = call();
        const int error = SSL_get_error(m_tls.get(), result);
        const std::string reason = error == SSL_ERROR_SSL ? TakeTlsReason() : "";
        FlushTls();
        if (result > 0) {
            return result;
        }
        if (error == SSL_ERROR_ZERO_RETURN) {
            throw ProbeError("the server closed the connection");
        }
        if (error != SSL_ERROR_WANT_READ) {
            throw ProbeError("TLS failed: " + reason);
        }
        FeedTls();
    }
}

void ProbeWire::FlushTls() const {
    std::array<char, 4096> buffer{};
    for (;;) {
        const int count = BIO_read(SSL_get_wbio(m_tls.get()), buffer.data(), static_cast<int>(buffer.size()));
        if (count <= 0) {
            return;
        }
        SendAll({buffer.data(), static_cast<std::size_t>(count)});
    }
}

void ProbeWire::FeedTls() const {
    std::array<char, 4096> buffer{};
    const std::size_t count = Receive(buffer.data(), buffer.size());
    BIO_write(SSL_get_rbio(m_tls.get()), buffer.data(), static_cast<int>(count));
}

}  // namespace kvhost
