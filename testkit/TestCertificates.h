#pragma once

#include <string>

#include "SmtpServerOptions.h"
#include "TempDir.h"

namespace kvtest {

/// Paths of a PEM certificate and its PEM private key.
struct CertificateFiles {
    std::string certificate;
    std::string key;
};

/// Certificates made at run time, as PEM files in a private folder. Immutable. EC P-256 keys throughout.
///
///     const TestCertificates& certificates = TestCertificates::Shared();
///     ScriptedSmtpServer server({.tls = certificates.serverTls()});
///     job.m_strSmtpCAFile = certificates.caFile();
class TestCertificates {
public:
    /// The set of this process, made by the first call; the files are removed when the process ends.
    static const TestCertificates& Shared();

    /// Throws std::runtime_error when OpenSSL refuses a step.
    TestCertificates();

    /// The authority that signed server(), client() and expired().
    const std::string& caFile() const { return m_caFile; }
    /// An authority that signed fromOtherCa() only.
    const std::string& otherCaFile() const { return m_otherCaFile; }
    /// CN localhost, valid for localhost and 127.0.0.1.
    const CertificateFiles& server() const { return m_server; }
    /// Subject "/CN=test client".
    const CertificateFiles& client() const { return m_client; }
    /// The key of client() under a pass phrase.
    const CertificateFiles& clientWithPassPhrase() const { return m_clientWithPassPhrase; }
    static const char* passPhrase() { return "open sesame"; }
    /// For localhost, signed with its own key.
    const CertificateFiles& selfSigned() const { return m_selfSigned; }
    /// As server(), but its time ended yesterday.
    const CertificateFiles& expired() const { return m_expired; }
    /// As server(), but signed by the other authority.
    const CertificateFiles& fromOtherCa() const { return m_fromOtherCa; }
    /// A private key that belongs to none of the certificates.
    const std::string& unrelatedKeyFile() const { return m_unrelatedKeyFile; }

    /// TLS options of a scripted server with server() that asks for no client certificate.
    TlsOptions serverTls() const { return tlsWith(m_server); }
    TlsOptions tlsWith(const CertificateFiles& files) const;
    /// As serverTls(), but a client certificate of caFile() is demanded.
    TlsOptions tlsDemandingClientCertificate() const;

private:
    TempDir m_dir;
    std::string m_caFile;
    std::string m_otherCaFile;
    CertificateFiles m_server;
    CertificateFiles m_client;
    CertificateFiles m_clientWithPassPhrase;
    CertificateFiles m_selfSigned;
    CertificateFiles m_expired;
    CertificateFiles m_fromOtherCa;
    std::string m_unrelatedKeyFile;
};

}  // namespace kvtest
