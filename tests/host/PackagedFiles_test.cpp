#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

#include "ChildProcess.h"
#include "ConfigReader.h"
#include "TempDir.h"

namespace kvhost {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;

const std::string kPackaging = KV_SOURCE_DIR "/packaging/";

std::string ContentOf(const std::string& path) {
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

/// The values of a setting of the unit, in their order; a commented one counts for nothing.
std::vector<std::string> UnitValues(const std::string& name) {
    std::istringstream unit(ContentOf(kPackaging + "kvhost.service"));
    std::vector<std::string> values;
    for (std::string line; std::getline(unit, line);) {
        if (line.rfind(name + "=", 0) == 0) {
            values.push_back(line.substr(name.size() + 1));
        }
    }
    return values;
}

std::string UnitValue(const std::string& name) {
    const std::vector<std::string> values = UnitValues(name);
    EXPECT_EQ(values.size(), 1U) << name;
    return values.empty() ? "" : values.front();
}

HostConfig Packaged() {
    return ReadConfig(kPackaging + "kvhost.toml");
}

/// True for a field or the head of a table that is commented out.
bool IsCommentedOut(const std::string& line) {
    const std::size_t name = line.find_first_not_of("abcdefghijklmnopqrstuvwxyz_", 1);
    const bool isField = name != std::string::npos && name > 1 && line.compare(name, 3, " = ") == 0;
    return !line.empty() && line.front() == '#' && (line.compare(1, 1, "[") == 0 || isField);
}

std::string Replaced(std::string text, const std::string& old, const std::string& fresh) {
    const std::size_t at = text.find(old);
    return at == std::string::npos ? text : text.replace(at, old.size(), fresh);
}

/// The packaged configuration with every field that is commented out put in, beside the files that it names.
HostConfig PackagedInFull(const kvtest::TempDir& folder) {
    const std::string certificates = folder.write("ca.pem", "certificates");
    std::istringstream lines(ContentOf(kPackaging + "kvhost.toml"));
    std::string text;
    for (std::string line; std::getline(lines, line);) {
        line = IsCommentedOut(line) ? line.substr(1) : line;
        text += Replaced(line, "/etc/ssl/certs/ca-certificates.crt", certificates) + "\n";
    }
    std::filesystem::create_directory(folder.path() + "/secrets");
    folder.write("secrets/relay", "correct-horse\n");
    folder.write("secrets/http-token", "0123456789abcdef\n");
    return ReadConfig(folder.write("kvhost.toml", text));
}

TEST(PackagedConfigTest, ItIsAcceptedAsItIs) {
    const HostConfig config = Packaged();
    EXPECT_EQ(config.store, "/var/lib/kvhost/store");
    EXPECT_EQ(config.driver, "libkvsmtpdriver.so");
    EXPECT_THAT(config.problems, IsEmpty());
    EXPECT_THAT(config.carriers, IsEmpty());
}

TEST(PackagedConfigTest, HttpIsForTheMachineAloneAndTakesNoJobs) {
    const HostConfig config = Packaged();
    EXPECT_TRUE(config.http.isOn);
    EXPECT_EQ(config.http.address, "127.0.0.1");
    EXPECT_FALSE(config.http.takesJobs);
}

TEST(PackagedConfigTest, TheCommentedCarrierIsAUsableOne) {
    const kvtest::TempDir folder;
    const HostConfig config = PackagedInFull(folder);
    ASSERT_EQ(config.carriers.count("relay"), 1U);
    EXPECT_THAT(config.problems, IsEmpty());
    const Carrier& carrier = config.carriers.at("relay");
    EXPECT_EQ(carrier.password, "correct-horse");
    EXPECT_EQ(carrier.security, SMTP_SECURITY_REQUIRED);
    EXPECT_EQ(carrier.onDoubt, Carrier().onDoubt);
}

TEST(PackagedConfigTest, TheCommentedRunSettingsAreTheDefaults) {
    const kvtest::TempDir folder;
    const RunSettings run = PackagedInFull(folder).run;
    EXPECT_EQ(run.tick, RunSettings().tick);
    EXPECT_EQ(run.maxUnderWay, RunSettings().maxUnderWay);
    EXPECT_EQ(run.slice, RunSettings().slice);
    EXPECT_EQ(run.stopLimit, RunSettings().stopLimit);
    EXPECT_EQ(run.cleanUpLimit, RunSettings().cleanUpLimit);
    EXPECT_EQ(run.probeLimit, RunSettings().probeLimit);
    EXPECT_EQ(run.keep, RunSettings().keep);
}

TEST(PackagedConfigTest, TheCommentedLimitsAndSizesAreTheDefaults) {
    const kvtest::TempDir folder;
    const HostConfig config = PackagedInFull(folder);
    EXPECT_EQ(config.limits.attachmentBytes, SubmissionLimits().attachmentBytes);
    EXPECT_EQ(config.limits.attachments, SubmissionLimits().attachments);
    EXPECT_EQ(config.limits.textBytes, SubmissionLimits().textBytes);
    EXPECT_EQ(config.limits.recipients, SubmissionLimits().recipients);
    EXPECT_EQ(config.logFiles, HostConfig().logFiles);
    EXPECT_EQ(config.deliveryLog.bytes, RotatedFile().bytes);
    EXPECT_EQ(config.deliveryLog.files, RotatedFile().files);
    EXPECT_EQ(config.http.takesJobs, HttpSettings().takesJobs);
    EXPECT_EQ(config.http.bodyBytes, HttpSettings().bodyBytes);
}

TEST(PackagedConfigTest, TheCommentedRetriesAreTheDefaults) {
    const kvtest::TempDir folder;
    const RetryPolicy retry = PackagedInFull(folder).carriers.at("relay").retry;
    EXPECT_EQ(retry.first, RetryPolicy().first);
    EXPECT_EQ(retry.factor, RetryPolicy().factor);
    EXPECT_EQ(retry.longest, RetryPolicy().longest);
    EXPECT_EQ(retry.jitter, RetryPolicy().jitter);
    EXPECT_EQ(retry.lifetime, RetryPolicy().lifetime);
    EXPECT_EQ(retry.attempts, RetryPolicy().attempts);
    EXPECT_EQ(retry.unclearAttempts, RetryPolicy().unclearAttempts);
}

TEST(PackagedServiceTest, TheCommandThatItStartsExists) {
    std::istringstream words(UnitValue("ExecStart"));
    std::vector<std::string> command{std::istream_iterator<std::string>(words), {}};
    ASSERT_FALSE(command.empty());
    EXPECT_EQ(command.front(), "/usr/bin/kvhost");
    command.front() = KV_BINARY_DIR "/kvhost";
    command.emplace_back("--help");
    kvhosttest::ChildProcess program(command, {});
    EXPECT_EQ(program.Wait(), 0) << program.Error();
    // Help about an unknown command is help about all of them.
    EXPECT_THAT(program.Output(), HasSubstr("Usage: kvhost run "));
}

TEST(PackagedServiceTest, AStopLeavesTheTimeThatTheHostAllowsItself) {
    const RunSettings run = Packaged().run;
    EXPECT_GT(std::chrono::seconds(std::stoi(UnitValue("TimeoutStopSec"))), run.stopLimit + run.cleanUpLimit);
}

TEST(PackagedServiceTest, WhatTheConfigurationWritesToIsWhatTheServiceMayWriteTo) {
    const HostConfig config = Packaged();
    EXPECT_EQ(UnitValue("ProtectSystem"), "strict");
    EXPECT_THAT(config.store, HasSubstr("/var/lib/" + UnitValue("StateDirectory") + "/"));
    EXPECT_THAT(config.logFile, HasSubstr("/var/log/" + UnitValue("LogsDirectory") + "/"));
    EXPECT_THAT(config.deliveryLog.path, HasSubstr("/var/log/" + UnitValue("LogsDirectory") + "/"));
}

TEST(PackagedServiceTest, ItsUserIsTheOneThatTheInstallationMakes) {
    EXPECT_THAT(ContentOf(kPackaging + "debian/postinst"),
                HasSubstr("--gecos \"Message delivery\" " + UnitValue("User") + "\n"));
    EXPECT_EQ(UnitValue("Group"), UnitValue("User"));
}

// A start limit of systemd's is 5 starts in 10 s: a pause of 5 s never comes near it.
TEST(PackagedServiceTest, ItIsStartedAgainAfterEveryFailureForAsLongAsItTakes) {
    EXPECT_EQ(UnitValue("Restart"), "on-failure");
    EXPECT_GE(std::stoi(UnitValue("RestartSec")), 3);
    EXPECT_THAT(UnitValues("RestartPreventExitStatus"), IsEmpty());
}

}  // namespace
}  // namespace kvhost
