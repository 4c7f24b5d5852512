#pragma once

// Failures of OpenSSL that cannot be provoked from outside. The program is linked so that the calls below of
// our own object files come here first.

namespace kvtest {

enum class TlsCall {
    NewConnection,    ///< SSL_new
    SetDescriptor,    ///< SSL_set_fd
    PeerCertificate,  ///< SSL_get1_peer_certificate
    NameText          ///< X509_NAME_oneline
};

/// Fails one call of this thread, `afterCalls` others spared, while it lives. One at a time on a thread.
class FailedTlsCall {
public:
    explicit FailedTlsCall(TlsCall call, int afterCalls = 0);
    ~FailedTlsCall();
    FailedTlsCall(const FailedTlsCall&) = delete;
    FailedTlsCall& operator=(const FailedTlsCall&) = delete;
};

}  // namespace kvtest
