#include "SelfSigned.h"

#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>

#include <cstring>
#include <filesystem>
#include <system_error>

#include "AtomicFile.h"
#include "OpenSslPtr.h"
#include "StartError.h"

namespace kvsink {
namespace {

const long HOUR = 3600;
const long VALIDITY = 30L * 24 * HOUR;

template <typename T>
T* require(T* made) {
    if (made == nullptr) {
        throw StartError("--self-signed", takeOpenSslError());
    }
    return made;
}

void require(int succeeded) {
    if (succeeded <= 0) {
        throw StartError("--self-signed", takeOpenSslError());
    }
}

OpenSslPtr<EVP_PKEY> makeKey() {
    return OpenSslPtr<EVP_PKEY>(require(EVP_EC_gen("P-256")));
}

void setSerialNumber(X509& certificate) {
    unsigned char random[8];
    require(RAND_bytes(random, sizeof random));
    std::uint64_t number = 0;
    std::memcpy(&number, random, sizeof number);
    require(ASN1_INTEGER_set_uint64(X509_get_serialNumber(&certificate), number >> 1));
}

void setCommonName(X509& certificate, const char* name) {
    const auto* const bytes = reinterpret_cast<const unsigned char*>(name);
    require(X509_NAME_add_entry_by_txt(X509_get_subject_name(&certificate), "CN", MBSTRING_ASC, bytes, -1, -1,
                                       0));
}

/// A certificate without extensions and signature. It begins an hour ago, as clocks differ.
OpenSslPtr<X509> makeCertificate(EVP_PKEY& key, const char* name) {
    OpenSslPtr<X509> certificate(require(X509_new()));
    require(X509_set_version(certificate.get(), X509_VERSION_3));
    setSerialNumber(*certificate);
    setCommonName(*certificate, name);
    require(X509_gmtime_adj(X509_getm_notBefore(certificate.get()), -HOUR));
    require(X509_gmtime_adj(X509_getm_notAfter(certificate.get()), VALIDITY));
    require(X509_set_pubkey(certificate.get(), &key));
    return certificate;
}

void addExtension(X509& certificate, X509& issuer, int nid, const char* value) {
    X509V3_CTX context;
    X509V3_set_ctx(&context, &issuer, &certificate, nullptr, nullptr, 0);
    const OpenSslPtr<X509_EXTENSION> extension(require(X509V3_EXT_conf_nid(nullptr, &context, nid, value)));
    require(X509_add_ext(&certificate, extension.get(), -1));
}

void sign(X509& certificate, X509& issuer, EVP_PKEY& issuerKey) {
    require(X509_set_issuer_name(&certificate, X509_get_subject_name(&issuer)));
    addExtension(certificate, issuer, NID_authority_key_identifier, "keyid:always");
    require(X509_sign(&certificate, &issuerKey, EVP_sha256()));
}

OpenSslPtr<X509> makeAuthority(EVP_PKEY& key) {
    OpenSslPtr<X509> authority = makeCertificate(key, "kvsink authority");
    addExtension(*authority, *authority, NID_basic_constraints, "critical,CA:TRUE");
    addExtension(*authority, *authority, NID_key_usage, "critical,keyCertSign,cRLSign");
    addExtension(*authority, *authority, NID_subject_key_identifier, "hash");
    sign(*authority, *authority, key);
    return authority;
}

OpenSslPtr<X509> makeServerCertificate(EVP_PKEY& key, X509& authority, EVP_PKEY& authorityKey) {
    OpenSslPtr<X509> server = makeCertificate(key, "localhost");
    addExtension(*server, authority, NID_basic_constraints, "critical,CA:FALSE");
    addExtension(*server, authority, NID_key_usage, "critical,digitalSignature");
    addExtension(*server, authority, NID_ext_key_usage, "serverAuth");
    addExtension(*server, authority, NID_subject_alt_name, "DNS:localhost,IP:127.0.0.1,IP:::1");
    addExtension(*server, authority, NID_subject_key_identifier, "hash");
    sign(*server, authority, authorityKey);
    return server;
}

std::string contentsOf(BIO& memory) {
    char* bytes = nullptr;
    const long length = BIO_get_mem_data(&memory, &bytes);
    return {bytes, static_cast<std::size_t>(length)};
}

std::string pemOf(X509& certificate) {
    const OpenSslPtr<BIO> memory(require(BIO_new(BIO_s_mem())));
    require(PEM_write_bio_X509(memory.get(), &certificate));
    return contentsOf(*memory);
}

std::string pemOf(EVP_PKEY& key) {
    const OpenSslPtr<BIO> memory(require(BIO_new(BIO_s_mem())));
    require(PEM_write_bio_PKCS8PrivateKey(memory.get(), &key, nullptr, nullptr, 0, nullptr, nullptr));
    return contentsOf(*memory);
}

}  // namespace

void writeSelfSignedCertificates(const std::string& directory) {
    const OpenSslPtr<EVP_PKEY> authorityKey = makeKey();
    const OpenSslPtr<X509> authority = makeAuthority(*authorityKey);
    const OpenSslPtr<EVP_PKEY> key = makeKey();
    const OpenSslPtr<X509> certificate = makeServerCertificate(*key, *authority, *authorityKey);
    try {
        std::filesystem::create_directories(directory);
        writeFileAtomically(directory + "/ca.pem", pemOf(*authority), 0644);
        writeFileAtomically(directory + "/cert.pem", pemOf(*certificate), 0644);
        writeFileAtomically(directory + "/key.pem", pemOf(*key), 0600);
    } catch (const std::system_error& error) {
        throw StartError("--self-signed", error.what());
    }
}

}  // namespace kvsink
