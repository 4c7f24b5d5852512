#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ConfigReader.h"
#include "TempDir.h"

namespace kvhost {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;

constexpr const char* kCarrier =
    "[carrier.pager]\n"
    "server = \"mx.example.org\"\n"
    "security = \"clear\"\n"
    "sender = \"pager@example.org\"\n";

class ConfigSecretsTest : public testing::Test {
protected:
    HostConfig Read(const std::string& text, SecretsUse secrets) {
        return ReadConfig(m_folder.write("kvhost.toml", text), secrets);
    }
    /// Why the carrier "pager" is refused; empty when it is not.
    std::string RefusalOf(const std::string& fields, SecretsUse secrets = SecretsUse::Read) {
        const HostConfig config = Read(kCarrier + fields, secrets);
        const auto found = config.refusedCarriers.find("pager");
        return found == config.refusedCarriers.end() ? "" : found->second;
    }

    const kvtest::TempDir m_folder;
};

TEST_F(ConfigSecretsTest, APasswordFileThatCannotBeReadRefusesTheCarrierOnlyWhereItIsNeeded) {
    const std::string fields = "user = \"u\"\npassword_file = \"no-such\"\n";
    EXPECT_THAT(RefusalOf(fields), HasSubstr("carrier.pager.password_file: expected a readable file"));
    EXPECT_EQ(RefusalOf(fields, SecretsUse::Skip), "");
}

TEST_F(ConfigSecretsTest, AVariableThatIsNotSetRefusesTheCarrierOnlyWhereItIsNeeded) {
    const std::string fields = "user = \"u\"\npassword_env = \"KV_NO_SUCH_VARIABLE\"\n";
    EXPECT_THAT(RefusalOf(fields), HasSubstr("carrier.pager.password_env: expected the name"));
    EXPECT_EQ(RefusalOf(fields, SecretsUse::Skip), "");
}

TEST_F(ConfigSecretsTest, APrivateKeyIsOpenedOnlyWhereItIsNeeded) {
    m_folder.write("cert.pem", "certificate");
    const std::string fields = "cert_file = \"cert.pem\"\nkey_file = \"no-such\"\n";
    EXPECT_THAT(RefusalOf(fields), HasSubstr("carrier.pager.key_file: expected a readable file"));
    EXPECT_EQ(RefusalOf(fields, SecretsUse::Skip), "");
}

TEST_F(ConfigSecretsTest, ATokenFileIsOpenedOnlyWhereItIsNeeded) {
    const std::string text = "[http]\nsubmit = true\ntoken_file = \"no-such\"\n";
    EXPECT_THROW(Read(text, SecretsUse::Read), BadInput);
    EXPECT_TRUE(Read(text, SecretsUse::Skip).http.takesJobs);
}

TEST_F(ConfigSecretsTest, WhatIsSkippedIsEmpty) {
    m_folder.write("password", "secret\n");
    const HostConfig config =
        Read(std::string(kCarrier) + "user = \"u\"\npassword_file = \"password\"\n", SecretsUse::Skip);
    EXPECT_EQ(config.carriers.at("pager").user, "u");
    EXPECT_THAT(config.carriers.at("pager").password, IsEmpty());
}

TEST_F(ConfigSecretsTest, FaultsThatNeedNoSecretAreFoundWithoutThem) {
    EXPECT_THAT(RefusalOf("user = \"u\"\n", SecretsUse::Skip),
                HasSubstr("user: expected password, password_file or password_env with it"));
    EXPECT_THAT(RefusalOf("ca_file = \"no-such\"\n", SecretsUse::Skip), HasSubstr("ca_file"));
}

TEST_F(ConfigSecretsTest, AccountsThatCouldShareAKeyOfTheDriverAreRefused) {
    EXPECT_THAT(RefusalOf("user = \"u}-{v\"\npassword = \"p\"\n"),
                HasSubstr("carrier.pager.user: expected a text without \"}-{\""));
    const std::string refusal = RefusalOf("user = \"u\"\npassword = \"pass}-{word\"\n");
    EXPECT_THAT(refusal, HasSubstr("carrier.pager.password: expected a text without \"}-{\""));
    EXPECT_THAT(refusal, testing::Not(HasSubstr("word\"")));
}

TEST_F(ConfigSecretsTest, BracesThatKeepKeysApartAreTaken) {
    EXPECT_EQ(RefusalOf("user = \"{u}\"\npassword = \"}p{-\"\n"), "");
}

}  // namespace
}  // namespace kvhost
