#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "ChildProcess.h"
#include "ScriptedSmtpServer.h"
#include "TempDir.h"
#include "TestCertificates.h"

namespace kvhosttest {
namespace {

using kvtest::ScriptedSmtpServer;
using kvtest::TestCertificates;
using testing::HasSubstr;
using testing::Not;

/// "kvhost carrier test" as a program, against a server that takes the account.
class CarrierTestCommandTest : public testing::Test {
protected:
    CarrierTestCommandTest()
        : m_server({.accounts = {{"pager@example.org", "s3cret-word"}},
                    .tls = TestCertificates::Shared().serverTls()}) {
        m_config = m_folder.write(
            "kvhost.toml",
            "[carrier.pager]\nserver = \"127.0.0.1\"\nport = " + std::to_string(m_server.port()) +
                "\nsecurity = \"required\"\nsender = \"ann@example.org\"\n"
                "user = \"pager@example.org\"\npassword = \"s3cret-word\"\n"
                "ca_file = \"" +
                TestCertificates::Shared().caFile() + "\"\n[carrier.broken]\nserver = \"x\"\n");
    }

    /// Runs "kvhost carrier test" with these arguments and answers its exit status.
    int Run(std::vector<std::string> arguments, const std::map<std::string, std::string>& environment = {}) {
        arguments.insert(arguments.begin(), {KV_BINARY_DIR "/kvhost", "carrier", "test"});
        ChildProcess kvhost(arguments, {"", environment});
        const int status = kvhost.Wait();
        m_output = kvhost.Output();
        m_error = kvhost.Error();
        EXPECT_THAT(m_output + m_error, Not(HasSubstr("s3cret-word")));
        return status;
    }

    const kvtest::TempDir m_folder;
    ScriptedSmtpServer m_server;
    std::string m_config;
    std::string m_output;
    std::string m_error;
};

TEST_F(CarrierTestCommandTest, AUsableCarrierIsSuccess) {
    EXPECT_EQ(Run({"pager", "--config", m_config}), 0) << m_output << m_error;
    EXPECT_THAT(m_output,
                HasSubstr("carrier pager, server " + m_server.address() + ", security required\n\n"));
    EXPECT_THAT(m_output, HasSubstr("\nok       AUTH         PLAIN accepted for pager@example.org\n"));
    EXPECT_THAT(m_output, HasSubstr("\n                      subject CN=localhost\n"));
    EXPECT_THAT(m_output, HasSubstr("\n\nusable; no mail was sent\n"));
    EXPECT_EQ(m_server.commandCount("MAIL"), 0);
}

TEST_F(CarrierTestCommandTest, AnUnusableCarrierIsFailure) {
    m_server.on(kvtest::step::AuthPlain).reply("535 5.7.8 no\r\n");
    EXPECT_EQ(Run({"pager", "--config", m_config}), 1);
    EXPECT_THAT(
        m_output,
        HasSubstr("\nnot usable: AUTH: PLAIN refused; the driver gives the connection up: 535 5.7.8 no\n"));
}

TEST_F(CarrierTestCommandTest, TheJsonReportHasEveryStep) {
    EXPECT_EQ(Run({"pager", "--config", m_config, "--json"}), 0) << m_error;
    const auto report = nlohmann::json::parse(m_output);
    EXPECT_EQ(report["carrier"], "pager");
    EXPECT_EQ(report["server"], m_server.address());
    EXPECT_EQ(report["security"], "required");
    EXPECT_EQ(report["usable"], true);
    EXPECT_EQ(report["error"], "");
    EXPECT_EQ(report["exit_status"], 0);
    EXPECT_EQ(report["steps"].size(), 8U);
    EXPECT_EQ(report["steps"][2]["name"], "greeting");
    EXPECT_EQ(report["steps"][2]["status"], "ok");
    EXPECT_EQ(report["steps"][2]["text"], "220 test.example ESMTP");
    EXPECT_TRUE(report["steps"][2]["ms"].is_number_unsigned() || report["steps"][2]["ms"] == 0);
    EXPECT_EQ(report["extensions"], nlohmann::json({"AUTH PLAIN LOGIN"}));
    EXPECT_EQ(report["tls"]["verified"], true);
    EXPECT_EQ(report["tls"]["names"], nlohmann::json({"localhost", "127.0.0.1"}));
    EXPECT_EQ(report["auth"], nlohmann::json({{"mechanism", "PLAIN"}, {"accepted", true}}));
}

TEST_F(CarrierTestCommandTest, TheJsonReportOfAFailureHasNothingOfStepsThatWereNotTaken) {
    m_server.on(kvtest::step::Greeting).reply("421 later\r\n");
    EXPECT_EQ(Run({"pager", "--config", m_config, "--json"}), 1);
    const auto report = nlohmann::json::parse(m_output);
    EXPECT_EQ(report["usable"], false);
    EXPECT_EQ(report["error"], "greeting: the server takes no mail now: 421 later");
    EXPECT_EQ(report["exit_status"], 1);
    EXPECT_EQ(report["steps"].size(), 3U);
    EXPECT_EQ(report["tls"], nullptr);
    EXPECT_EQ(report["auth"], nullptr);
}

TEST_F(CarrierTestCommandTest, TheTimeOfAStepIsLimited) {
    // Real time passes here, a tenth of a second: the limit is on the wall clock, and a server that stays silent is
    // all there is to wait for.
    m_server.on(kvtest::step::Greeting).reply(kvtest::Reply().thenStall());
    EXPECT_EQ(Run({"pager", "--config", m_config, "--timeout", "100ms"}), 1);
    EXPECT_THAT(m_output, HasSubstr("not usable: greeting: no answer within 100 ms\n"));
}

TEST_F(CarrierTestCommandTest, TheConfigurationComesFromTheEnvironmentToo) {
    EXPECT_EQ(Run({"pager"}, {{"KVHOST_CONFIG", m_config}}), 0) << m_error;
}

TEST_F(CarrierTestCommandTest, WhatIsNoUsableInputIsToldWithItsRemedy) {
    EXPECT_EQ(Run({"pigeon", "--config", m_config}), 2);
    EXPECT_EQ(m_error,
              "kvhost: " + m_config +
                  ": expected the name of a carrier, found \"pigeon\"; `kvhost config check` lists them\n");
    EXPECT_EQ(Run({"broken", "--config", m_config}), 2);
    EXPECT_THAT(m_error, HasSubstr("kvhost: the carrier \"broken\" is refused: "));
    EXPECT_EQ(Run({"pager", "--config", m_folder.file("none.toml")}), 2);
    EXPECT_THAT(m_error, HasSubstr("none.toml"));
    EXPECT_EQ(Run({"pager", "--config", m_config, "--timeout", "0s"}), 2);
    EXPECT_THAT(m_error, HasSubstr("--timeout: expected a duration such as"));
    EXPECT_EQ(Run({"--config", m_config}), 2);
    EXPECT_THAT(m_error, HasSubstr("name is required"));
    EXPECT_EQ(m_server.acceptedConnections(), 0);
}

}  // namespace
}  // namespace kvhosttest
