// Calls of OpenSSL.
#include <openssl/ssl.h>

#include "Interception.h"

using kvfault::Call;
using kvfault::Fails;

KV_INTERCEPT(SSL_CTX*, SSL_CTX_new, (const SSL_METHOD* method)) {
    return Fails(Call::SslCtxNew) ? nullptr : Next_SSL_CTX_new()(method);
}

KV_INTERCEPT(int, SSL_CTX_load_verify_locations, (SSL_CTX * context, const char* file, const char* folder)) {
    return Fails(Call::SslCtxLoadVerifyLocations)
               ? 0
               : Next_SSL_CTX_load_verify_locations()(context, file, folder);
}

KV_INTERCEPT(SSL*, SSL_new, (SSL_CTX * context)) {
    return Fails(Call::SslNew) ? nullptr : Next_SSL_new()(context);
}

KV_INTERCEPT(int, SSL_set_fd, (SSL * ssl, int descriptor)) {
    return Fails(Call::SslSetFd) ? 0 : Next_SSL_set_fd()(ssl, descriptor);
}

KV_INTERCEPT(int, SSL_connect, (SSL * ssl)) {
    const kvfault::TlsCall inside;
    return Fails(Call::SslConnect) ? -1 : Next_SSL_connect()(ssl);
}

KV_INTERCEPT(int, SSL_read, (SSL * ssl, void* data, int size)) {
    const kvfault::TlsCall inside;
    return Fails(Call::SslRead) ? -1 : Next_SSL_read()(ssl, data, size);
}

KV_INTERCEPT(int, SSL_write, (SSL * ssl, const void* data, int size)) {
    const kvfault::TlsCall inside;
    return Fails(Call::SslWrite) ? -1 : Next_SSL_write()(ssl, data, size);
}

KV_INTERCEPT(int, SSL_shutdown, (SSL * ssl)) {
    const kvfault::TlsCall inside;
    return Next_SSL_shutdown()(ssl);
}

KV_INTERCEPT(X509*, SSL_get1_peer_certificate, (const SSL* ssl)) {
    return Fails(Call::SslGetPeerCertificate) ? nullptr : Next_SSL_get1_peer_certificate()(ssl);
}

KV_INTERCEPT(char*, X509_NAME_oneline, (const X509_NAME* name, char* text, int size)) {
    return Fails(Call::X509NameOneline) ? nullptr : Next_X509_NAME_oneline()(name, text, size);
}
