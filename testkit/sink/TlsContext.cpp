#include "TlsContext.h"

#include <new>

#include "SelfSigned.h"
#include "StartError.h"

namespace kvsink {
namespace {

/// A key that is locked with a pass phrase is an error; nobody is asked.
int giveNoPassPhrase(char*, int, int, void*) {
    return -1;
}

OpenSslPtr<SSL_CTX> makeContext() {
    OpenSslPtr<SSL_CTX> context(SSL_CTX_new(TLS_server_method()));
    if (context == nullptr) {
        throw std::bad_alloc();
    }
    SSL_CTX_set_options(context.get(), SSL_OP_NO_RENEGOTIATION);
    SSL_CTX_set_mode(context.get(), SSL_MODE_RELEASE_BUFFERS);
    SSL_CTX_set_default_passwd_cb(context.get(), giveNoPassPhrase);
    return context;
}

}  // namespace

TlsContext::TlsContext(const Options& options) : m_context(makeContext()) {
    if (options.selfSignedDir.empty()) {
        load(options.certFile, options.keyFile);
    } else {
        writeSelfSignedCertificates(options.selfSignedDir);
        load(options.selfSignedDir + "/cert.pem", options.selfSignedDir + "/key.pem");
    }
}

void TlsContext::load(const std::string& certFile, const std::string& keyFile) {
    ERR_clear_error();
    if (SSL_CTX_use_certificate_chain_file(m_context.get(), certFile.c_str()) != 1) {
        throw StartError("--cert", "cannot use " + certFile + ": " + takeOpenSslError());
    }
    if (SSL_CTX_use_PrivateKey_file(m_context.get(), keyFile.c_str(), SSL_FILETYPE_PEM) != 1) {
        throw StartError("--key", "cannot use " + keyFile + ": " + takeOpenSslError());
    }
}

OpenSslPtr<SSL> TlsContext::newConnection() const {
    OpenSslPtr<SSL> connection(SSL_new(m_context.get()));
    if (connection == nullptr) {
        throw std::bad_alloc();
    }
    SSL_set_accept_state(connection.get());
    return connection;
}

}  // namespace kvsink
