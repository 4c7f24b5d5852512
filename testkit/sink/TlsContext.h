#pragma once

#include "OpenSslPtr.h"
#include "Options.h"

namespace kvsink {

/// The certificate and the settings that all TLS connections of a server share. Immutable.
class TlsContext {
public:
    /// Loads the PEM files of `options`, or makes new ones for --self-signed. Throws StartError, which names
    /// "--cert", "--key" or "--self-signed".
    explicit TlsContext(const Options& options);

    /// A new TLS connection, server side. Throws std::bad_alloc.
    OpenSslPtr<SSL> newConnection() const;

private:
    void load(const std::string& certFile, const std::string& keyFile);

    OpenSslPtr<SSL_CTX> m_context;
};

}  // namespace kvsink
