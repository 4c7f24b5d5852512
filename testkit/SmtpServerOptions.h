#pragma once

#include <optional>
#include <string>
#include <vector>

namespace kvtest {

enum class ClientCertificate { NotAsked, Asked, Required };

/// The TLS side of a scripted server. PEM files; versions are OpenSSL's numbers (TLS1_2_VERSION), 0 for any.
struct TlsOptions {
    std::string certificateFile = {};
    std::string keyFile = {};
    std::string clientCaFile = {};  ///< the certificates that a client's certificate is verified against
    ClientCertificate clientCertificate = ClientCertificate::NotAsked;
    int minVersion = 0;
    int maxVersion = 0;
};

struct Account {
    std::string user = {};
    std::string password = {};
};

/// How a scripted server behaves where no rule says otherwise. An aggregate, for designated initialisers.
struct SmtpServerOptions {
    std::string hostName = "test.example";  ///< named in the greeting and the replies to EHLO and HELO
    /// Exactly these lines follow the host name in the reply to EHLO. Absent: "STARTTLS" when `tls` is set
    /// and the connection is in clear, and "AUTH PLAIN LOGIN" when there are accounts.
    std::optional<std::vector<std::string>> extensions = std::nullopt;
    /// The same for an EHLO inside TLS. Absent: as `extensions`.
    std::optional<std::vector<std::string>> extensionsInsideTls = std::nullopt;
    std::vector<Account> accounts =
        {};  ///< AUTH is answered with 235 for one of these and with 535 otherwise
    std::optional<TlsOptions> tls = std::nullopt;  ///< absent: STARTTLS is answered with 454
    int port = 0;                                  ///< 0 for a free one
};

}  // namespace kvtest
