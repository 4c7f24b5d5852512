#include "TestCertificates.h"

#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <atomic>
#include <cstdio>
#include <memory>
#include <stdexcept>

namespace kvtest {

namespace {

template <auto Function>
struct FreeWith {
    template <typename Type>
    void operator()(Type* object) const {
        Function(object);
    }
};

using Key = std::unique_ptr<EVP_PKEY, FreeWith<EVP_PKEY_free>>;
using Certificate = std::unique_ptr<X509, FreeWith<X509_free>>;
using Extension = std::unique_ptr<X509_EXTENSION, FreeWith<X509_EXTENSION_free>>;
using File = std::unique_ptr<std::FILE, FreeWith<std::fclose>>;

constexpr long Day = 24L * 60 * 60;

void Require(bool done, const char* what) {
    if (!done) {
        ERR_clear_error();
        throw std::runtime_error(std::string("test certificates: ") + what);
    }
}

/// What a certificate is to say. Times are seconds from now.
struct Subject {
    const char* name;
    bool authority = false;
    const char* alternativeNames = nullptr;
    long begins = -10 * Day;
    long ends = 10 * Day;
};

constexpr const char* LocalNames = "DNS:localhost,IP:127.0.0.1";

struct Identity {
    Key key;
    Certificate certificate;
};

Key NewKey() {
    Key key(EVP_EC_gen("P-256"));
    Require(key != nullptr, "key");
    return key;
}

void Name(X509_NAME* name, const char* text) {
    Require(X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_UTF8,
                                       reinterpret_cast<const unsigned char*>(text), -1, -1, 0) == 1,
            "name");
}

void Extend(X509* certificate, X509* issuer, int kind, const char* value) {
    X509V3_CTX context;
    X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
    const Extension extension(X509V3_EXT_conf_nid(nullptr, &context, kind, value));
    Require(extension != nullptr && X509_add_ext(certificate, extension.get(), -1) == 1, "extension");
}

/// A certificate for the subject; signed by `issuer`, or by itself when that is null.
Identity Issue(const Subject& subject, const Identity* issuer) {
    static std::atomic<long> serial = 0;
    Identity made{NewKey(), Certificate(X509_new())};
    X509* const certificate = made.certificate.get();
    Require(certificate != nullptr, "certificate");
    X509_set_version(certificate, X509_VERSION_3);
    ASN1_INTEGER_set(X509_get_serialNumber(certificate), ++serial);
    X509_gmtime_adj(X509_getm_notBefore(certificate), subject.begins);
    X509_gmtime_adj(X509_getm_notAfter(certificate), subject.ends);
    X509_set_pubkey(certificate, made.key.get());
    Name(X509_get_subject_name(certificate), subject.name);

    X509* const signer = issuer == nullptr ? certificate : issuer->certificate.get();
    X509_set_issuer_name(certificate, X509_get_subject_name(signer));
    Extend(certificate, signer, NID_basic_constraints, subject.authority ? "critical,CA:TRUE" : "CA:FALSE");
    if (subject.authority) {
        Extend(certificate, signer, NID_key_usage, "critical,keyCertSign,cRLSign");
    }
    Extend(certificate, signer, NID_subject_key_identifier, "hash");
    Extend(certificate, signer, NID_authority_key_identifier, "keyid:always");
    if (subject.alternativeNames != nullptr) {
        Extend(certificate, signer, NID_subject_alt_name, subject.alternativeNames);
    }
    EVP_PKEY* const key = issuer == nullptr ? made.key.get() : issuer->key.get();
    Require(X509_sign(certificate, key, EVP_sha256()) > 0, "signature");
    return made;
}

File OpenFile(const std::string& path) {
    File file(std::fopen(path.c_str(), "we"));
    Require(file != nullptr, "file");
    return file;
}

std::string WriteCertificate(const std::string& path, const Identity& identity) {
    Require(PEM_write_X509(OpenFile(path).get(), identity.certificate.get()) == 1, "certificate file");
    return path;
}

std::string WriteKey(const std::string& path, EVP_PKEY* key, const char* passPhrase = nullptr) {
    const EVP_CIPHER* const cipher = passPhrase == nullptr ? nullptr : EVP_aes_128_cbc();
    // With a null key text and no callback OpenSSL takes the last argument as the pass phrase.
    Require(PEM_write_PrivateKey(OpenFile(path).get(), key, cipher, nullptr, 0, nullptr,
                                 const_cast<char*>(passPhrase)) == 1,
            "key file");
    return path;
}

CertificateFiles Write(const TempDir& dir, const std::string& name, const Identity& identity) {
    return {WriteCertificate(dir.file(name + ".pem"), identity),
            WriteKey(dir.file(name + ".key"), identity.key.get())};
}

}  // namespace

const TestCertificates& TestCertificates::Shared() {
    static const TestCertificates certificates;
    return certificates;
}

TestCertificates::TestCertificates() {
    const Identity ca = Issue({.name = "test CA", .authority = true}, nullptr);
    const Identity otherCa = Issue({.name = "another test CA", .authority = true}, nullptr);
    const Identity client = Issue({.name = "test client"}, &ca);
    const Subject localhost{.name = "localhost", .alternativeNames = LocalNames};
    Subject ended = localhost;
    ended.ends = -Day;

    m_caFile = WriteCertificate(m_dir.file("ca.pem"), ca);
    m_otherCaFile = WriteCertificate(m_dir.file("other-ca.pem"), otherCa);
    m_server = Write(m_dir, "server", Issue(localhost, &ca));
    m_client = Write(m_dir, "client", client);
    m_clientWithPassPhrase = {m_client.certificate,
                              WriteKey(m_dir.file("client-locked.key"), client.key.get(), passPhrase())};
    m_selfSigned = Write(m_dir, "self-signed", Issue(localhost, nullptr));
    m_expired = Write(m_dir, "expired", Issue(ended, &ca));
    m_fromOtherCa = Write(m_dir, "from-other-ca", Issue(localhost, &otherCa));
    m_unrelatedKeyFile = WriteKey(m_dir.file("unrelated.key"), NewKey().get());
}

TlsOptions TestCertificates::tlsWith(const CertificateFiles& files) const {
    return {.certificateFile = files.certificate, .keyFile = files.key};
}

TlsOptions TestCertificates::tlsDemandingClientCertificate() const {
    TlsOptions options = serverTls();
    options.clientCaFile = m_caFile;
    options.clientCertificate = ClientCertificate::Required;
    return options;
}

}  // namespace kvtest
