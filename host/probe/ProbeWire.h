#pragma once

#include <netinet/in.h>
#include <openssl/ssl.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "Duration.h"
#include "ProbeReply.h"

namespace kvhost {

struct FreeProbeTls {
    void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
    void operator()(SSL* tls) const { SSL_free(tls); }
    void operator()(X509* certificate) const { X509_free(certificate); }
};
using ProbeTlsContext = std::unique_ptr<SSL_CTX, FreeProbeTls>;

/// A connection to a mail server that is looked at, in clear or inside TLS. One thread at a time.
///
/// No call takes longer than the limit; one that would, and every other failure, throws ProbeError. No signal is raised.
class ProbeWire {
public:
    explicit ProbeWire(Milliseconds limit) : m_limit(limit) {}
    ~ProbeWire();
    ProbeWire(const ProbeWire&) = delete;
    ProbeWire& operator=(const ProbeWire&) = delete;

    void Connect(const sockaddr_in& address);
    void Send(std::string_view bytes);
    /// Reads until a whole reply is there.
    ProbeReply ReadReply();
    /// The handshake of a client with these settings. What the server sent in clear before is not taken over: anything
    /// behind its last reply is a failure.
    void StartTls(SSL_CTX& settings);
    /// Null in clear.
    SSL* Tls() const { return m_tls.get(); }

private:
    using Clock = std::chrono::steady_clock;

    void BeginStep() { m_timeEnd = Clock::now() + m_limit; }
    void Wait(short events) const;
    std::size_t Receive(char* buffer, std::size_t size) const;
    void SendAll(std::string_view bytes) const;
    std::string ReadSome();

    int RunTls(const std::function<int()>& call);
    void FlushTls() const;
    void FeedTls() const;

    const Milliseconds m_limit;
    Clock::time_point m_timeEnd;
    int m_nSocket = -1;
    std::unique_ptr<SSL, FreeProbeTls> m_tls;
    std::string m_strInput;  ///< that came and is no reply yet
};

/// The newest reason on this thread's error queue of OpenSSL, which is emptied; "unknown reason" when there is none.
std::string TakeTlsReason();

}  // namespace kvhost
