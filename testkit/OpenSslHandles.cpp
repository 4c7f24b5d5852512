#include "OpenSslHandles.h"

#include <openssl/err.h>

#include <stdexcept>

namespace kvtest {

namespace {

void Require(bool done, const std::string& what) {
    if (!done) {
        throw std::runtime_error(what + ": " + TakeTlsError());
    }
}

void LoadIdentity(SSL_CTX* context, const TlsOptions& options) {
    Require(SSL_CTX_use_certificate_chain_file(context, options.certificateFile.c_str()) == 1,
            "certificate file");
    Require(SSL_CTX_use_PrivateKey_file(context, options.keyFile.c_str(), SSL_FILETYPE_PEM) == 1, "key file");
}

void AskForClientCertificate(SSL_CTX* context, const TlsOptions& options) {
    if (options.clientCertificate == ClientCertificate::NotAsked) {
        return;
    }
    const bool required = options.clientCertificate == ClientCertificate::Required;
    SSL_CTX_set_verify(context, SSL_VERIFY_PEER | (required ? SSL_VERIFY_FAIL_IF_NO_PEER_CERT : 0), nullptr);
    Require(SSL_CTX_load_verify_file(context, options.clientCaFile.c_str()) == 1, "client CA file");
    // OpenSSL refuses to resume a verified session that is not bound to a context.
    const unsigned char name[] = "kvtest";
    SSL_CTX_set_session_id_context(context, name, sizeof name);
}

}  // namespace

TlsContext MakeServerContext(const TlsOptions& options) {
    TlsContext context(SSL_CTX_new(TLS_server_method()));
    Require(context != nullptr, "SSL_CTX_new");
    SetVersionBounds(context.get(), options.minVersion, options.maxVersion);
    LoadIdentity(context.get(), options);
    AskForClientCertificate(context.get(), options);
    return context;
}

std::string TakeTlsError() {
    const char* reason = ERR_reason_error_string(ERR_peek_last_error());
    const std::string text = reason == nullptr ? "" : reason;
    ERR_clear_error();
    return text;
}

void SetVersionBounds(SSL_CTX* context, int minVersion, int maxVersion) {
    if (minVersion != 0) {
        SSL_CTX_set_min_proto_version(context, minVersion);
    }
    if (maxVersion != 0) {
        SSL_CTX_set_max_proto_version(context, maxVersion);
    }
    if (minVersion != 0 && minVersion < TLS1_2_VERSION) {
        SSL_CTX_set_security_level(context, 0);
    }
}

}  // namespace kvtest
