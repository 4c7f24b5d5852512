#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/stat.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "ChildProcess.h"
#include "Eventually.h"
#include "FakeDriverFixture.h"
#include "TempDir.h"

namespace kvhosttest {
namespace {

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr const char* kConfig =
    "[carrier.pager]\n"
    "server = \"mx.example.org\"\n"
    "security = \"clear\"\n"
    "sender = \"pager@example.org\"\n"
    "user = \"kv\"\n"
    "password = \"hunter2\"\n";

/// "kvhost send" as a child process, with the fake driver.
class SendCommandTest : public testing::Test {
protected:
    static std::string Job(const std::string& id, const std::string& text) {
        return R"({"id":")" + id + R"(","carrier":"pager","recipient":"ops@example.org","text":")" + text +
               "\"}\n";
    }

    std::vector<std::string> Command(const std::vector<std::string>& options) const {
        std::vector<std::string> command{KV_BINARY_DIR "/kvhost", "send", "--driver", m_strDriver};
        command.insert(command.end(), options.begin(), options.end());
        return command;
    }

    /// Starts the command with the configuration and `jobs` as files, and with `options` besides.
    std::unique_ptr<ChildProcess> Start(const std::string& jobs, std::vector<std::string> options = {}) {
        options.insert(options.end(), {"--config", m_folder.write("kvhost.toml", m_strConfig),
                                       m_folder.write("jobs.jsonl", jobs)});
        return std::make_unique<ChildProcess>(Command(options), m_input);
    }

    /// Runs the command to its end and answers the exit status.
    int Run(const std::string& jobs, const std::vector<std::string>& options = {}) {
        m_pChild = Start(jobs, options);
        return m_pChild->Wait();
    }

    std::string Output() const { return m_pChild->Output(); }
    std::string Error() const { return m_pChild->Error(); }

    const kvtest::TempDir m_folder;
    std::string m_strConfig = kConfig;
    std::string m_strDriver = kFakeDriver;
    ChildProcess::Input m_input;
    std::unique_ptr<ChildProcess> m_pChild;
};

TEST_F(SendCommandTest, StatusZeroAndATableWhenAllIsDelivered) {
    EXPECT_EQ(Run(Job("a", "complete") + Job("b", "thread")), 0);
    EXPECT_EQ(Output(),
              "JOB  CARRIER  RECIPIENT        STATUS     REASON\n"
              "a    pager    ops@example.org  delivered\n"
              "b    pager    ops@example.org  delivered\n"
              "\n"
              "2 delivered\n");
    EXPECT_EQ(Error(), "");
}

TEST_F(SendCommandTest, StatusOneWhenSomethingFailed) {
    EXPECT_EQ(Run(Job("a", "fail 550 no such user") + Job("b", "complete"), {"--log-level", "off"}), 1);
    EXPECT_EQ(Output(),
              "JOB  CARRIER  RECIPIENT        STATUS     REASON\n"
              "a    pager    ops@example.org  failed     550 no such user\n"
              "b    pager    ops@example.org  delivered\n"
              "\n"
              "1 delivered, 1 failed\n");
}

TEST_F(SendCommandTest, StatusTwoWhenALineIsRefusedAndTheRestGoes) {
    EXPECT_EQ(Run(Job("a", "complete") + R"({"id":"b","carrier":"pager","text":"x"})" + "\n" +
                  Job("c", "complete")),
              2);
    EXPECT_EQ(Error(), "kvhost: " + m_folder.file("jobs.jsonl") +
                           ":2: recipient: expected recipient or recipients, both fields are missing\n");
    EXPECT_THAT(Output(), HasSubstr("2 delivered, 1 refused\n"));
}

TEST_F(SendCommandTest, StatusTwoWhenACarrierIsRefusedAndTheRestGoes) {
    m_strConfig += "[carrier.fax]\nserver = \"mx\"\nsecurity = \"clear\"\n";
    EXPECT_EQ(Run(Job("a", "complete")), 2);
    EXPECT_EQ(Error(), "kvhost: " + m_folder.file("kvhost.toml") +
                           ":7: carrier.fax.sender: expected a string, the field is missing\n");
    EXPECT_THAT(Output(), HasSubstr("1 delivered\n"));
}

TEST_F(SendCommandTest, JobsOfARefusedCarrierAreRefusedWithItsReason) {
    m_strConfig = "[carrier.pager]\nserver = \"mx\"\nsecurity = \"clear\"\n";
    EXPECT_EQ(Run(Job("a", "complete")), 2);
    EXPECT_THAT(Error(), HasSubstr("jobs.jsonl:1: carrier: the carrier is refused: "));
    EXPECT_THAT(Output(),
                HasSubstr("kvhost.toml:1: carrier.pager.sender: expected a string, the field is missing"));
}

TEST_F(SendCommandTest, StatusTwoAndNothingSentForABadSetting) {
    m_input.environment["KVFAKE_RECORD"] = m_folder.file("calls");
    m_strConfig += "[driver]\nthreadpool_size = 0\n";
    EXPECT_EQ(Run(Job("a", "complete")), 2);
    EXPECT_EQ(Error(), "kvhost: " + m_folder.file("kvhost.toml") +
                           ":8: driver.threadpool_size: expected an integer from 1 to 1000, found 0\n");
    EXPECT_EQ(Output(), "");
    EXPECT_FALSE(std::ifstream(m_folder.file("calls")).good());
}

TEST_F(SendCommandTest, StatusTwoForAnUnknownOption) {
    EXPECT_EQ(Run(Job("a", "complete"), {"--colour"}), 2);
    EXPECT_THAT(Error(), HasSubstr("kvhost: The following argument was not expected: --colour\n"));
}

TEST_F(SendCommandTest, StatusTwoForATickOutOfRange) {
    EXPECT_EQ(Run(Job("a", "complete"), {"--tick", "0"}), 2);
    EXPECT_THAT(Error(), HasSubstr("--tick"));
}

TEST_F(SendCommandTest, StatusTwoForAnUnknownLogLevel) {
    EXPECT_EQ(Run(Job("a", "complete"), {"--log-level", "loud"}), 2);
    EXPECT_THAT(Error(), HasSubstr("--log-level: expected trace, debug, info, warning, error or off"));
}

TEST_F(SendCommandTest, StatusTwoWithoutACommand) {
    ChildProcess child({KV_BINARY_DIR "/kvhost"}, {});
    EXPECT_EQ(child.Wait(), 2);
    EXPECT_THAT(child.Error(), StartsWith("kvhost: "));
}

TEST_F(SendCommandTest, StatusZeroForHelp) {
    ChildProcess child({KV_BINARY_DIR "/kvhost", "send", "--help"}, {});
    EXPECT_EQ(child.Wait(), 0);
    EXPECT_THAT(child.Output(), HasSubstr("Usage: kvhost send [OPTIONS] jobs..."));
}

TEST_F(SendCommandTest, StatusTwoForADriverThatCannotBeLoaded) {
    m_strDriver = "libkvnosuch.so";
    EXPECT_EQ(Run(Job("a", "complete")), 2);
    EXPECT_EQ(Error(),
              "kvhost: the driver cannot be loaded: libkvnosuch.so: cannot open shared object file: No such "
              "file or "
              "directory\n");
}

TEST_F(SendCommandTest, StatusTwoForADriverThatRefusesItsSettings) {
    m_input.environment["KVFAKE_CONFIGURE"] = "refuse";
    EXPECT_EQ(Run(Job("a", "complete")), 2);
    EXPECT_EQ(Error(), "kvhost: the driver refused its settings\n");
    EXPECT_THAT(Output(), HasSubstr("1 not sent\n"));
}

TEST_F(SendCommandTest, TheDriverIsFoundBesideTheExecutable) {
    m_strDriver = "libkvhost_fake_driver.so";
    EXPECT_EQ(Run(Job("a", "complete")), 0);
}

TEST_F(SendCommandTest, JobsComeFromStandardInput) {
    m_input.standardInput = Job("a", "complete");
    m_pChild = std::make_unique<ChildProcess>(
        Command({"--config", m_folder.write("kvhost.toml", kConfig), "-"}), m_input);
    EXPECT_EQ(m_pChild->Wait(), 0);
    EXPECT_THAT(Output(), HasSubstr("1 delivered\n"));
}

TEST_F(SendCommandTest, FaultsOfStandardInputNameIt) {
    m_input.standardInput = "{\n";
    m_pChild = std::make_unique<ChildProcess>(
        Command({"--config", m_folder.write("kvhost.toml", kConfig), "-"}), m_input);
    EXPECT_EQ(m_pChild->Wait(), 2);
    EXPECT_THAT(Error(), StartsWith("kvhost: standard input:1: malformed JSON"));
}

TEST_F(SendCommandTest, StandardInputIsReadOnceOnly) {
    EXPECT_EQ(Run("", {"-", "-"}), 2);
    EXPECT_EQ(Error(), "kvhost: jobs: standard input can be read once only\n");
}

/// A pipe with a name that stays open for writing as long as the test lasts.
class SendFromPipeTest : public SendCommandTest {
protected:
    SendFromPipeTest() : m_strPipe(m_folder.file("pipe")) {
        EXPECT_EQ(::mkfifo(m_strPipe.c_str(), 0600), 0);
        m_fd = ::open(m_strPipe.c_str(), O_RDWR | O_CLOEXEC);
    }
    ~SendFromPipeTest() override { ::close(m_fd); }

    void Write(const std::string& text) const {
        EXPECT_EQ(::write(m_fd, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }
    void StartVerbose() {
        m_pChild = std::make_unique<ChildProcess>(
            Command({"--config", m_folder.write("kvhost.toml", kConfig), "--verbose", m_strPipe}), m_input);
    }

    const std::string m_strPipe;
    int m_fd = -1;
};

TEST_F(SendFromPipeTest, JobsGoOutAsTheyComeAndAStopDoesNotWaitForMore) {
    StartVerbose();
    for (const char* id : {"a", "b"}) {
        Write(Job(id, "complete"));
        ASSERT_TRUE(m_pChild->WaitForError(std::string(id) + "_1 to ops@example.org: delivered"));
    }
    m_pChild->Signal(SIGTERM);
    EXPECT_EQ(m_pChild->Wait(), 1);
    EXPECT_THAT(Output(), HasSubstr("2 delivered\n"));
    EXPECT_THAT(Error(), HasSubstr("kvhost: " + m_strPipe + ": not read to its end\n"));
}

TEST_F(SendFromPipeTest, AStopBeforeTheFirstJobNeedsNoDriver) {
    m_strDriver = "libkvnosuch.so";
    StartVerbose();
    Write("{\n");
    // The line can be told of only once its reader is at work, and the stop is caught by then.
    ASSERT_TRUE(kvtest::Eventually([this] {
        int unread = 0;
        return ::ioctl(m_fd, FIONREAD, &unread) == 0 && unread == 0;
    }));
    m_pChild->Signal(SIGINT);
    EXPECT_EQ(m_pChild->Wait(), 2);
    EXPECT_THAT(Output(), HasSubstr("1 refused\n"));
    EXPECT_THAT(Error(), HasSubstr("pipe:1: malformed JSON"));
}

TEST_F(SendCommandTest, WhatCannotBeReadOnTheWayLeavesTheJobsBeforeIt) {
    EXPECT_EQ(Run("", {m_folder.write("good.jsonl", Job("a", "complete")), "/proc/self/mem"}), 2);
    EXPECT_THAT(Output(), HasSubstr("1 delivered\n"));
    EXPECT_THAT(Error(), StartsWith("kvhost: /proc/self/mem:1: cannot be read: "));
}

TEST_F(SendCommandTest, AStandardInputThatIsNotThereIsAFault) {
    m_folder.write("kvhost.toml", m_strConfig);
    m_pChild = std::make_unique<ChildProcess>(
        std::vector<std::string>{"/bin/sh", "-c", "exec \"$@\" <&-", "sh", KV_BINARY_DIR "/kvhost", "send",
                                 "--driver", kFakeDriver, "--config", m_folder.file("kvhost.toml"), "-"},
        m_input);
    EXPECT_EQ(m_pChild->Wait(), 2);
    EXPECT_EQ(Error(), "kvhost: standard input:1: cannot be read: Bad file descriptor\n");
}

TEST_F(SendCommandTest, WhatWaitsBehindATickThatHangsIsNotSent) {
    m_input.environment["KVFAKE_RECORD"] = m_folder.file("calls");
    std::string jobs;
    for (int i = 0; i < 2020; ++i) {
        jobs += Job(std::to_string(i), i == 20 ? "tick hangs" : "complete");
    }
    EXPECT_EQ(Run(jobs, {"--timeout", "2", "--cleanup-limit", "0.2", "--json"}), 1);
    const std::string tick = "PeriodicEvent with ";
    int offered = 0;
    std::string call;
    for (std::ifstream calls(m_folder.file("calls")); std::getline(calls, call);) {
        offered += call.rfind(tick, 0) == 0 ? std::stoi(call.substr(tick.size())) : 0;
    }
    EXPECT_GT(offered, 20);
    const auto summary = nlohmann::json::parse(Output())["summary"];
    EXPECT_EQ(summary["delivered"], 20);
    EXPECT_EQ(summary["not returned"], offered - 20);
    EXPECT_EQ(summary["not sent"], 2020 - offered);
}

TEST_F(SendCommandTest, RefusedLinesAreToldOfWhenTheDriverCannotBeLoaded) {
    m_strDriver = "libkvnosuch.so";
    EXPECT_EQ(Run("{\n" + Job("a", "complete")), 2);
    EXPECT_THAT(Error(), HasSubstr("jobs.jsonl:1: malformed JSON"));
    EXPECT_THAT(Error(), HasSubstr("libkvnosuch.so"));
}

TEST_F(SendCommandTest, NothingIsSentWhenOneOfTheFilesIsNotThere) {
    m_input.environment["KVFAKE_RECORD"] = m_folder.file("calls");
    EXPECT_EQ(Run(Job("a", "complete"), {"/no/such/jobs.jsonl"}), 2);
    EXPECT_EQ(Error(), "kvhost: /no/such/jobs.jsonl: cannot be read: No such file or directory\n");
    EXPECT_EQ(Output(), "");
    EXPECT_FALSE(std::ifstream(m_folder.file("calls")).good());
}

TEST_F(SendCommandTest, AllJobsAreReportedWhenMoreOfThemThanAreReadAheadCannotGo) {
    std::string text;
    for (int line = 0; line < 500; ++line) {
        text += std::string(99, 'x') + "\\n";
    }
    std::string jobs;
    for (int i = 0; i < 400; ++i) {  // 20 MB
        jobs += Job(std::to_string(i), text);
    }
    m_input.environment["KVFAKE_SETUP"] = "refuse";
    EXPECT_EQ(Run(jobs), 2);
    EXPECT_THAT(Output(), HasSubstr("\n400 not sent\n"));
}

TEST_F(SendCommandTest, SeveralFilesAreOneInput) {
    const std::string more = m_folder.write("more.jsonl", Job("b", "complete"));
    EXPECT_EQ(Run(Job("a", "complete"), {more}), 0);
    EXPECT_THAT(Output(), HasSubstr("2 delivered\n"));
}

TEST_F(SendCommandTest, AnEmptyInputNeedsNoDriver) {
    m_strDriver = "libkvnosuch.so";
    EXPECT_EQ(Run("\n"), 0);
    EXPECT_EQ(Output(), "no jobs\n");
}

TEST_F(SendCommandTest, TheReportAsJsonIsAllThereIsOnStandardOutput) {
    m_input.environment["KVFAKE_CLEANUP"] = "print";
    EXPECT_EQ(Run(Job("a", "complete") + Job("b", "fail no"), {"--json", "--log-level", "off"}), 1);
    const auto document = nlohmann::json::parse(Output());
    EXPECT_EQ(document["driver"], "FAKE 9.9, No Protocol");
    EXPECT_EQ(document["outcomes"][0]["status"], "delivered");
    EXPECT_EQ(document["outcomes"][1]["reason"], "no");
    EXPECT_EQ(document["exit_status"], 1);
    EXPECT_EQ(Error(), "Kill thread [17]");
}

TEST_F(SendCommandTest, TheJsonReportGoesToAFileBesidesTheTable) {
    EXPECT_EQ(Run(Job("a", "complete"), {"--json-file", m_folder.file("report.json")}), 0);
    std::ifstream stream(m_folder.file("report.json"));
    EXPECT_EQ(nlohmann::json::parse(stream)["outcomes"][0]["job"], "a");
    EXPECT_THAT(Output(), StartsWith("JOB  CARRIER"));
}

TEST_F(SendCommandTest, AJsonFileThatCannotBeWrittenIsAFailure) {
    EXPECT_EQ(Run(Job("a", "complete"), {"--json-file", "/proc/no/such/file"}), 1);
    EXPECT_EQ(Error(), "kvhost: the report cannot be written to /proc/no/such/file\n");
    EXPECT_THAT(Output(), HasSubstr("1 delivered\n"));
}

TEST_F(SendCommandTest, SecretsAreMaskedInTheLog) {
    const std::string log = m_folder.file("kv.log");
    EXPECT_EQ(Run(Job("a", "secrets"), {"--log-level", "trace", "--log-file", log}), 0);
    std::stringstream content;
    content << std::ifstream(log).rdbuf();
    EXPECT_THAT(content.str(), HasSubstr("{7}-{host}-{3}-{kv}-{[masked]}\n"));
    EXPECT_THAT(content.str(), HasSubstr("../src/KvioSocket:226 <= AUTH PLAIN<CR><LF>\n"));
    EXPECT_THAT(content.str(), HasSubstr("../src/KvioSocket:226 <= [masked]\n"));
    EXPECT_THAT(content.str(), HasSubstr("<= MAIL FROM: <pager@example.org><CR><LF>\n"));
    EXPECT_THAT(content.str(), Not(HasSubstr("hunter2")));
    EXPECT_THAT(content.str(), Not(HasSubstr("c29tZXRoaW5nIHNlY3JldA==")));
    EXPECT_EQ(Error(), "");
}

TEST_F(SendCommandTest, ASecretThatAServerRepeatsIsMaskedInEveryReport) {
    const std::string file = m_folder.file("report.json");
    EXPECT_EQ(
        Run(Job("a", "fail not with hunter2") + Job("b", "fail AGt2AGh1bnRlcjI="), {"--json-file", file}), 1);
    EXPECT_THAT(Output(), HasSubstr("not with [masked]"));
    const auto document = nlohmann::json::parse(std::ifstream(file));
    EXPECT_EQ(document["outcomes"][0]["reason"], "not with [masked]");
    EXPECT_EQ(document["outcomes"][1]["reason"], "[masked]");
}

TEST_F(SendCommandTest, VerboseTellsTheSteps) {
    EXPECT_EQ(Run(Job("a", "complete"), {"--verbose"}), 0);
    EXPECT_THAT(Error(), HasSubstr("kvhost driver: FAKE 9.9, No Protocol\n"));
    EXPECT_THAT(Error(), HasSubstr("kvhost a_1 to ops@example.org: delivered\n"));
    EXPECT_THAT(Error(), HasSubstr("kvhost cleaning up\n"));
}

TEST_F(SendCommandTest, NoProgressIsShownWhenStandardErrorIsNoTerminal) {
    EXPECT_EQ(Run(Job("a", "complete")), 0);
    EXPECT_EQ(Error(), "");
}

TEST_F(SendCommandTest, ProgressIsShownOnATerminalAndWiped) {
    std::string command;
    for (const std::string& part :
         Command({"--config", m_folder.write("kvhost.toml", kConfig),
                  m_folder.write("jobs.jsonl", Job("a", "complete") + Job("b", "complete"))})) {
        command += part + " ";
    }
    // script(1) runs the command on a terminal of its own.
    ChildProcess child({"/usr/bin/script", "-qec", command + ">/dev/null", "/dev/null"}, {});
    EXPECT_EQ(child.Wait(), 0);
    EXPECT_THAT(child.Output(), HasSubstr("\r\033[K2 of 2 done: 2 delivered\r\033[K"));
}

TEST_F(SendCommandTest, AfterTheTimeoutTheRestIsNotReturned) {
    EXPECT_EQ(Run(Job("a", "never") + Job("b", "complete"), {"--timeout", "0.2"}), 1);
    EXPECT_THAT(Output(), HasSubstr("1 delivered, 1 not returned\n"));
}

TEST_F(SendCommandTest, AStopSignalEndsTheWaitCleansUpAndReports) {
    for (const int number : {SIGINT, SIGTERM}) {
        m_input.environment["KVFAKE_RECORD"] = m_folder.file("calls");
        m_pChild = Start(Job("a", "never") + Job("b", "complete"), {"--verbose", "--stop-limit", "0"});
        ASSERT_TRUE(m_pChild->WaitForError("b_1 to ops@example.org: delivered"));
        m_pChild->Signal(number);
        EXPECT_EQ(m_pChild->Wait(), 1);
        EXPECT_THAT(Output(), HasSubstr("not returned  the driver did not hand it back\n"));
        std::stringstream calls;
        calls << std::ifstream(m_folder.file("calls")).rdbuf();
        EXPECT_THAT(calls.str(), HasSubstr("Cleanup\nReleaseDriverInstance\n"));
    }
}

TEST_F(SendCommandTest, AStopSignalReachesTheHostAndNoWorkerOfTheDriver) {
    for (const int number : {SIGTERM, SIGQUIT}) {
        m_input.environment["KVFAKE_WORKER"] = "open";
        m_pChild = Start(Job("a", "never") + Job("b", "complete"), {"--verbose", "--stop-limit", "0"});
        ASSERT_TRUE(m_pChild->WaitForError("b_1 to ops@example.org: delivered"));
        m_pChild->Signal(number);
        EXPECT_EQ(m_pChild->Wait(), 1);
        EXPECT_THAT(Error(), HasSubstr("a stop is requested"));
        EXPECT_THAT(Error(), Not(HasSubstr("the worker got the signal")));
    }
}

TEST_F(SendCommandTest, ADriverThatDoesNotReturnIsLeftBehind) {
    m_input.environment["KVFAKE_TICK"] = "hang when busy";
    EXPECT_EQ(Run(Job("a", "complete"), {"--timeout", "0.2", "--cleanup-limit", "0.2"}), 1);
    EXPECT_THAT(Error(), HasSubstr("kvhost: the driver does not return; ending without its clean-up\n"));
    EXPECT_THAT(Output(), HasSubstr("1 not returned\n"));
}

TEST_F(SendCommandTest, TheCleanUpLimitHoldsAfterATickThatThrew) {
    m_input.environment["KVFAKE_TICK"] = "throw when busy";
    m_input.environment["KVFAKE_CLEANUP"] = "hang";
    EXPECT_EQ(Run(Job("a", "complete"), {"--cleanup-limit", "0.2"}), 1);
    EXPECT_THAT(Error(), HasSubstr("kvhost: the driver does not return; ending without its clean-up\n"));
    EXPECT_THAT(Output(), HasSubstr("1 not returned\n"));
}

TEST_F(SendCommandTest, AReportThatCannotBeWrittenIsAFailure) {
    m_folder.write("kvhost.toml", m_strConfig);
    const std::string jobs = m_folder.write("jobs.jsonl", Job("a", "complete"));
    ChildProcess child({"/bin/sh", "-c", "exec \"$@\" >/dev/full", "sh", KV_BINARY_DIR "/kvhost", "send",
                        "--driver", kFakeDriver, "--config", m_folder.file("kvhost.toml"), jobs},
                       {});
    EXPECT_EQ(child.Wait(), 1);
    EXPECT_THAT(child.Error(), HasSubstr("kvhost: the report cannot be written to standard output\n"));
}

}  // namespace
}  // namespace kvhosttest
