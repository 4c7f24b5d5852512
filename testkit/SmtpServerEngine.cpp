#include "SmtpServerEngine.h"

#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <exception>
#include <utility>

#include "SignalFreeThread.h"
#include "SmtpSession.h"

namespace kvtest {

ScriptedSmtpServer::Engine::Engine(const SmtpServerOptions& options)
    : m_options(options),
      m_tls(options.tls ? MakeServerContext(*options.tls) : nullptr),
      m_listener(BoundSocket(options.port, SOCK_NONBLOCK)),
      m_port(PortOf(m_listener)) {
    Listen(m_listener, SOMAXCONN);
    m_acceptor = StartSignalFreeThread([this] { acceptAll(); });
}

void ScriptedSmtpServer::Engine::acceptAll() {
    while (!m_listeningEnds.isOpen()) {
        ScopedDescriptor socket = accept();
        if (socket.valid()) {
            joinFinished();
            start(std::move(socket));
        }
    }
    m_listener.reset();
}

ScopedDescriptor ScriptedSmtpServer::Engine::accept() {
    ScopedDescriptor socket(accept4(m_listener.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
    if (!socket.valid()) {
        // With no descriptor left the listener stays readable: look again a little later.
        const bool nobody = errno == EAGAIN || errno == EWOULDBLOCK;
        pollfd watched[] = {{m_listeningEnds.descriptor(), POLLIN, 0},
                            {nobody ? m_listener.get() : -1, POLLIN, 0}};
        poll(watched, 2, nobody ? -1 : 10);
    }
    return socket;
}

void ScriptedSmtpServer::Engine::start(ScopedDescriptor socket) {
    const std::lock_guard lock(m_connections);
    Running& running = m_running.emplace_back();
    running.number = m_recorder.change([](SmtpRecorder::State& state) {
        const int number = static_cast<int>(state.connections.size()) + 1;
        state.connections.emplace_back().number = number;
        ++state.open;
        return number;
    });
    SendAtOnce(socket);
    running.socket = std::move(socket);
    running.thread = StartSignalFreeThread([this, &running] { serve(running); });
}

void ScriptedSmtpServer::Engine::joinFinished() {
    const std::lock_guard lock(m_connections);
    m_running.remove_if([](Running& running) {
        if (!running.done) {
            return false;
        }
        running.thread.join();
        return true;
    });
}

void ScriptedSmtpServer::Engine::serve(Running& running) {
    SmtpWire wire(std::move(running.socket), running.number, m_recorder, running.cut);
    const ConnectionOver over = converse(wire, running.number);
    wire.finish(over);
    m_recorder.change([&](SmtpRecorder::State& state) {
        state.connection(running.number).end = over.end;
        state.abandonTransactionsOf(running.number);
        --state.open;
    });
    running.done = true;
}

ConnectionOver ScriptedSmtpServer::Engine::converse(SmtpWire& wire, int number) {
    try {
        SmtpSession(wire, number, m_options, m_tls.get(), m_script, m_recorder).run();
    } catch (const ConnectionOver& over) {
        return over;
    } catch (const std::exception& error) {
        m_recorder.change(
            [&](SmtpRecorder::State& state) { state.connection(number).scriptError = error.what(); });
        return {ConnectionEnd::ScriptFailed, Then::Close};
    }
}

void ScriptedSmtpServer::Engine::cut(int connection, void (ConnectionCut::*how)()) {
    const std::lock_guard lock(m_connections);
    for (Running& running : m_running) {
        if (connection == 0 || running.number == connection) {
            (running.cut.*how)();
        }
    }
}

void ScriptedSmtpServer::Engine::stopListening() {
    const std::lock_guard control(m_control);
    m_listeningEnds.open();
    if (m_acceptor.joinable()) {
        m_acceptor.join();
    }
}

void ScriptedSmtpServer::Engine::stop() {
    stopListening();
    const std::lock_guard control(m_control);
    cut(0, &ConnectionCut::stop);
    // The accepting thread is gone: nobody adds to the list any more.
    const std::lock_guard lock(m_connections);
    for (Running& running : m_running) {
        running.thread.join();
    }
    m_running.clear();
}

}  // namespace kvtest
