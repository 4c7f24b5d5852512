#include "faults/TlsCalls.h"

#include <openssl/ssl.h>
#include <openssl/x509.h>

#include <optional>

namespace {

struct Failure {
    kvtest::TlsCall call;
    int spared;
};

thread_local std::optional<Failure> t_failure;

/// True for the call that is to fail.
bool Fails(kvtest::TlsCall call) {
    return t_failure && t_failure->call == call && t_failure->spared-- == 0;
}

}  // namespace

namespace kvtest {

FailedTlsCall::FailedTlsCall(TlsCall call, int afterCalls) {
    t_failure = Failure{call, afterCalls};
}

FailedTlsCall::~FailedTlsCall() {
    t_failure.reset();
}

}  // namespace kvtest

// The linker sends each call of a wrapped function here and calls of __real_<name> to OpenSSL's own.
extern "C" {

SSL* __real_SSL_new(SSL_CTX*);
int __real_SSL_set_fd(SSL*, int);
X509* __real_SSL_get1_peer_certificate(const SSL*);
char* __real_X509_NAME_oneline(const X509_NAME*, char*, int);

SSL* __wrap_SSL_new(SSL_CTX* context) {
    return Fails(kvtest::TlsCall::NewConnection) ? nullptr : __real_SSL_new(context);
}

int __wrap_SSL_set_fd(SSL* ssl, int descriptor) {
    return Fails(kvtest::TlsCall::SetDescriptor) ? 0 : __real_SSL_set_fd(ssl, descriptor);
}

X509* __wrap_SSL_get1_peer_certificate(const SSL* ssl) {
    return Fails(kvtest::TlsCall::PeerCertificate) ? nullptr : __real_SSL_get1_peer_certificate(ssl);
}

char* __wrap_X509_NAME_oneline(const X509_NAME* name, char* text, int size) {
    return Fails(kvtest::TlsCall::NameText) ? nullptr : __real_X509_NAME_oneline(name, text, size);
}

}  // extern "C"
