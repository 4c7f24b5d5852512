#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>

#include <csignal>

#include "SinkClient.h"
#include "sink/SelfSigned.h"

using namespace std::chrono_literals;
using sinktest::SinkClient;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;

namespace {

/// The kvsink program as a child process; it is killed if the test leaves it running.
class Program {
public:
    explicit Program(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), std::string(KV_BINARY_DIR) + "/kvsink");
        std::vector<char*> argv;
        for (std::string& argument : arguments) {
            argv.push_back(argument.data());
        }
        argv.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        ::posix_spawn_file_actions_init(&actions);
        redirect(actions, STDOUT_FILENO, outputFile());
        redirect(actions, STDERR_FILENO, errorFile());
        if (::posix_spawn(&m_pid, argv[0], &actions, nullptr, argv.data(), environ) != 0) {
            m_pid = -1;
        }
        ::posix_spawn_file_actions_destroy(&actions);
        if (m_pid < 0) {
            throw std::runtime_error(arguments[0] + " cannot be started: is the target kvsink built?");
        }
    }
    ~Program() {
        if (m_pid > 0) {
            ::kill(m_pid, SIGKILL);
            ::waitpid(m_pid, nullptr, 0);
        }
    }
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    std::string output() const { return sinktest::contentsOf(outputFile()); }
    std::string errors() const { return sinktest::contentsOf(errorFile()); }

    /// The port from the first line of output; 0 when it does not come.
    std::uint16_t port() const {
        const std::string prefix = "kvsink listening on 127.0.0.1:";
        const bool came = sinktest::eventually([&] { return output().find('\n') != std::string::npos; });
        const std::string text = output();
        return came && text.starts_with(prefix)
                   ? static_cast<std::uint16_t>(std::stoi(text.substr(prefix.size())))
                   : std::uint16_t{0};
    }

    /// Exit status; -1 when the program does not end by itself in time.
    int exitStatus() {
        int status = 0;
        if (!sinktest::eventually([&] { return ::waitpid(m_pid, &status, WNOHANG) != 0; })) {
            return -1;
        }
        m_pid = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    int stop(int signal) {
        ::kill(m_pid, signal);
        return exitStatus();
    }

private:
    static void redirect(posix_spawn_file_actions_t& actions, int fd, const std::string& file) {
        ::posix_spawn_file_actions_addopen(&actions, fd, file.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    }
    std::string outputFile() const { return m_directory.file("output"); }
    std::string errorFile() const { return m_directory.file("errors"); }

    const sinktest::ScratchDirectory m_directory;
    pid_t m_pid = -1;
};

/// What the program says about a command line with which it cannot start.
std::string faultOf(const std::vector<std::string>& arguments) {
    Program program(arguments);
    EXPECT_EQ(program.exitStatus(), 2);
    EXPECT_EQ(program.output(), "");
    return program.errors();
}

}  // namespace

TEST(SinkProgramTest, PrintsAddressDescriptionAndSummary) {
    Program program({"--count-only"});
    const std::string port = std::to_string(program.port());
    SinkClient client(program.port());
    client.send(
        "HELO x\r\nMAIL FROM:<a@b.example>\r\nRCPT TO:<c@d.example>\r\nRCPT TO:<e@d.example>\r\n"
        "DATA\r\n.\r\nQUIT\r\n");
    client.readToEnd();
    EXPECT_EQ(program.stop(SIGTERM), 0);
    EXPECT_EQ(program.output(), "kvsink listening on 127.0.0.1:" + port +
                                    "\nmails are counted, not stored\n"
                                    "STARTTLS is not offered, AUTH is not offered\n"
                                    "kvsink received 1 mails, 2 recipients, 1 connections, 0 refused\n");
    EXPECT_EQ(program.errors(), "");
}

TEST(SinkProgramTest, QuietPrintsAddressAndSummaryOnly) {
    Program program({"--count-only", "--quiet"});
    const std::string port = std::to_string(program.port());
    EXPECT_EQ(program.stop(SIGINT), 0);
    EXPECT_EQ(program.output(), "kvsink listening on 127.0.0.1:" + port +
                                    "\nkvsink received 0 mails, 0 recipients, 0 connections, 0 refused\n");
}

TEST(SinkProgramTest, PortFileHoldsThePortOnceTheAddressIsPrinted) {
    const sinktest::ScratchDirectory directory;
    Program program({"--count-only", "--port-file", directory.file("port")});
    const std::string port = std::to_string(program.port());
    EXPECT_EQ(sinktest::contentsOf(directory.file("port")), port + "\n");
    EXPECT_THAT(sinktest::namesIn(directory.path()), testing::ElementsAre("port"));
    EXPECT_EQ(program.stop(SIGTERM), 0);
}

TEST(SinkProgramTest, StoresMailsInTheDirectory) {
    const sinktest::ScratchDirectory directory;
    Program program({"--maildir", directory.file("mails"), "--quiet"});
    SinkClient client(program.port());
    client.send("HELO x\r\nMAIL FROM:<a@b.example>\r\nRCPT TO:<c@d.example>\r\nDATA\r\n..x\r\n.\r\nQUIT\r\n");
    client.readToEnd();
    EXPECT_EQ(program.stop(SIGTERM), 0);
    EXPECT_THAT(sinktest::contentsOf(directory.file("mails/0000000001.eml")),
                testing::EndsWith("+0000\r\n.x\r\n"));
}

TEST(SinkProgramTest, OptionsReachTheServer) {
    const sinktest::ScratchDirectory directory;
    Program program({"--count-only",
                     "--self-signed",
                     directory.path(),
                     "--require-tls",
                     "--require-auth",
                     "--user",
                     "u",
                     "--password",
                     "p",
                     "--user",
                     "v",
                     "--password",
                     "q",
                     "--refuse",
                     "bad@d.example",
                     "--refuse",
                     "gone@d.example",
                     "--max-size",
                     "1000",
                     "--reply-delay",
                     "1"});
    SinkClient client(program.port());
    client.reply();
    EXPECT_THAT(client.command("EHLO x"), HasSubstr("250-SIZE 1000\r\n"));
    EXPECT_EQ(client.command("MAIL FROM:<a@b.example>"), "530 5.7.0 Must issue a STARTTLS command first\r\n");
    client.command("STARTTLS");
    client.startTls(directory.file("ca.pem"));
    client.command("EHLO x");
    EXPECT_EQ(client.command("MAIL FROM:<a@b.example>"), "530 5.7.0 Authentication required\r\n");
    EXPECT_EQ(client.command("AUTH PLAIN AHYAcQ=="), "235 2.7.0 Authentication successful\r\n");
    client.command("MAIL FROM:<a@b.example>");
    EXPECT_EQ(client.command("RCPT TO:<gone@d.example>"), "550 5.1.1 No such recipient\r\n");
    EXPECT_EQ(client.command("RCPT TO:<bad@d.example>"), "550 5.1.1 No such recipient\r\n");
    client.command("QUIT");
    EXPECT_EQ(program.stop(SIGTERM), 0);
    EXPECT_THAT(program.output(), HasSubstr("STARTTLS is required, AUTH is required\n"));
    EXPECT_THAT(program.output(), HasSubstr("0 mails, 0 recipients, 1 connections, 2 refused\n"));
}

TEST(SinkProgramTest, GivenCertificateIsUsed) {
    const sinktest::ScratchDirectory directory;
    kvsink::writeSelfSignedCertificates(directory.path());
    Program program(
        {"--count-only", "--cert", directory.file("cert.pem"), "--key", directory.file("key.pem")});
    SinkClient client(program.port());
    client.reply();
    client.command("EHLO x");
    client.command("STARTTLS");
    client.startTls(directory.file("ca.pem"));
    EXPECT_EQ(client.command("NOOP"), "250 2.0.0 Ok\r\n");
    EXPECT_EQ(program.stop(SIGTERM), 0);
    EXPECT_THAT(program.output(), HasSubstr("STARTTLS is offered, AUTH is not offered\n"));
}

TEST(SinkProgramTest, IdleTimeoutClosesConnections) {
    Program program({"--count-only", "--idle-timeout", "50"});
    SinkClient client(program.port());
    EXPECT_THAT(client.readToEnd(), HasSubstr("421 4.4.2 Idle for too long\r\n"));
    EXPECT_EQ(program.stop(SIGTERM), 0);
}

TEST(SinkProgramTest, StopCompletesAMailUnderWay) {
    Program program({"--count-only", "--quiet"});
    const std::uint16_t port = program.port();
    SinkClient client(port);
    client.reply();
    client.command("HELO x");
    client.command("MAIL FROM:<a@b.example>");
    client.command("RCPT TO:<c@d.example>");
    client.command("DATA");
    SinkClient idle(port);
    idle.reply();
    std::thread sender([&] {
        EXPECT_EQ(idle.readToEnd(), "421 4.3.2 Shutting down\r\n");  // the stop has begun
        EXPECT_EQ(client.command("."), "250 2.0.0 Counted\r\n");
    });
    EXPECT_EQ(program.stop(SIGTERM), 0);
    sender.join();
    EXPECT_THAT(program.output(),
                HasSubstr("kvsink received 1 mails, 1 recipients, 2 connections, 0 refused\n"));
}

TEST(SinkProgramTest, HelpNamesTheOptions) {
    Program program({"--help"});
    EXPECT_EQ(program.exitStatus(), 0);
    for (const char* option : {"--listen", "--port-file", "--maildir", "--count-only", "--cert", "--key",
                               "--self-signed", "--user", "--password", "--require-tls", "--require-auth",
                               "--refuse", "--reply-delay", "--max-size", "--idle-timeout", "--quiet"}) {
        EXPECT_THAT(program.output(), HasSubstr(option));
    }
}

TEST(SinkProgramTest, BadUsageNamesTheOptionAndEndsWithTwo) {
    EXPECT_EQ(faultOf({}), "kvsink: --maildir: give either --maildir or --count-only\n");
    EXPECT_EQ(faultOf({"--count-only", "--maildir", "x"}),
              "kvsink: --maildir: give either --maildir or --count-only\n");
    EXPECT_EQ(faultOf({"--count-only", "--cert", "x"}), "kvsink: --key: --cert and --key go together\n");
    EXPECT_EQ(faultOf({"--count-only", "--key", "x"}), "kvsink: --cert: --cert and --key go together\n");
    EXPECT_EQ(faultOf({"--count-only", "--cert", "x", "--key", "x", "--self-signed", "x"}),
              "kvsink: --self-signed: does not go with --cert\n");
    EXPECT_EQ(faultOf({"--count-only", "--require-tls"}),
              "kvsink: --require-tls: needs --cert or --self-signed\n");
    EXPECT_EQ(faultOf({"--count-only", "--require-auth"}),
              "kvsink: --require-auth: needs --user and --password\n");
    EXPECT_EQ(faultOf({"--count-only", "--user", "x"}),
              "kvsink: --password: each --user needs one --password\n");
    EXPECT_EQ(faultOf({"--count-only", "--password", "x"}),
              "kvsink: --user: each --user needs one --password\n");
    EXPECT_THAT(faultOf({"--count-only", "--reply-delay", "-1"}), HasSubstr("--reply-delay"));
    EXPECT_THAT(faultOf({"--count-only", "--max-size", "big"}), HasSubstr("--max-size"));
    EXPECT_THAT(faultOf({"--count-only", "--unknown"}), HasSubstr("--unknown"));
}

TEST(SinkProgramTest, WhatCannotBeUsedIsNamedAndEndsWithTwo) {
    const sinktest::ScratchDirectory directory;
    const std::string none = directory.file("none/file");
    sinktest::writeFile(directory.file("file"), "");
    EXPECT_THAT(faultOf({"--count-only", "--cert", none, "--key", none}),
                StartsWith("kvsink: --cert: cannot use " + none));
    EXPECT_THAT(faultOf({"--maildir", directory.file("file/mails")}), StartsWith("kvsink: --maildir: "));
    EXPECT_THAT(faultOf({"--count-only", "--port-file", none}), StartsWith("kvsink: --port-file: "));
    EXPECT_THAT(faultOf({"--count-only", "--listen", "0.0.0.0:0"}), StartsWith("kvsink: --listen: "));
}
