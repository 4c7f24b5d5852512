#include "ConfigReader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>

#include "TempDir.h"

namespace kvhost {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

/// A configuration file in a folder of its own, with the files that it may name.
class ConfigReaderTest : public testing::Test {
protected:
    HostConfig Read(const std::string& text) { return ReadConfig(m_folder.write("kvhost.toml", text)); }

    /// The text of the BadInput that reading throws, with the folder's path taken out.
    std::string FaultOf(const std::string& text) {
        try {
            Read(text);
        } catch (const BadInput& fault) {
            return WithoutFolder(fault.what());
        }
        return "no fault";
    }

    /// The faults of the carriers of `text`.
    std::vector<std::string> CarrierFaultsOf(const std::string& text) {
        std::vector<std::string> faults;
        for (const Problem& problem : Read(text).problems) {
            faults.push_back(WithoutFolder(Describe(problem)));
        }
        return faults;
    }

    std::string WithoutFolder(std::string text) const {
        const std::string path = m_folder.path() + "/";
        for (auto at = text.find(path); at != std::string::npos; at = text.find(path)) {
            text.erase(at, path.size());
        }
        return text;
    }

    const kvtest::TempDir m_folder;
    const std::string m_strCaFile = m_folder.write("ca.pem", "certificate");
};

constexpr const char* kPager =
    "[carrier.pager]\n"
    "server = \"mx.example.org\"\n"
    "security = \"clear\"\n"
    "sender = \"pager@example.org\"\n";

TEST_F(ConfigReaderTest, AnEmptyFileHasNoSettingsAndNoCarriers) {
    const HostConfig config = Read("");
    EXPECT_THAT(config.driverSettings, IsEmpty());
    EXPECT_THAT(config.carriers, IsEmpty());
    EXPECT_EQ(config.logLevel, spdlog::level::warn);
    EXPECT_EQ(config.logFile, "");
}

TEST_F(ConfigReaderTest, TheDriverSettingsGetTheDriversKeys) {
    const HostConfig config = Read(
        "[driver]\nthreadpool_size = 4\ndiff_carrier_connection_count = 20\n"
        "same_carrier_connection_count = 5\nmax_pins_per_transaction = 7\n");
    EXPECT_THAT(config.driverSettings, ElementsAre(Pair("smart_driver.diff_carrier_connection_count", "20"),
                                                   Pair("smart_driver.max_pins_per_transaction", "7"),
                                                   Pair("smart_driver.same_carrier_connection_count", "5"),
                                                   Pair("smart_driver.threadpool_size", "4")));
}

TEST_F(ConfigReaderTest, ADriverSettingBelowOneIsRefused) {
    EXPECT_EQ(FaultOf("[driver]\n\nmax_pins_per_transaction = 0\n"),
              "kvhost.toml:3: driver.max_pins_per_transaction: expected an integer from 1 to 10000, found 0");
    EXPECT_EQ(FaultOf("[driver]\nthreadpool_size = -1\n"),
              "kvhost.toml:2: driver.threadpool_size: expected an integer from 1 to 1000, found -1");
}

TEST_F(ConfigReaderTest, ADriverSettingOfAnotherTypeIsRefused) {
    EXPECT_EQ(FaultOf("[driver]\nthreadpool_size = \"4\"\n"),
              "kvhost.toml:2: driver.threadpool_size: expected an integer from 1 to 1000, found a string");
}

TEST_F(ConfigReaderTest, AnUnknownDriverSettingIsRefused) {
    EXPECT_EQ(FaultOf("[driver]\nthreads = 4\n"),
              "kvhost.toml:2: driver.threads: unknown field, expected plugin, threadpool_size, "
              "diff_carrier_connection_count, same_carrier_connection_count or max_pins_per_transaction");
}

TEST_F(ConfigReaderTest, EveryFaultIsNamedOnALineOfItsOwn) {
    EXPECT_EQ(FaultOf("colour = 1\n[log]\nlevel = \"loud\"\n"),
              "kvhost.toml:3: log.level: expected trace, debug, info, warning, error or off\n"
              "kvhost.toml:1: colour: unknown field, expected store, driver, log, run, limits, delivery_log, "
              "http, retry or "
              "carrier");
}

TEST_F(ConfigReaderTest, TheLogSettingsAreRead) {
    const HostConfig config = Read("[log]\nlevel = \"trace\"\nfile = \"logs/kv.log\"\n");
    EXPECT_EQ(config.logLevel, spdlog::level::trace);
    EXPECT_EQ(config.logFile, m_folder.path() + "/logs/kv.log");
}

TEST_F(ConfigReaderTest, AnUnknownLogFieldIsRefused) {
    EXPECT_EQ(FaultOf("[log]\ncolour = true\n"),
              "kvhost.toml:2: log.colour: unknown field, expected level, file, bytes or files");
}

TEST_F(ConfigReaderTest, ASectionThatIsNoTableIsRefused) {
    EXPECT_EQ(FaultOf("driver = 1.5\n"),
              "kvhost.toml:1: driver: expected a table, found a floating-point number");
    EXPECT_EQ(FaultOf("carrier = \"pager\"\n"),
              "kvhost.toml:1: carrier: expected [[carrier]] or [carrier.NAME], found a string");
}

TEST_F(ConfigReaderTest, MalformedTomlIsRefusedWithItsLine) {
    EXPECT_THAT(FaultOf("[driver]\nthreadpool_size = \n"),
                testing::StartsWith("kvhost.toml:2: expected TOML: "));
}

TEST_F(ConfigReaderTest, MalformedTomlIsToldInVisibleText) {
    EXPECT_THAT(FaultOf("key = n\a\n"), testing::Not(testing::HasSubstr("\a")));
}

TEST_F(ConfigReaderTest, AMissingFileIsRefused) {
    try {
        ReadConfig(m_folder.file("none.toml"));
        FAIL();
    } catch (const BadInput& fault) {
        EXPECT_THAT(fault.what(), testing::HasSubstr("No such file or directory"));
    }
}

TEST_F(ConfigReaderTest, ACarrierIsReadWholly) {
    m_folder.write("cert.pem", "c");
    m_folder.write("key.pem", "k");
    const HostConfig config = Read(
        "[[carrier]]\nname = \"alarms\"\nid = 7\nserver = \"mx1\"\nport = 587\nsecurity = \"required\"\n"
        "user = \"u\"\npassword = \"p\"\nsender = \"alarms@example.org\"\n"
        "ca_file = \"ca.pem\"\ncert_file = \"cert.pem\"\nkey_file = \"key.pem\"\n");
    const Carrier& carrier = config.carriers.at("alarms");
    EXPECT_EQ(carrier.name, "alarms");
    EXPECT_EQ(carrier.id, 7U);
    EXPECT_EQ(carrier.server, "mx1:587");
    EXPECT_EQ(carrier.security, SMTP_SECURITY_REQUIRED);
    EXPECT_EQ(carrier.user, "u");
    EXPECT_EQ(carrier.password, "p");
    EXPECT_EQ(carrier.sender, "alarms@example.org");
    EXPECT_EQ(carrier.caFile, m_strCaFile);
    EXPECT_EQ(carrier.certFile, m_folder.file("cert.pem"));
    EXPECT_EQ(carrier.keyFile, m_folder.file("key.pem"));
}

TEST_F(ConfigReaderTest, ACarrierMayBeATableOfItsName) {
    const HostConfig config = Read(kPager);
    EXPECT_EQ(config.carriers.at("pager").name, "pager");
    EXPECT_EQ(config.carriers.at("pager").server, "mx.example.org");
}

TEST_F(ConfigReaderTest, TheNamesOfTheSecuritySettingsHaveTheHostsValues) {
    const std::string rest = "\nserver = \"mx\"\nsender = \"a@b\"\nca_file = \"ca.pem\"\n";
    const HostConfig config = Read(
        "[carrier.a]\nsecurity = \"on-demand\"" + rest + "[carrier.b]\nsecurity = \"clear\"" + rest +
        "[carrier.c]\nsecurity = \"if-available\"" + rest + "[carrier.d]\nsecurity = \"required\"" + rest);
    EXPECT_EQ(static_cast<int>(config.carriers.at("a").security), 0);
    EXPECT_EQ(static_cast<int>(config.carriers.at("b").security), 1);
    EXPECT_EQ(static_cast<int>(config.carriers.at("c").security), 2);
    EXPECT_EQ(static_cast<int>(config.carriers.at("d").security), 3);
}

TEST_F(ConfigReaderTest, AnUnknownSecuritySettingIsRefused) {
    EXPECT_THAT(CarrierFaultsOf("[carrier.a]\nserver = \"mx\"\nsender = \"a@b\"\nsecurity = \"tls\"\n"),
                ElementsAre("kvhost.toml:4: carrier.a.security: expected \"on-demand\", \"clear\", "
                            "\"if-available\" or \"required\", found \"tls\""));
}

TEST_F(ConfigReaderTest, ACarrierThatWantsTlsNeedsACaFile) {
    for (const std::string security : {"required", "if-available"}) {
        EXPECT_THAT(
            CarrierFaultsOf("[carrier.a]\nserver = \"mx\"\nsender = \"a@b\"\nsecurity = \"" + security +
                            "\"\n"),
            ElementsAre(
                "kvhost.toml:1: carrier.a.ca_file: expected the file of the trusted certificates, which "
                "this security needs; the field is missing"));
    }
}

TEST_F(ConfigReaderTest, MissingFieldsAreRefusedWithTheLineOfTheCarrier) {
    EXPECT_THAT(CarrierFaultsOf("\n[[carrier]]\n"),
                ElementsAre("kvhost.toml:2: carrier[1].name: expected a string, the field is missing",
                            "kvhost.toml:2: carrier[1].server: expected a string, the field is missing",
                            "kvhost.toml:2: carrier[1].security: expected a string, the field is missing",
                            "kvhost.toml:2: carrier[1].sender: expected a string, the field is missing"));
}

TEST_F(ConfigReaderTest, AnUnknownCarrierFieldIsRefused) {
    EXPECT_THAT(
        CarrierFaultsOf(std::string(kPager) + "tls = true\n"),
        ElementsAre("kvhost.toml:5: carrier.pager.tls: unknown field, expected name, id, server, port, "
                    "security, sender, user, password, password_file, password_env, ca_file, cert_file, "
                    "key_file, on_doubt or retry"));
}

TEST_F(ConfigReaderTest, APortOutOfRangeIsRefused) {
    for (const std::string port : {"0", "65536"}) {
        EXPECT_THAT(
            CarrierFaultsOf(kPager + ("port = " + port + "\n")),
            ElementsAre("kvhost.toml:5: carrier.pager.port: expected an integer from 1 to 65535, found " +
                        port));
    }
}

TEST_F(ConfigReaderTest, AServerWithAPortIsRefused) {
    EXPECT_THAT(
        CarrierFaultsOf("[carrier.a]\nserver = \"mx:25\"\nsender = \"a@b\"\nsecurity = \"clear\"\n"),
        ElementsAre("kvhost.toml:2: carrier.a.server: expected a host name or an IPv4 address; the port "
                    "has a field of its own"));
}

TEST_F(ConfigReaderTest, AMissingCaFileIsRefused) {
    EXPECT_THAT(
        CarrierFaultsOf(std::string(kPager) + "ca_file = \"none.pem\"\n"),
        ElementsAre("kvhost.toml:5: carrier.pager.ca_file: expected a readable file, \"none.pem\": No such "
                    "file or directory"));
}

TEST_F(ConfigReaderTest, ACertificateNeedsItsKey) {
    EXPECT_THAT(
        CarrierFaultsOf(std::string(kPager) + "cert_file = \"ca.pem\"\n"),
        ElementsAre("kvhost.toml:1: carrier.pager.key_file: expected cert_file and key_file together, the "
                    "field is missing"));
}

TEST_F(ConfigReaderTest, TheNameOfANamedTableIsNotGivenTwice) {
    EXPECT_THAT(
        CarrierFaultsOf(std::string(kPager) + "name = \"pager\"\n"),
        ElementsAre("kvhost.toml:5: carrier.pager.name: expected no name here, the table's own is the "
                    "carrier's"));
}

TEST_F(ConfigReaderTest, ACarrierThatIsNoTableIsRefused) {
    const HostConfig config = Read("[carrier]\npager = 3\n");
    EXPECT_THAT(CarrierFaultsOf("[carrier]\npager = 3\n"),
                ElementsAre("kvhost.toml:2: carrier.pager: expected a table, found an integer"));
    EXPECT_EQ(config.refusedCarriers.count("pager"), 1U);
}

TEST_F(ConfigReaderTest, ARefusedCarrierLeavesTheOthersUsable) {
    const HostConfig config = Read(std::string("[carrier.broken]\nserver = 3\n") + kPager);
    EXPECT_EQ(config.carriers.size(), 1U);
    EXPECT_EQ(config.carriers.count("pager"), 1U);
    EXPECT_THAT(WithoutFolder(config.refusedCarriers.at("broken")),
                "kvhost.toml:2: carrier.broken.server: expected a string, found an integer; "
                "kvhost.toml:1: carrier.broken.security: expected a string, the field is missing; "
                "kvhost.toml:1: carrier.broken.sender: expected a string, the field is missing");
}

TEST_F(ConfigReaderTest, OfCarriersWithOneNameNoneIsUsable) {
    const std::string carrier =
        "[[carrier]]\nname = \"a\"\nserver = \"mx\"\nsecurity = \"clear\"\nsender = \"a@b\"\n";
    const HostConfig config = Read(carrier + carrier);
    EXPECT_THAT(config.carriers, IsEmpty());
    EXPECT_EQ(WithoutFolder(config.refusedCarriers.at("a")),
              "kvhost.toml:6: carrier[2]: the name is given twice; expected one carrier of each name");
}

TEST_F(ConfigReaderTest, CarriersWithoutAnIdGetTheFreeNumbers) {
    const std::string rest = "server = \"mx\"\nsecurity = \"clear\"\nsender = \"a@b\"\n";
    const HostConfig config =
        Read("[[carrier]]\nname = \"z\"\n" + rest + "[[carrier]]\nname = \"a\"\nid = 1\n" + rest +
             "[[carrier]]\nname = \"b\"\n" + rest);
    EXPECT_EQ(config.carriers.at("z").id, 2U);
    EXPECT_EQ(config.carriers.at("a").id, 1U);
    EXPECT_EQ(config.carriers.at("b").id, 3U);
}

TEST_F(ConfigReaderTest, AnIdOfAnotherCarrierIsRefused) {
    const std::string rest = "id = 5\nserver = \"mx\"\nsecurity = \"clear\"\nsender = \"a@b\"\n";
    const HostConfig config = Read("[carrier.a]\n" + rest + "[carrier.b]\n" + rest);
    EXPECT_EQ(config.carriers.count("a"), 1U);
    EXPECT_EQ(WithoutFolder(config.refusedCarriers.at("b")),
              "kvhost.toml:6: carrier.b.id: expected an id of its own, 5 is another carrier's");
}

TEST_F(ConfigReaderTest, ThePasswordMayComeFromAFileWithoutItsLineEnd) {
    m_folder.write("secret", "s3 cret\n");
    const HostConfig config = Read(std::string(kPager) + "user = \"u\"\npassword_file = \"secret\"\n");
    EXPECT_EQ(config.carriers.at("pager").password, "s3 cret");
}

TEST_F(ConfigReaderTest, ThePasswordMayComeFromTheEnvironment) {
    ASSERT_EQ(::setenv("KVHOST_TEST_PASSWORD", "from outside", 1), 0);
    const HostConfig config =
        Read(std::string(kPager) + "user = \"u\"\npassword_env = \"KVHOST_TEST_PASSWORD\"\n");
    ::unsetenv("KVHOST_TEST_PASSWORD");
    EXPECT_EQ(config.carriers.at("pager").password, "from outside");
}

TEST_F(ConfigReaderTest, AVariableThatIsNotSetIsRefused) {
    EXPECT_THAT(
        CarrierFaultsOf(std::string(kPager) + "user = \"u\"\npassword_env = \"KVHOST_TEST_UNSET\"\n"),
        testing::Contains("kvhost.toml:6: carrier.pager.password_env: expected the name of an environment "
                          "variable that is set"));
}

TEST_F(ConfigReaderTest, ThePasswordComesFromOnePlace) {
    EXPECT_THAT(
        CarrierFaultsOf(std::string(kPager) + "user = \"u\"\npassword = \"p\"\npassword_env = \"HOME\"\n"),
        ElementsAre("kvhost.toml:7: carrier.pager.password_env: expected one of password, password_file "
                    "and password_env, found \"password\" as well"));
}

TEST_F(ConfigReaderTest, AUserNeedsAPasswordAndThePasswordAUser) {
    EXPECT_THAT(
        CarrierFaultsOf(std::string(kPager) + "user = \"u\"\n"),
        ElementsAre("kvhost.toml:5: carrier.pager.user: expected password, password_file or password_env "
                    "with it"));
    EXPECT_THAT(CarrierFaultsOf(std::string(kPager) + "password = \"p\"\n"),
                ElementsAre("kvhost.toml:5: carrier.pager.password: expected a user with it"));
}

TEST_F(ConfigReaderTest, APasswordThatCannotBeReadIsOneFault) {
    const std::vector<std::string> faults =
        CarrierFaultsOf(std::string(kPager) + "user = \"u\"\npassword_file = \"missing\"\n");
    ASSERT_EQ(faults.size(), 1U);
    EXPECT_THAT(faults[0],
                testing::StartsWith("kvhost.toml:6: carrier.pager.password_file: expected a readable file"));
    EXPECT_EQ(
        CarrierFaultsOf(std::string(kPager) + "user = \"u\"\npassword_env = \"KVHOST_TEST_UNSET\"\n").size(),
        1U);
}

TEST_F(ConfigReaderTest, AnEmptyPasswordIsRefused) {
    EXPECT_THAT(CarrierFaultsOf(std::string(kPager) + "user = \"u\"\npassword = \"\"\n"),
                ElementsAre("kvhost.toml:6: carrier.pager.password: expected a password, found none"));
}

TEST_F(ConfigReaderTest, ARefusedPasswordIsNotRepeated) {
    for (const std::string& fault :
         CarrierFaultsOf(std::string(kPager) + "user = \"u\"\npassword = \"hunter2\\n\"\n")) {
        EXPECT_THAT(fault, testing::Not(testing::HasSubstr("hunter2")));
    }
}

TEST_F(ConfigReaderTest, ASenderThatCouldAddACommandIsRefused) {
    EXPECT_THAT(
        CarrierFaultsOf("[carrier.a]\nserver = \"mx\"\nsecurity = \"clear\"\nsender = \"a@b>\\r\\nX\"\n"),
        ElementsAre("kvhost.toml:4: carrier.a.sender: expected a mail address without control characters "
                    "and without \"<\" and \">\""));
}

}  // namespace
}  // namespace kvhost
