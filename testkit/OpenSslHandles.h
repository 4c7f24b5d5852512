#pragma once

#include <openssl/ssl.h>

#include <memory>
#include <string>

#include "SmtpServerOptions.h"

namespace kvtest {

struct FreeTls {
    void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
    void operator()(SSL* ssl) const { SSL_free(ssl); }
};

using TlsContext = std::unique_ptr<SSL_CTX, FreeTls>;
using TlsConnection = std::unique_ptr<SSL, FreeTls>;

/// The server side's settings. Throws std::runtime_error when a file is no good.
TlsContext MakeServerContext(const TlsOptions& options);

/// The newest reason on this thread's error queue, such as "certificate has expired"; empties the queue.
/// Empty when there is none.
std::string TakeTlsError();

/// OpenSSL version numbers, 0 for no bound. A floor under TLS 1.2 lowers the security level to 0 as well,
/// without which OpenSSL would not speak it.
void SetVersionBounds(SSL_CTX* context, int minVersion, int maxVersion);

}  // namespace kvtest
