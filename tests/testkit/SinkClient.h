#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <openssl/ssl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace sinktest {

/// A directory for one test, removed with all that is in it.
class ScratchDirectory {
public:
    ScratchDirectory() {
        std::string name = (std::filesystem::temp_directory_path() / "kvsink-test-XXXXXX").string();
        if (::mkdtemp(name.data()) == nullptr) {
            throw std::runtime_error("mkdtemp");
        }
        m_path = name;
    }
    ~ScratchDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    ScratchDirectory(const ScratchDirectory&) = delete;
    ScratchDirectory& operator=(const ScratchDirectory&) = delete;

    std::string file(const std::string& name) const { return (m_path / name).string(); }
    std::string path() const { return m_path.string(); }

private:
    std::filesystem::path m_path;
};

inline std::string contentsOf(const std::string& file) {
    std::ifstream stream(file, std::ios::binary);
    std::ostringstream text;
    text << stream.rdbuf();
    return text.str();
}

inline void writeFile(const std::string& file, const std::string& text) {
    std::ofstream(file, std::ios::binary) << text;
}

/// The names in a directory, sorted.
inline std::vector<std::string> namesIn(const std::string& directory) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

/// Waits until `condition` holds, for at most `limit`; whether it came to hold.
template <typename Condition>
bool eventually(Condition condition, std::chrono::milliseconds limit = std::chrono::seconds(10)) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

/// A client that sends what the test says and reads replies; each wait ends after 10 s at the latest.
class SinkClient {
public:
    explicit SinkClient(std::uint16_t port) : m_socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        const timeval limit{10, 0};
        ::setsockopt(m_socket, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
        ::setsockopt(m_socket, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (::connect(m_socket, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
            ::close(m_socket);
            throw std::runtime_error("connect: " + std::to_string(errno));
        }
    }
    ~SinkClient() {
        m_ssl.reset();
        ::close(m_socket);
    }
    SinkClient(const SinkClient&) = delete;
    SinkClient& operator=(const SinkClient&) = delete;

    int fd() const { return m_socket; }

    void send(std::string_view bytes) {
        while (!bytes.empty()) {
            const ssize_t sent = m_ssl ? SSL_write(m_ssl.get(), bytes.data(), static_cast<int>(bytes.size()))
                                       : ::send(m_socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
            if (sent <= 0) {
                throw std::runtime_error("send");
            }
            bytes.remove_prefix(static_cast<std::size_t>(sent));
        }
    }

    /// One whole reply, all its lines; what came in before the end of the connection when it ends first.
    std::string reply() {
        std::string text;
        std::string line;
        do {
            line = readLine();
            text += line;
        } while (line.size() > 3 && line[3] == '-');
        return text;
    }

    std::string command(const std::string& line) {
        send(line + "\r\n");
        return reply();
    }

    /// All that comes until the server closes.
    std::string readToEnd() {
        while (fill()) {
        }
        return std::exchange(m_pending, std::string());
    }

    /// Whether the server closed the connection, with nothing more to read.
    bool isClosed() { return m_pending.empty() && !fill(); }

    /// No more is sent; replies can still be read.
    void shutdownSending() { ::shutdown(m_socket, SHUT_WR); }

    /// Begins TLS; trusts what the authority in `caFile` has signed for 127.0.0.1, and nothing else.
    void startTls(const std::string& caFile) {
        const std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> context(SSL_CTX_new(TLS_client_method()),
                                                                        SSL_CTX_free);
        SSL_CTX_set_verify(context.get(), SSL_VERIFY_PEER, nullptr);
        if (SSL_CTX_load_verify_locations(context.get(), caFile.c_str(), nullptr) != 1) {
            throw std::runtime_error("CA file");
        }
        std::unique_ptr<SSL, SslFree> ssl(SSL_new(context.get()));
        X509_VERIFY_PARAM_set1_ip_asc(SSL_get0_param(ssl.get()), "127.0.0.1");
        SSL_set_fd(ssl.get(), m_socket);
        if (SSL_connect(ssl.get()) != 1) {
            throw std::runtime_error("SSL_connect");
        }
        m_ssl = std::move(ssl);
    }

    /// Tells the server over TLS that nothing follows.
    void closeTls() { SSL_shutdown(m_ssl.get()); }

private:
    struct SslFree {
        void operator()(SSL* ssl) const { SSL_free(ssl); }
    };

    bool fill() {
        char buffer[4096];
        const ssize_t length =
            m_ssl ? SSL_read(m_ssl.get(), buffer, sizeof buffer) : ::recv(m_socket, buffer, sizeof buffer, 0);
        if (length < 0 && !m_ssl && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            throw std::runtime_error("nothing came within 10 s");
        }
        if (length > 0) {
            m_pending.append(buffer, static_cast<std::size_t>(length));
        }
        return length > 0;
    }

    std::string readLine() {
        while (m_pending.find('\n') == std::string::npos && fill()) {
        }
        const std::size_t end = std::min(m_pending.find('\n'), m_pending.size() - 1);
        std::string line = m_pending.substr(0, end + 1);
        m_pending.erase(0, end + 1);
        return line;
    }

    int m_socket;
    std::unique_ptr<SSL, SslFree> m_ssl;
    std::string m_pending;
};

}  // namespace sinktest
