#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "Counters.h"
#include "Options.h"

namespace kvsink {

/// A mail server for one process: it takes mail over SMTP on a loopback port and stores or counts it. Its
/// connections are served by one thread of its own, in which all signals are blocked.
/// Thread-safe: counters(); the rest is for one thread at a time.
///
///     kvsink::Server server(options);
///     server.start();
///     connectTo(server.port());
///     server.stop();
class Server {
public:
    explicit Server(Options options);
    /// Stops the server.
    ~Server();

    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    /// Binds, prepares certificates and the mail directory, and begins to serve; once only. Throws
    /// StartError, which names the option that is to blame, or std::system_error.
    void start();

    /// Takes no more clients, lets mails that are under way complete for up to 2 s, closes all connections
    /// and waits for the server's thread. Does nothing the second time.
    void stop();

    /// The port as bound. After start() only.
    std::uint16_t port() const;
    /// Address and port as bound, "127.0.0.1:40001". After start() only.
    const std::string& boundAddress() const;

    /// What was received so far.
    Counts counters() const;

private:
    struct Running;

    const Options m_options;
    Counters m_counters;
    std::unique_ptr<Running> m_running;
};

/// Raises this process's soft limit of open descriptors to its hard limit, as far as that is possible.
void raiseDescriptorLimit();

}  // namespace kvsink
