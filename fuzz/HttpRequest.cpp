// Whole requests to the HTTP interface for jobs, without a socket and without a store: every request gets one well-formed
// answer, and nobody without the token gets to the store.
#include <httplib.h>

#include <algorithm>
#include <memory>

#include "SubmissionRoutes.h"
#include "support/Check.h"
#include "support/HostInputs.h"
#include "support/Input.h"

namespace {

/// The bytes of one connection, in memory.
class Connection : public httplib::Stream {
public:
    explicit Connection(std::string request) : m_request(std::move(request)) {}

    bool is_readable() const override { return true; }
    bool is_writable() const override { return true; }
    ssize_t read(char* bytes, size_t size) override {
        const std::size_t count = m_request.copy(bytes, size, m_nAt);
        m_nAt += count;
        return static_cast<ssize_t>(count);
    }
    ssize_t write(const char* bytes, size_t size) override {
        m_answer.append(bytes, size);
        return static_cast<ssize_t>(size);
    }
    void get_remote_ip_and_port(std::string& ip, int& port) const override {
        ip = "127.0.0.1";
        port = 1;
    }
    void get_local_ip_and_port(std::string& ip, int& port) const override {
        get_remote_ip_and_port(ip, port);
    }
    socket_t socket() const override { return -1; }

    const std::string& Answer() const { return m_answer; }

private:
    const std::string m_request;
    std::size_t m_nAt = 0;
    std::string m_answer;
};

/// The routes on a server that is never started. Their store does not exist: who gets that far is told so.
class Server : public httplib::Server {
public:
    Server()
        : m_config(std::make_shared<const kvhost::HostConfig>(kvfuzz::SmallConfig())),
          m_routes(
              "/nonexistent/kvhost-store", [this] { return m_config; },
              [this](const std::string&) { ++m_nStoreNeeded; }) {
        set_payload_max_length(4000);
        m_routes.Register(*this);
    }

    std::string Serve(const std::string& request) {
        Connection connection(request);
        bool isClosed = false;
        process_request(connection, true, isClosed, [](httplib::Request&) {});
        return connection.Answer();
    }

    int StoreNeeded() const { return m_nStoreNeeded; }

private:
    const std::shared_ptr<const kvhost::HostConfig> m_config;
    kvhost::SubmissionRoutes m_routes;
    int m_nStoreNeeded = 0;
};

/// Of the last answer: one that only says to go on may stand before it.
int StatusOf(std::string answer) {
    static const std::string kGoOn = "HTTP/1.1 100 Continue\r\n\r\n";
    if (answer.compare(0, kGoOn.size(), kGoOn) == 0) {
        answer.erase(0, kGoOn.size());
    }
    KV_FUZZ_CHECK(answer.compare(0, 9, "HTTP/1.1 ") == 0 && answer.size() > 12);
    return std::stoi(answer.substr(9, 3));
}

bool HasToken(const std::string& text) {
    return text.find("0123456789abcdef") != std::string::npos;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static Server server;
    const std::string request = kvfuzz::Input(data, size).Rest();
    const int before = server.StoreNeeded();
    const std::string answer = server.Serve(request);
    const bool neededStore = server.StoreNeeded() != before;
    if (answer.empty()) {
        KV_FUZZ_CHECK(!neededStore);
        return 0;
    }
    const int status = StatusOf(answer);
    KV_FUZZ_CHECK(status >= 100 && status < 600);
    KV_FUZZ_CHECK(neededStore == (status == 503));
    // Escapes in a header are undone before the token is looked at.
    KV_FUZZ_CHECK(!neededStore || HasToken(request) || request.find('%') != std::string::npos);
    KV_FUZZ_CHECK(status != 200 && status != 201 && !HasToken(answer));
    return 0;
}
