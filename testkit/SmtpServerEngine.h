#pragma once

#include <atomic>
#include <list>
#include <mutex>
#include <thread>

#include "Gate.h"
#include "LoopbackSocket.h"
#include "OpenSslHandles.h"
#include "ScriptedSmtpServer.h"
#include "SmtpRecorder.h"
#include "SmtpWire.h"

namespace kvtest {

/// The threads: one that accepts, and one for each connection.
class ScriptedSmtpServer::Engine {
public:
    explicit Engine(const SmtpServerOptions& options);
    ~Engine() { stop(); }
    Engine(const Engine&) = delete;
    Engine& operator=(const Engine&) = delete;

    int port() const { return m_port; }
    SmtpScript& script() { return m_script; }
    const SmtpRecorder& recorder() const { return m_recorder; }

    void cut(int connection, void (ConnectionCut::*how)());
    void stopListening();
    void stop();

private:
    struct Running {
        int number = 0;
        ScopedDescriptor socket;  // until its thread takes it
        ConnectionCut cut;
        std::atomic<bool> done = false;
        std::thread thread;
    };

    void acceptAll();
    ScopedDescriptor accept();
    void start(ScopedDescriptor socket);
    void joinFinished();
    void serve(Running& running);
    ConnectionOver converse(SmtpWire& wire, int number);

    // Constant after construction, or synchronised by themselves.
    const SmtpServerOptions m_options;
    const TlsContext m_tls;
    SmtpScript m_script;
    SmtpRecorder m_recorder;
    Gate m_listeningEnds;

    ScopedDescriptor m_listener;  // the accepting thread's own while it runs
    const int m_port;

    std::mutex m_control;  // one stop at a time; taken before m_connections
    std::thread m_acceptor;

    std::mutex m_connections;
    std::list<Running> m_running;  // guarded by m_connections
};

}  // namespace kvtest
