#include "WebServer.h"

#include <httplib.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <set>

#include "BlockedSignals.h"
#include "BoundedTasks.h"
#include "LoopbackName.h"
#include "Problem.h"
#include "StatusAssets.h"
#include "StatusJson.h"
#include "StatusPage.h"

namespace kvhost {

namespace {

using httplib::Request;
using httplib::Response;
using Handled = httplib::Server::HandlerResponse;

constexpr std::size_t kThreads = 4;
constexpr std::size_t kWaiting = 64;  ///< connections that wait for a thread; further ones wait in the system
constexpr int kBacklog = 128;
constexpr time_t kSilenceSeconds = 5;
constexpr const char* kText = "text/plain; charset=utf-8";
constexpr const char* kHtml = "text/html; charset=utf-8";
constexpr const char* kMetrics = "text/plain; version=0.0.4; charset=utf-8";

const std::set<std::string> kMethods = {"GET", "HEAD", "POST", "PUT", "PATCH", "DELETE", "OPTIONS"};

httplib::Headers SafeHeaders() {
    return {{"Cache-Control", "no-store"},
            {"Content-Security-Policy",
             "default-src 'none'; script-src 'self'; style-src 'self'; connect-src 'self'; img-src data:; "
             "base-uri 'none'; form-action 'none'; frame-ancestors 'none'"},
            {"Cross-Origin-Resource-Policy", "same-origin"},
            {"Referrer-Policy", "no-referrer"},
            {"X-Content-Type-Options", "nosniff"},
            {"X-Frame-Options", "DENY"}};
}

bool AsksForLoopback(const Request& request) {
    for (std::size_t i = 0; i < request.get_header_value_count("Host"); ++i) {
        if (!IsLoopback(HostOf(request.get_header_value("Host", i)))) {
            return false;
        }
    }
    return true;
}

void Refuse(Response& response, int status, const std::string& text) {
    response.status = status;
    response.set_content(text + "\n", kText);
}

void RefuseMethod(Response& response) {
    Refuse(response, 405, "This address answers GET and HEAD only.");
    response.set_header("Allow", "GET, HEAD");
}

}  // namespace

WebServer::WebServer(const HttpSettings& settings, const Parts& parts)
    : m_parts(parts), m_pServer(std::make_unique<httplib::Server>()) {
    SetLimits(settings);
    SetGuards(settings);
    AddPages();
    if (m_parts.moreRoutes) {
        m_parts.moreRoutes(*m_pServer);
    }
    Bind(settings);
    Listen();
}

WebServer::~WebServer() {
    m_pServer->stop();
    m_thread.join();
}

void WebServer::SetLimits(const HttpSettings& settings) {
    m_pServer->set_read_timeout(kSilenceSeconds);
    m_pServer->set_write_timeout(kSilenceSeconds);
    m_pServer->set_keep_alive_timeout(kSilenceSeconds);
    // One request for each connection: a body that is refused unread cannot be taken for the next request.
    m_pServer->set_keep_alive_max_count(1);
    m_pServer->set_payload_max_length(
        static_cast<std::size_t>(std::min<std::uint64_t>(settings.bodyBytes, SIZE_MAX)));
    m_pServer->new_task_queue = [] { return new BoundedTasks(kThreads, kWaiting); };
    // Without SO_REUSEPORT, so that two servers cannot share an address by mistake.
    m_pServer->set_socket_options([this](socket_t socket) {
        const int on = 1;
        ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
        m_nListener = socket;
    });
}

void WebServer::SetGuards(const HttpSettings& settings) {
    m_pServer->set_default_headers(SafeHeaders());
    const bool isLoopbackOnly = IsLoopback(settings.address);
    m_pServer->set_pre_routing_handler([isLoopbackOnly](const Request& request, Response& response) {
        if (isLoopbackOnly && !AsksForLoopback(request)) {
            Refuse(response, 403, "Ask for this server under the name localhost or its address.");
            return Handled::Handled;
        }
        if (kMethods.count(request.method) == 0) {
            RefuseMethod(response);
            return Handled::Handled;
        }
        return Handled::Unhandled;
    });
    m_pServer->set_error_handler([](const Request&, Response& response) {
        if (response.body.empty()) {
            response.set_content(std::to_string(response.status) + "\n", kText);
        }
    });
    m_pServer->set_exception_handler(
        [this](const Request& request, Response& response, std::exception_ptr error) {
            try {
                std::rethrow_exception(std::move(error));
            } catch (const std::exception& exception) {
                m_parts.warn("The request for " + request.path + " failed: " + exception.what());
            } catch (...) {
                m_parts.warn("The request for " + request.path + " failed.");
            }
            Refuse(response, 500, "Something went wrong here; the log has more.");
        });
}

void WebServer::AddPages() {
    const StatusReporter& status = m_parts.status;
    AddPage("/", kHtml, [&status] { return StatusPage(status.Report(StoreNow())); });
    AddPage("/status.json", "application/json", [&status] { return StatusJson(status.Report(StoreNow())); });
    AddPage("/status.js", "text/javascript; charset=utf-8", [] { return kStatusScript; });
    AddPage("/status.css", "text/css; charset=utf-8", [] { return kStatusStyle; });
    AddPage("/metrics", kMetrics, [this] { return m_parts.metrics.Text(); });
    AddHealth("/healthz", &Health::isAlive);
    AddHealth("/readyz", &Health::isReady);
}

void WebServer::AddPage(const std::string& path, const std::string& type,
                        const std::function<std::string()>& text) {
    m_pServer->Get(path,
                   [type, text](const Request&, Response& response) { response.set_content(text(), type); });
    RefuseOtherMethods(path);
}

void WebServer::AddHealth(const std::string& path, bool Health::*isFine) {
    m_pServer->Get(path, [this, isFine](const Request&, Response& response) {
        const Health health = m_parts.status.HealthAt(StoreNow());
        if (health.*isFine) {
            response.set_content("ok\n", kText);
        } else {
            Refuse(response, 503, health.why);
        }
    });
    RefuseOtherMethods(path);
}

// Through handlers, which read the body first: what is left unread would reset the connection and take the answer along.
void WebServer::RefuseOtherMethods(const std::string& path) {
    const auto refuse = [](const Request&, Response& response) { RefuseMethod(response); };
    m_pServer->Post(path, refuse);
    m_pServer->Put(path, refuse);
    m_pServer->Patch(path, refuse);
    m_pServer->Delete(path, refuse);
    m_pServer->Options(path, refuse);
}

void WebServer::Bind(const HttpSettings& settings) {
    errno = 0;
    if (settings.port == 0) {
        m_nPort = m_pServer->bind_to_any_port(settings.address);
    } else if (m_pServer->bind_to_port(settings.address, settings.port)) {
        m_nPort = settings.port;
    }
    if (m_nPort <= 0) {
        const std::string cause = errno != 0 ? std::strerror(errno) : "no such address";
        throw BadInput("http: " + settings.address + ":" + std::to_string(settings.port) +
                       " cannot be listened on: " + cause + "; set http.address and http.port to a free one");
    }
    // Once more, for a longer queue than the library's five: beyond it a client waits a second for its next attempt.
    ::listen(m_nListener, kBacklog);
}

void WebServer::Listen() {
    const BlockedSignals inherited;
    m_thread = std::thread([this] {
        m_pServer->listen_after_bind();
        m_hasEnded = true;
    });
    while (!m_pServer->is_running() && !m_hasEnded) {
        std::this_thread::yield();
    }
}

}  // namespace kvhost
