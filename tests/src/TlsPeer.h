#pragma once

#include <openssl/err.h>
#include <openssl/ssl.h>

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "SignalFreeThread.h"
#include "TestCertificates.h"
#include "src/SocketDoubles.h"

namespace kvtest {

/// One side of a TLS connection, for a script that runs as the server. One thread at a time.
class TlsConnection {
public:
    TlsConnection(SSL* ssl, int descriptor) : m_ssl(ssl), m_descriptor(descriptor) {}

    /// Sends the text in one record. False when that failed.
    bool Send(const std::string& text) {
        return SSL_write(m_ssl, text.data(), static_cast<int>(text.size())) == static_cast<int>(text.size());
    }
    /// Receives `size` bytes, fewer when the client ends.
    std::string Receive(std::size_t size) {
        std::string text(size, '\0');
        std::size_t received = 0;
        while (received < size) {
            const int result = SSL_read(m_ssl, &text[received], static_cast<int>(size - received));
            if (result <= 0) {
                break;
            }
            received += static_cast<std::size_t>(result);
        }
        text.resize(received);
        return text;
    }
    /// True when the client ended TLS with the closing alert.
    bool ReceivesClosingAlert() {
        char byte = 0;
        return SSL_get_error(m_ssl, SSL_read(m_ssl, &byte, 1)) == SSL_ERROR_ZERO_RETURN;
    }
    void SendClosingAlert() { SSL_shutdown(m_ssl); }
    /// Waits until the client has ended the connection.
    void AwaitEnd() { Receive(1); }

    SSL* Ssl() const { return m_ssl; }
    /// The plain descriptor under TLS.
    int Descriptor() const { return m_descriptor; }

private:
    SSL* m_ssl;
    int m_descriptor;
};

/// A TLS server for one connection on a free port of the loopback address, on a thread of its own: it
/// accepts, shakes hands and runs its script. The connection ends, without a closing alert, when the script
/// does or at the latest with this object.
class TlsPeer {
public:
    using Script = std::function<void(TlsConnection&)>;

    struct Options {
        CertificateFiles certificate = TestCertificates::Shared().server();  ///< empty names: none
        std::string clientCaFile = {};  ///< not empty: a client certificate of this authority is demanded
        int minVersion = 0;
        int maxVersion = 0;
    };

    explicit TlsPeer(Script script) : TlsPeer(Options(), std::move(script)) {}
    TlsPeer(const Options& options, Script script)
        : m_context(SSL_CTX_new(TLS_server_method()), SSL_CTX_free), m_script(std::move(script)) {
        Configure(options);
        m_thread = StartSignalFreeThread([this] { Serve(); });
    }
    ~TlsPeer() { Join(); }
    TlsPeer(const TlsPeer&) = delete;
    TlsPeer& operator=(const TlsPeer&) = delete;

    int Port() const { return m_listener.Port(); }
    std::string Address() const { return m_listener.Address(); }

    /// Waits for the end of the script. True when the handshake had succeeded before.
    bool Finish() {
        if (m_thread.joinable()) {
            m_thread.join();
        }
        return m_shaken;
    }

private:
    void Configure(const Options& options) {
        SSL_CTX* const context = m_context.get();
        if (!options.certificate.certificate.empty()) {
            SSL_CTX_use_certificate_file(context, options.certificate.certificate.c_str(), SSL_FILETYPE_PEM);
            SSL_CTX_use_PrivateKey_file(context, options.certificate.key.c_str(), SSL_FILETYPE_PEM);
        }
        if (!options.clientCaFile.empty()) {
            SSL_CTX_load_verify_locations(context, options.clientCaFile.c_str(), nullptr);
            SSL_CTX_set_verify(context, SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, nullptr);
        }
        SSL_CTX_set_min_proto_version(context, options.minVersion);
        SSL_CTX_set_max_proto_version(context, options.maxVersion);
    }

    void Serve() {
        ScopedDescriptor descriptor = m_listener.Accept();
        m_descriptor = descriptor.get();
        const std::unique_ptr<SSL, decltype(&SSL_free)> ssl(SSL_new(m_context.get()), SSL_free);
        SSL_set_fd(ssl.get(), descriptor.get());
        m_shaken = SSL_accept(ssl.get()) == 1;
        if (m_shaken) {
            TlsConnection connection(ssl.get(), descriptor.get());
            m_script(connection);
        }
        const std::lock_guard<std::mutex> hold(m_mutex);
        m_descriptor = -1;
        descriptor.reset();
    }

    void Join() {
        {
            const std::lock_guard<std::mutex> hold(m_mutex);
            shutdown(m_descriptor, SHUT_RDWR);
        }
        Finish();
    }

    LoopbackListener m_listener;
    std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> m_context;
    const Script m_script;
    std::mutex m_mutex;
    std::atomic<int> m_descriptor{-1};  ///< open while not -1; closed under m_mutex
    std::atomic<bool> m_shaken{false};
    std::thread m_thread;
};

}  // namespace kvtest
