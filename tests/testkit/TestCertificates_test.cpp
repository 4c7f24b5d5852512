#include "TestCertificates.h"

#include <gtest/gtest.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

using kvtest::CertificateFiles;
using kvtest::TestCertificates;

namespace {

struct Close {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
struct Free {
    void operator()(X509* certificate) const { X509_free(certificate); }
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
};
using File = std::unique_ptr<std::FILE, Close>;
using Certificate = std::unique_ptr<X509, Free>;
using Key = std::unique_ptr<EVP_PKEY, Free>;

Certificate ReadCertificate(const std::string& path) {
    const File file(std::fopen(path.c_str(), "r"));
    return Certificate(file ? PEM_read_X509(file.get(), nullptr, nullptr, nullptr) : nullptr);
}

Key ReadKey(const std::string& path, const char* passPhrase) {
    const File file(std::fopen(path.c_str(), "r"));
    return Key(file ? PEM_read_PrivateKey(file.get(), nullptr, nullptr, const_cast<char*>(passPhrase))
                    : nullptr);
}

bool KeyFits(const CertificateFiles& files, const char* passPhrase = "") {
    const Certificate certificate = ReadCertificate(files.certificate);
    const Key key = ReadKey(files.key, passPhrase);
    return certificate && key && X509_check_private_key(certificate.get(), key.get()) == 1;
}

bool IsSignedBy(const std::string& path, const std::string& caFile) {
    const Certificate certificate = ReadCertificate(path);
    const Certificate ca = ReadCertificate(caFile);
    return certificate && ca && X509_verify(certificate.get(), X509_get0_pubkey(ca.get())) == 1;
}

const TestCertificates& Shared() {
    return TestCertificates::Shared();
}

}  // namespace

TEST(TestCertificatesTest, EachCertificateHasItsKey) {
    EXPECT_TRUE(KeyFits(Shared().server()));
    EXPECT_TRUE(KeyFits(Shared().client()));
    EXPECT_TRUE(KeyFits(Shared().selfSigned()));
    EXPECT_TRUE(KeyFits(Shared().expired()));
    EXPECT_TRUE(KeyFits(Shared().fromOtherCa()));
}

TEST(TestCertificatesTest, TheUnrelatedKeyFitsNone) {
    EXPECT_NE(ReadKey(Shared().unrelatedKeyFile(), ""), nullptr);
    EXPECT_FALSE(KeyFits({Shared().server().certificate, Shared().unrelatedKeyFile()}));
    EXPECT_FALSE(KeyFits({Shared().client().certificate, Shared().unrelatedKeyFile()}));
}

TEST(TestCertificatesTest, TheLockedKeyOpensWithThePassPhraseOnly) {
    EXPECT_TRUE(KeyFits(Shared().clientWithPassPhrase(), TestCertificates::passPhrase()));
    EXPECT_FALSE(KeyFits(Shared().clientWithPassPhrase(), "wrong"));
}

TEST(TestCertificatesTest, EachCertificateIsSignedByItsAuthority) {
    EXPECT_TRUE(IsSignedBy(Shared().server().certificate, Shared().caFile()));
    EXPECT_TRUE(IsSignedBy(Shared().client().certificate, Shared().caFile()));
    EXPECT_TRUE(IsSignedBy(Shared().expired().certificate, Shared().caFile()));
    EXPECT_TRUE(IsSignedBy(Shared().fromOtherCa().certificate, Shared().otherCaFile()));
    EXPECT_FALSE(IsSignedBy(Shared().fromOtherCa().certificate, Shared().caFile()));
    EXPECT_TRUE(IsSignedBy(Shared().selfSigned().certificate, Shared().selfSigned().certificate));
}

TEST(TestCertificatesTest, TheSetOfTheProcessIsMadeOnce) {
    EXPECT_EQ(&TestCertificates::Shared(), &TestCertificates::Shared());
    EXPECT_EQ(Shared().caFile(), Shared().caFile());
}

TEST(TestCertificatesTest, KeysAreForTheirOwnerOnly) {
    const auto permissions = std::filesystem::status(std::filesystem::path(Shared().caFile()).parent_path());
    EXPECT_EQ(permissions.permissions(), std::filesystem::perms::owner_all);
}

TEST(TestCertificatesTest, TheFilesGoWithTheSet) {
    std::string caFile;
    {
        const TestCertificates own;
        caFile = own.caFile();
        EXPECT_TRUE(std::filesystem::exists(caFile));
    }
    EXPECT_FALSE(std::filesystem::exists(caFile));
}
