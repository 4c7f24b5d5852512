#include "Connection.h"

#include <sys/epoll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>

namespace kvsink {
namespace {

// No more commands are taken while this much output waits for the peer.
const std::size_t HIGH_WATER = std::size_t{64} * 1024;
const std::chrono::seconds LINGER(2);

}  // namespace

Connection::Connection(FileDescriptor socket, const Service& service, std::string clientAddress)
    : m_socket(std::move(socket)), m_service(service), m_session(service, std::move(clientAddress)) {}

void Connection::onAccepted(TimePoint now) {
    m_expiry = now + m_service.options.idleTimeout;
    m_session.greet(m_reply);
    settleReplies(now);
}

void Connection::onReadable(TimePoint now, char* buffer, std::size_t size) {
    const ssize_t length = ::recv(fd(), buffer, size, 0);
    if (length < 0) {
        if (errno != EAGAIN && errno != EINTR) {
            onBroken();
        }
    } else if (length == 0) {
        m_peerClosed = true;
        m_phase == Phase::talking ? drain(now) : onBroken();
    } else if (m_phase == Phase::talking) {
        m_expiry = now + m_service.options.idleTimeout;
        takeInput({buffer, static_cast<std::size_t>(length)}, now);
    }
}

void Connection::onWritable(TimePoint now) {
    flush(now);
    if (m_phase == Phase::talking) {
        advance(now);
    }
}

void Connection::onTimer(TimePoint now) {
    if (m_holding && now >= m_releaseAt) {
        release(now);
        advance(now);
    }
    if (now >= m_expiry) {
        expire(now);
    }
}

void Connection::onStopping(TimePoint now) {
    m_stopping = true;
    if (m_phase == Phase::lingering) {
        onBroken();
    } else if (m_phase == Phase::talking) {
        release(now);
        advance(now);
    }
}

std::uint32_t Connection::interest() const {
    const bool reads = m_phase == Phase::lingering || canTakeCommand();
    return (reads ? EPOLLIN : 0U) | (unsent() > 0 ? EPOLLOUT : 0U);
}

void Connection::takeInput(std::string_view bytes, TimePoint now) {
    if (m_tls == nullptr) {
        m_in.append(bytes);
        return advance(now);
    }
    const TlsFilter::Status status = m_tls->receive(bytes, m_in);
    m_tls->takeOutput(m_out);
    advance(now);
    if (status != TlsFilter::Status::open && m_phase == Phase::talking) {
        drain(now);
    }
}

/// Handles what input there is, until more is needed or output has to wait.
void Connection::advance(TimePoint now) {
    std::size_t taken = 0;
    do {
        taken = canTakeCommand() ? takeCommands() : 0;
        settleReplies(now);
    } while (taken > 0 && canTakeCommand());
}

bool Connection::canTakeCommand() const {
    return m_phase == Phase::talking && !m_holding && unsent() < HIGH_WATER;
}

/// Returns how much input it took.
std::size_t Connection::takeCommands() {
    const std::string_view input = m_in;
    const bool oneByOne = m_service.options.replyDelay.count() > 0 && !m_stopping;
    std::size_t taken = 0;
    while (taken < input.size() && !m_session.ended() && m_reply.size() < HIGH_WATER) {
        const std::size_t length = m_session.consume(input.substr(taken), m_reply);
        taken += length;
        if (length == 0 || m_session.tlsRequested() || (oneByOne && !m_reply.empty())) {
            break;
        }
    }
    m_in.erase(0, taken);
    return taken;
}

/// Sends the replies that there are, or holds them back if that is asked for.
void Connection::settleReplies(TimePoint now) {
    const auto delay = m_service.options.replyDelay;
    if (m_holding) {
        return;
    }
    if (delay.count() == 0 || m_stopping || m_reply.empty()) {
        return release(now);
    }
    m_holding = true;
    m_releaseAt = now + delay;
    m_expiry = m_releaseAt + m_service.options.idleTimeout;
}

void Connection::release(TimePoint now) {
    m_holding = false;
    if (m_stopping && !m_session.mailUnderWay() && !m_session.ended()) {
        m_session.dismiss(true, m_reply);
    }
    emit();
    if (m_session.tlsRequested()) {
        startTls();
    }
    if (m_session.ended()) {
        drain(now);
    } else {
        flush(now);
    }
}

void Connection::emit() {
    if (m_tls == nullptr) {
        m_out.append(m_reply);
    } else {
        m_tls->send(m_reply);
        m_tls->takeOutput(m_out);
    }
    m_reply.clear();
}

/// What was sent in clear behind STARTTLS is never obeyed (RFC 3207 section 6): it is dropped.
void Connection::startTls() {
    m_in.clear();
    m_tls = std::make_unique<TlsFilter>(*m_service.tls);
    m_session.tlsStarted();
}

/// An idle client is told so; one that does not even take that, or does not close, is dropped.
void Connection::expire(TimePoint now) {
    if (m_phase != Phase::talking) {
        return onBroken();
    }
    m_session.dismiss(false, m_reply);
    release(now);
}

void Connection::drain(TimePoint now) {
    if (m_phase != Phase::talking) {
        return;
    }
    m_phase = Phase::draining;
    m_expiry = now + LINGER;
    if (m_tls != nullptr) {
        m_tls->close();
        m_tls->takeOutput(m_out);
    }
    flush(now);
}

void Connection::flush(TimePoint now) {
    if (unsent() > 0) {
        const ssize_t length = ::send(fd(), m_out.data() + m_sent, unsent(), MSG_NOSIGNAL);
        if (length < 0 && errno != EAGAIN && errno != EINTR) {
            return onBroken();
        }
        if (length > 0 && m_phase == Phase::talking) {
            m_expiry = std::max(m_expiry, now + m_service.options.idleTimeout);
        }
        m_sent += static_cast<std::size_t>(std::max<ssize_t>(length, 0));
    }
    if (unsent() == 0) {
        m_out.clear();
        m_sent = 0;
        finishDraining();
    }
}

void Connection::finishDraining() {
    if (m_phase != Phase::draining) {
        return;
    }
    const bool nothingToWaitFor = m_peerClosed || m_stopping;
    if (nothingToWaitFor || ::shutdown(fd(), SHUT_WR) != 0) {
        return onBroken();
    }
    m_phase = Phase::lingering;
}

}  // namespace kvsink
