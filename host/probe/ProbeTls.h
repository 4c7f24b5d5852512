#pragma once

#include <string>
#include <vector>

#include "HostConfig.h"
#include "ProbeWire.h"

namespace kvhost {

/// What a TLS connection came to. Immutable value; the texts of the certificate are as they came.
struct ProbeTlsFacts {
    std::string version;  ///< such as "TLSv1.3"
    std::string cipher;
    std::string subject;
    std::string issuer;
    std::string notBefore;  ///< as "2026-03-01T09:30:00Z"
    std::string notAfter;
    long daysLeft = 0;               ///< until notAfter; negative behind it
    std::vector<std::string> names;  ///< host names and IPv4 addresses that it is for
    std::string problem;             ///< of the chain up to ca_file; empty when it is verified
    bool isForHost = false;          ///< the certificate is for the host that was connected to

    bool IsVerified() const { return problem.empty(); }
};

/// The settings of a client with the carrier's files. They accept any certificate: whether the chain is good is told by
/// TlsFacts. Throws ProbeError when a file cannot be used.
ProbeTlsContext MakeProbeTls(const Carrier& carrier);

/// The facts of a connection inside TLS to `host`, a name or an IPv4 address.
ProbeTlsFacts TlsFacts(SSL& tls, const std::string& host);

}  // namespace kvhost
