#include "WebServer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <httplib.h>
#include <signal.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "Eventually.h"
#include "PlainTcpClient.h"
#include "Problem.h"
#include "WebFixture.h"

namespace kvhosttest {
namespace {

using kvhost::HttpSettings;
using kvhost::RunSnapshot;
using kvhost::WebServer;
using testing::HasSubstr;
using testing::Not;

class WebServerTest : public WebTest {
protected:
    void Start(const WebServer::MoreRoutes& routes = {}, const std::string& address = "127.0.0.1") {
        HttpSettings settings;
        settings.address = address;
        settings.port = 0;
        settings.bodyBytes = 1000;
        m_pServer = std::make_unique<WebServer>(
            settings, WebServer::Parts{m_metrics, m_reporter,
                                       [this](const std::string& text) {
                                           const std::lock_guard<std::mutex> guard(m_mutex);
                                           m_warnings.push_back(text);
                                       },
                                       routes});
    }
    httplib::Client Client() const { return httplib::Client("127.0.0.1", m_pServer->Port()); }
    httplib::Response Get(const std::string& path, const httplib::Headers& headers = {}) const {
        const httplib::Result result = Client().Get(path, headers);
        EXPECT_TRUE(result) << path << ": " << httplib::to_string(result.error());
        return result ? *result : httplib::Response();
    }

    std::mutex m_mutex;
    std::vector<std::string> m_warnings;  ///< guarded by m_mutex
    std::unique_ptr<WebServer> m_pServer;
};

TEST_F(WebServerTest, EveryPageHasItsType) {
    Start();
    const std::pair<const char*, const char*> pages[] = {
        {"/", "text/html; charset=utf-8"},
        {"/status.json", "application/json"},
        {"/status.js", "text/javascript; charset=utf-8"},
        {"/status.css", "text/css; charset=utf-8"},
        {"/metrics", "text/plain; version=0.0.4; charset=utf-8"},
        {"/healthz", "text/plain; charset=utf-8"},
        {"/readyz", "text/plain; charset=utf-8"},
    };
    for (const auto& [path, type] : pages) {
        const httplib::Response response = Get(path);
        EXPECT_EQ(response.status, 200) << path;
        EXPECT_EQ(response.get_header_value("Content-Type"), type) << path;
        EXPECT_FALSE(response.body.empty()) << path;
    }
}

TEST_F(WebServerTest, ThePagesShowTheDaemon) {
    Submit(Mail("a"));
    m_metrics.AttemptEnded(DeliveredAttempt());
    Start();
    EXPECT_THAT(Get("/metrics").body,
                HasSubstr("kvhost_attempts_total{carrier=\"east\",outcome=\"delivered\"} 1\n"));
    EXPECT_EQ(nlohmann::json::parse(Get("/status.json").body)["waiting"][0]["job"], "a");
    EXPECT_THAT(Get("/").body, HasSubstr("<td class=\"text\">Boiler</td>"));
}

TEST_F(WebServerTest, ThePagesAreNotKeptAndRunNothingForeign) {
    Start();
    for (const char* path : {"/", "/status.json", "/metrics", "/none"}) {
        const httplib::Response response = Get(path);
        EXPECT_EQ(response.get_header_value("Cache-Control"), "no-store") << path;
        EXPECT_EQ(response.get_header_value("X-Content-Type-Options"), "nosniff") << path;
        EXPECT_EQ(response.get_header_value("X-Frame-Options"), "DENY") << path;
        EXPECT_EQ(response.get_header_value("Referrer-Policy"), "no-referrer") << path;
        const std::string policy = response.get_header_value("Content-Security-Policy");
        EXPECT_THAT(policy, HasSubstr("default-src 'none'; script-src 'self';")) << path;
        EXPECT_THAT(policy, Not(HasSubstr("unsafe"))) << path;
    }
}

TEST_F(WebServerTest, HeadAnswersWithoutABody) {
    Start();
    for (const char* path : {"/", "/healthz", "/metrics"}) {
        const httplib::Result result = Client().Head(path);
        ASSERT_TRUE(result) << path;
        EXPECT_EQ(result->status, 200) << path;
        EXPECT_EQ(result->body, "") << path;
    }
}

TEST_F(WebServerTest, OtherMethodsAreRefused) {
    Start();
    for (const char* method : {"POST", "PUT", "PATCH", "DELETE", "OPTIONS", "TRACE"}) {
        for (const char* path : {"/", "/metrics", "/healthz", "/status.json"}) {
            const std::string answer =
                Exchange(m_pServer->Port(), std::string(method) + " " + path +
                                                " HTTP/1.1\r\nHost: localhost\r\nContent-Length: 0\r\n\r\n");
            EXPECT_THAT(answer, testing::StartsWith("HTTP/1.1 405 ")) << method << " " << path;
            EXPECT_THAT(answer, HasSubstr("\r\nAllow: GET, HEAD\r\n")) << method << " " << path;
        }
    }
}

TEST_F(WebServerTest, AnUnknownPathIsNotFound) {
    Start();
    EXPECT_EQ(Get("/none").status, 404);
    EXPECT_EQ(Get("/../etc/passwd").status, 404);
    EXPECT_EQ(Get("/metrics/").status, 404);
}

TEST_F(WebServerTest, HealthAndReadinessFollowTheBoard) {
    Start();
    EXPECT_EQ(Get("/healthz").body, "ok\n");
    EXPECT_EQ(Get("/readyz").body, "ok\n");
    RunSnapshot run = RunningSnapshot();
    run.phase = RunSnapshot::Phase::Stopping;
    m_status.Set(run);
    EXPECT_EQ(Get("/healthz").status, 200);
    EXPECT_EQ(Get("/readyz").status, 503);
    EXPECT_EQ(Get("/readyz").body, "stopping\n");
    run = RunningSnapshot();
    run.started -= std::chrono::hours(1);
    run.lastRound -= std::chrono::hours(1);
    m_status.Set(run);
    EXPECT_EQ(Get("/healthz").status, 503);
    EXPECT_THAT(Get("/healthz").body, HasSubstr("no sign of the thread"));
}

TEST_F(WebServerTest, OnLoopbackOnlyLoopbackNamesAreAnswered) {
    Start();
    for (const char* host : {"localhost", "localhost:8025", "127.0.0.1:1", "[::1]:8025"}) {
        EXPECT_EQ(Get("/status.json", {{"Host", host}}).status, 200) << host;
    }
    for (const char* host : {"evil.example", "evil.example:8025", "127.0.0.1.evil.example", "10.0.0.1"}) {
        const httplib::Response response = Get("/status.json", {{"Host", host}});
        EXPECT_EQ(response.status, 403) << host;
        EXPECT_THAT(response.body, Not(HasSubstr("driver"))) << host;
    }
    EXPECT_THAT(Exchange(m_pServer->Port(),
                         "GET /status.json HTTP/1.1\r\nHost: localhost\r\nHost: evil.example\r\n\r\n"),
                testing::StartsWith("HTTP/1.1 403 "));
}

TEST_F(WebServerTest, AtAnotherAddressAnyNameIsAnswered) {
    Start({}, "0.0.0.0");
    EXPECT_EQ(Get("/healthz", {{"Host", "kvhost.example.org"}}).status, 200);
}

TEST_F(WebServerTest, AnAddressThatIsTakenIsBadInput) {
    Start();
    HttpSettings settings;
    settings.port = m_pServer->Port();
    try {
        const WebServer second(settings, {m_metrics, m_reporter, [](const std::string&) {}, {}});
        FAIL() << "two servers have the same address";
    } catch (const kvhost::BadInput& error) {
        EXPECT_EQ(std::string(error.what()), "http: 127.0.0.1:" + std::to_string(settings.port) +
                                                 " cannot be listened on: Address already in use; set "
                                                 "http.address and http.port to a free one");
    }
}

TEST_F(WebServerTest, AnAddressThatIsNotOursIsBadInput) {
    HttpSettings settings;
    settings.address = "192.0.2.1";
    settings.port = 0;
    EXPECT_THROW(WebServer(settings, {m_metrics, m_reporter, [](const std::string&) {}, {}}),
                 kvhost::BadInput);
}

TEST_F(WebServerTest, ThePortIsFreeAgainAfterwards) {
    Start();
    HttpSettings settings;
    settings.port = m_pServer->Port();
    EXPECT_EQ(Get("/healthz").status, 200);
    m_pServer.reset();
    const WebServer again(settings, {m_metrics, m_reporter, [](const std::string&) {}, {}});
    EXPECT_EQ(again.Port(), settings.port);
}

TEST_F(WebServerTest, FurtherRoutesAreServedBehindTheSameGuards) {
    Start([](httplib::Server& server) {
        server.Post("/jobs", [](const httplib::Request& request, httplib::Response& response) {
            response.set_content("got " + request.body, "text/plain");
        });
    });
    const httplib::Result result = Client().Post("/jobs", "one", "text/plain");
    ASSERT_TRUE(result);
    EXPECT_EQ(result->body, "got one");
    EXPECT_EQ(result->get_header_value("Cache-Control"), "no-store");
    const httplib::Result refused = Client().Post("/jobs", {{"Host", "evil.example"}}, "one", "text/plain");
    EXPECT_TRUE(!refused || refused->status == 403);
}

TEST_F(WebServerTest, ABodyBeyondTheLimitIsRefused) {
    std::atomic<bool> wasCalled{false};
    Start([&wasCalled](httplib::Server& server) {
        server.Post("/jobs", [&wasCalled](const httplib::Request&, httplib::Response&) { wasCalled = true; });
    });
    const std::string answer =
        Exchange(m_pServer->Port(), "POST /jobs HTTP/1.1\r\nHost: localhost\r\nContent-Length: 1001\r\n\r\n" +
                                        std::string(1001, 'x'));
    EXPECT_THAT(answer, testing::StartsWith("HTTP/1.1 413 "));
    EXPECT_FALSE(wasCalled);
}

TEST_F(WebServerTest, WhatARouteThrowsIsLoggedAndNotShown) {
    Start([](httplib::Server& server) {
        server.Get("/broken", [](const httplib::Request&, httplib::Response&) {
            throw std::runtime_error("secret details");
        });
    });
    const httplib::Response response = Get("/broken");
    EXPECT_EQ(response.status, 500);
    EXPECT_EQ(response.body, "Something went wrong here; the log has more.\n");
    for (const auto& [name, value] : response.headers) {
        EXPECT_THAT(value, Not(HasSubstr("secret"))) << name;
    }
    const std::lock_guard<std::mutex> guard(m_mutex);
    EXPECT_THAT(m_warnings, testing::ElementsAre("The request for /broken failed: secret details"));
}

TEST_F(WebServerTest, AConnectionServesOneRequest) {
    Start();
    const std::string request = "GET /healthz HTTP/1.1\r\nHost: localhost\r\n\r\n";
    const std::string answer = Exchange(m_pServer->Port(), request + request);
    EXPECT_THAT(answer, HasSubstr("\r\nConnection: close\r\n"));
    EXPECT_EQ(answer.find("HTTP/1.1"), answer.rfind("HTTP/1.1"));
}

/// The blocked signals of each thread of this process, as the kernel tells them.
std::vector<std::uint64_t> BlockedByThread() {
    std::vector<std::uint64_t> masks;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/task")) {
        std::ifstream status(entry.path() / "status");
        for (std::string line; std::getline(status, line);) {
            if (line.rfind("SigBlk:", 0) == 0) {
                masks.push_back(std::stoull(line.substr(7), nullptr, 16));
            }
        }
    }
    return masks;
}

/// Threads that have the signals blocked which a driver may handle, and no fault of their own.
std::size_t ShieldedThreads() {
    const std::vector<std::uint64_t> masks = BlockedByThread();
    return static_cast<std::size_t>(std::count_if(masks.begin(), masks.end(), [](std::uint64_t mask) {
        const auto has = [mask](int number) { return ((mask >> (number - 1)) & 1U) != 0; };
        return has(SIGTERM) && has(SIGQUIT) && has(SIGINT) && has(SIGHUP) && !has(SIGSEGV);
    }));
}

TEST_F(WebServerTest, ItsThreadsHaveTheSignalsOfADriverBlocked) {
    const std::size_t before = BlockedByThread().size();
    const std::size_t shieldedBefore = ShieldedThreads();
    Start();
    constexpr std::size_t kThreads = 5;  // one that listens, four that answer
    EXPECT_TRUE(kvtest::Eventually([&] { return ShieldedThreads() == shieldedBefore + kThreads; }));
    EXPECT_EQ(BlockedByThread().size(), before + kThreads);
    sigset_t own;
    ::pthread_sigmask(SIG_SETMASK, nullptr, &own);
    EXPECT_EQ(::sigismember(&own, SIGTERM), 0);
}

TEST_F(WebServerTest, ManyMayAskAtOnce) {
    Submit(Mail("a"));
    Start();
    std::atomic<int> answered{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([this, &answered] {
            for (const char* path : {"/", "/status.json", "/metrics", "/readyz", "/status.js"}) {
                answered += Get(path).status == 200 ? 1 : 0;
            }
        });
    }
    for (int i = 0; i < 50; ++i) {
        m_metrics.AttemptEnded(DeliveredAttempt());
        m_recent.AttemptEnded(FailedAttempt("no"));
        SetRunning();
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(answered, 40);
}

TEST_F(WebServerTest, HostileRequestsLeaveTheServerAlive) {
    Start();
    const std::string long8k(9000, 'a');
    for (const std::string& request :
         {std::string("\r\n\r\n"), std::string("GET\r\n\r\n"), "GET /" + long8k + " HTTP/1.1\r\n\r\n",
          "GET / HTTP/1.1\r\nX: " + long8k + "\r\n\r\n", std::string("GET /%00%ff HTTP/1.1\r\n\r\n"),
          std::string("\x16\x03\x01 no TLS here\r\n\r\n")}) {
        Exchange(m_pServer->Port(), request);
    }
    EXPECT_EQ(Get("/healthz").status, 200);
}

}  // namespace
}  // namespace kvhosttest
