#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "HostConfig.h"
#include "Metrics.h"
#include "StatusReport.h"

namespace httplib {
class Server;
}

namespace kvhost {

/// Shows the daemon over HTTP/1.1, from its construction to its destruction: /metrics, /healthz, /readyz, /status.json and
/// the status page at /. Requests are answered on a few threads of its own, on which every signal is blocked. Each
/// connection serves one request.
///
/// At a loopback address only requests that ask for a loopback name are answered: a page of another site that has its
/// name resolve to this machine gets nothing.
class WebServer {
public:
    /// Adds routes to the server before it listens. They run on its threads.
    using MoreRoutes = std::function<void(httplib::Server&)>;

    struct Parts {
        Metrics& metrics;
        const StatusReporter& status;
        std::function<void(const std::string&)> warn;  ///< told what goes wrong in a request; any thread
        MoreRoutes moreRoutes;                         ///< may be empty
    };

    /// Listens when it returns. The parts outlive the server. Throws BadInput when the address cannot be had.
    WebServer(const HttpSettings& settings, const Parts& parts);
    /// Ends what is under way: at most as long as a request may be silent (5 s).
    ~WebServer();
    WebServer(const WebServer&) = delete;
    WebServer& operator=(const WebServer&) = delete;

    int Port() const { return m_nPort; }

private:
    void SetLimits(const HttpSettings& settings);
    void SetGuards(const HttpSettings& settings);
    void AddPages();
    void AddPage(const std::string& path, const std::string& type, const std::function<std::string()>& text);
    void AddHealth(const std::string& path, bool Health::*isFine);
    void RefuseOtherMethods(const std::string& path);
    void Bind(const HttpSettings& settings);
    void Listen();

    const Parts m_parts;
    const std::unique_ptr<httplib::Server> m_pServer;
    int m_nPort = 0;
    int m_nListener = -1;                 ///< owned by the server
    std::atomic<bool> m_hasEnded{false};  ///< the thread no longer listens
    std::thread m_thread;
};

}  // namespace kvhost
