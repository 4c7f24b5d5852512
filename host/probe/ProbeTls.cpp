#include "ProbeTls.h"

#include <arpa/inet.h>
#include <openssl/x509v3.h>

#include <array>
#include <cstdio>
#include <ctime>

#include "ProbeError.h"

namespace kvhost {

namespace {

void Require(bool isDone, const std::string& what) {
    if (!isDone) {
        throw ProbeError(what + ": " + TakeTlsReason());
    }
}

/// A key under a pass phrase cannot be used: nobody is asked for it.
int NoPassPhrase(char*, int, int, void*) {
    return 0;
}

void UseClientCertificate(SSL_CTX* context, const Carrier& carrier) {
    SSL_CTX_set_default_passwd_cb(context, NoPassPhrase);
    Require(SSL_CTX_use_certificate_file(context, carrier.certFile.c_str(), SSL_FILETYPE_PEM) > 0,
            "the cert_file has no certificate that can be used");
    Require(SSL_CTX_use_PrivateKey_file(context, carrier.keyFile.c_str(), SSL_FILETYPE_PEM) > 0,
            "the key_file has no key that can be used");
}

std::string NameText(const X509_NAME* name) {
    const std::unique_ptr<BIO, decltype(&BIO_free)> text(BIO_new(BIO_s_mem()), BIO_free);
    X509_NAME_print_ex(text.get(), name, 0, XN_FLAG_RFC2253);
    char* bytes = nullptr;
    const long length = BIO_get_mem_data(text.get(), &bytes);
    return length > 0 ? std::string(bytes, static_cast<std::size_t>(length)) : std::string();
}

std::string MomentText(const ASN1_TIME* time) {
    tm parts{};
    if (ASN1_TIME_to_tm(time, &parts) != 1) {
        return "unknown";
    }
    std::array<char, 32> text{};
    std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &parts);
    return text.data();
}

long DaysUntil(const ASN1_TIME* time) {
    int days = 0;
    int seconds = 0;
    ASN1_TIME_diff(&days, &seconds, nullptr, time);
    return days;
}

std::string BytesOf(const ASN1_STRING* text) {
    return {reinterpret_cast<const char*>(ASN1_STRING_get0_data(text)),
            static_cast<std::size_t>(ASN1_STRING_length(text))};
}

std::string AddressText(const std::string& bytes) {
    std::array<char, INET_ADDRSTRLEN> text{};
    return bytes.size() == 4 && ::inet_ntop(AF_INET, bytes.data(), text.data(), text.size()) != nullptr
               ? text.data()
               : std::string();
}

std::string AlternativeName(const GENERAL_NAME& name) {
    if (name.type == GEN_DNS) {
        return BytesOf(name.d.dNSName);
    }
    return name.type == GEN_IPADD ? AddressText(BytesOf(name.d.iPAddress)) : std::string();
}

std::vector<std::string> AlternativeNames(X509* certificate) {
    std::vector<std::string> texts;
    auto* const names =
        static_cast<GENERAL_NAMES*>(X509_get_ext_d2i(certificate, NID_subject_alt_name, nullptr, nullptr));
    for (int i = 0; i < sk_GENERAL_NAME_num(names); ++i) {
        const std::string text = AlternativeName(*sk_GENERAL_NAME_value(names, i));
        if (!text.empty()) {
            texts.push_back(text);
        }
    }
    GENERAL_NAMES_free(names);
    return texts;
}

bool IsFor(X509* certificate, const std::string& host) {
    return X509_check_ip_asc(certificate, host.c_str(), 0) == 1 ||
           X509_check_host(certificate, host.data(), host.size(), 0, nullptr) == 1;
}

}  // namespace

ProbeTlsContext MakeProbeTls(const Carrier& carrier) {
    ProbeTlsContext context(SSL_CTX_new(TLS_client_method()));
    Require(context != nullptr, "TLS cannot be set up");
    SSL_CTX_set_verify(context.get(), SSL_VERIFY_NONE, nullptr);
    Require(
        !carrier.caFile.empty() &&
            SSL_CTX_load_verify_locations(context.get(), carrier.caFile.c_str(), nullptr) == 1,
        carrier.caFile.empty() ? "there is no ca_file" : "the ca_file has no certificate that can be used");
    if (!carrier.certFile.empty()) {
        UseClientCertificate(context.get(), carrier);
    }
    return context;
}

ProbeTlsFacts TlsFacts(SSL& tls, const std::string& host) {
    ProbeTlsFacts facts;
    facts.version = SSL_get_version(&tls);
    facts.cipher = SSL_get_cipher_name(&tls);
    const long verified = SSL_get_verify_result(&tls);
    facts.problem = verified == X509_V_OK ? "" : X509_verify_cert_error_string(verified);
    const std::unique_ptr<X509, FreeProbeTls> certificate(SSL_get1_peer_certificate(&tls));
    if (certificate == nullptr) {
        facts.problem = "the server has no certificate";
        return facts;
    }
    facts.subject = NameText(X509_get_subject_name(certificate.get()));
    facts.issuer = NameText(X509_get_issuer_name(certificate.get()));
    facts.notBefore = MomentText(X509_get0_notBefore(certificate.get()));
    facts.notAfter = MomentText(X509_get0_notAfter(certificate.get()));
    facts.daysLeft = DaysUntil(X509_get0_notAfter(certificate.get()));
    facts.names = AlternativeNames(certificate.get());
    facts.isForHost = IsFor(certificate.get(), host);
    return facts;
}

}  // namespace kvhost
