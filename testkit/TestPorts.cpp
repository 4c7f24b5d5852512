#include "TestPorts.h"

#include <poll.h>
#include <sys/socket.h>

#include "LoopbackSocket.h"
#include "ScriptedSmtpServer.h"

namespace kvtest {

namespace {

std::string AddressOf(int port) {
    return "127.0.0.1:" + std::to_string(port);
}

/// Whether a connect that was begun is still without an answer after a moment.
bool GoesUnanswered(const ScopedDescriptor& socket) {
    pollfd watched{socket.get(), POLLOUT, 0};
    return poll(&watched, 1, 100) == 0;
}

}  // namespace

int FreePort() {
    return PortOf(BoundSocket(0));
}

// SO_REUSEADDR lets somebody else bind the port as long as nobody listens on it, yet port 0 is never given
// the port of a socket that is bound.
RefusingPort::RefusingPort() : m_socket(BoundSocket(0)), m_port(PortOf(m_socket)) {}

std::string RefusingPort::address() const {
    return AddressOf(m_port);
}

SilentListener::SilentListener() : m_server(std::make_unique<ScriptedSmtpServer>()) {
    m_server->on(step::Greeting).reply(Reply().thenStall());
}

SilentListener::~SilentListener() = default;

int SilentListener::port() const {
    return m_server->port();
}

std::string SilentListener::address() const {
    return m_server->address();
}

bool SilentListener::waitForConnections(int n) const {
    return m_server->waitForConnections(n);
}

int SilentListener::openConnections() const {
    return m_server->openConnections();
}

UnansweringPort::UnansweringPort(int port) : m_listener(BoundSocket(port)), m_port(PortOf(m_listener)) {
    Listen(m_listener, 0);
    do {
        m_queued.push_back(ConnectingSocket(m_port, SOCK_NONBLOCK));
    } while (!GoesUnanswered(m_queued.back()));
}

std::string UnansweringPort::address() const {
    return AddressOf(m_port);
}

}  // namespace kvtest
