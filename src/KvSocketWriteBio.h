#pragma once

#include <openssl/bio.h>

/// The writing end of a TLS connection: as OpenSSL's own for a socket, but a peer that is gone raises no SIGPIPE.
class KvSocketWriteBio {
public:
    /// A BIO that writes to `descriptor`, which stays the caller's. Null when memory is short. The caller owns it
    /// until it gives it away (SSL_set0_wbio). Thread-safe.
    static BIO* New(int descriptor);
};
