#pragma once

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>

#include <memory>
#include <string>

namespace kvsink {

struct OpenSslDelete {
    void operator()(BIO* p) const { BIO_free_all(p); }
    void operator()(EVP_PKEY* p) const { EVP_PKEY_free(p); }
    void operator()(SSL* p) const { SSL_free(p); }
    void operator()(SSL_CTX* p) const { SSL_CTX_free(p); }
    void operator()(X509* p) const { X509_free(p); }
    void operator()(X509_EXTENSION* p) const { X509_EXTENSION_free(p); }
};

/// Owns an object of the OpenSSL library.
template <typename T>
using OpenSslPtr = std::unique_ptr<T, OpenSslDelete>;

/// The first error that the calling thread has pending, as text; empties its error queue.
inline std::string takeOpenSslError() {
    const unsigned long code = ERR_get_error();
    ERR_clear_error();
    const char* const reason = ERR_reason_error_string(code);
    return reason != nullptr ? reason : "error " + std::to_string(code);
}

}  // namespace kvsink
