#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

#include "CommandFixture.h"
#include "ConfigFindings.h"

namespace kvhosttest {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

class ConfigCheckCommandTest : public CommandTest {
protected:
    /// Checks a configuration file of that content.
    int Check(const std::string& content, const std::vector<std::string>& arguments = {}) {
        m_strFile = m_folder.write("kvhost.toml", content);
        std::vector<std::string> command{KV_BINARY_DIR "/kvhost", "config", "check", "--config", m_strFile};
        command.insert(command.end(), arguments.begin(), arguments.end());
        return RunProgram(command);
    }

    static constexpr const char* kCarrier =
        "[carrier.pager]\n"
        "server = \"mx.example.org\"\n"
        "port = 2525\n"
        "security = \"clear\"\n"
        "sender = \"pager@example.org\"\n"
        "user = \"kv\"\n"
        "password = \"hunter2\"\n"
        "on_doubt = \"hold\"\n";

    kvtest::TempDir m_folder;
    std::string m_strFile;
};

TEST_F(ConfigCheckCommandTest, TellsWhatTheHostWouldUse) {
    EXPECT_EQ(
        Check(std::string("store = \"store\"\n[http]\nport = 8080\n[log]\nlevel = \"info\"\n") + kCarrier),
        0);
    EXPECT_EQ(
        Output(),
        "File          " + m_strFile +
            "\n"
            "Driver        libkvsmtpdriver.so\n"
            "Store         " +
            m_folder.path() +
            "/store\n"
            "Log           standard error, level info\n"
            "Delivery log  none\n"
            "HTTP          127.0.0.1, port 8080, takes no jobs\n"
            "Run           tick 200 ms, 1000 jobs under way, 100 of one carrier at once, stop limit 30 s, "
            "jobs that ended are kept 7 d\n"
            "Limits        100 recipients, text 1.0 MB, 20 attachments of 25.0 MB\n"
            "\n"
            "CARRIER  SERVER               SECURITY  USER  SENDER             IN DOUBT  TRIED FOR\n"
            "pager    mx.example.org:2525  clear     kv    pager@example.org  hold      1 d\n");
    EXPECT_EQ(Error(), "");
}

TEST_F(ConfigCheckCommandTest, PasswordsAndTokensAreNeverTold) {
    m_folder.write("token", "abcdefghijklmnopqrstuvwxyz\n");
    const std::string content =
        std::string("store = \"store\"\n[http]\nsubmit = true\ntoken_file = \"token\"\n") + kCarrier;
    for (const std::vector<std::string>& options : {std::vector<std::string>{}, {"--json"}}) {
        EXPECT_EQ(Check(content, options), 0) << Error();
        EXPECT_THAT(Output() + Error(), Not(HasSubstr("hunter2")));
        EXPECT_THAT(Output() + Error(), Not(HasSubstr("abcdefghijklmnopqrstuvwxyz")));
    }
}

TEST_F(ConfigCheckCommandTest, EveryFaultIsToldWithStatusTwo) {
    EXPECT_EQ(Check("stroe = \"store\"\n[run]\ntick = 5\n"), 2);
    EXPECT_EQ(Output(), "");
    EXPECT_THAT(Error(), HasSubstr(m_strFile + ":1: stroe: "));
    EXPECT_THAT(Error(), HasSubstr(m_strFile + ":3: run.tick: "));
}

TEST_F(ConfigCheckCommandTest, ACarrierWithAFaultIsAFault) {
    EXPECT_EQ(Check(std::string("store = \"store\"\n") + kCarrier + "[carrier.bad]\nserver = \"mx\"\n"), 2);
    EXPECT_THAT(Output(), HasSubstr("\npager "));
    EXPECT_THAT(Error(), HasSubstr("carrier.bad.security: "));
}

TEST_F(ConfigCheckCommandTest, WhatIsMissingIsNoted) {
    EXPECT_EQ(Check(""), 0);
    EXPECT_THAT(Output(), EndsWith("\nNote: no store: every command but send needs one\n"
                                   "\nNote: no usable carrier: nothing can be sent\n"));
}

TEST_F(ConfigCheckCommandTest, SeveralCarriersWithoutASizeOfThePoolAreNoted) {
    const std::string one = std::string("store = \"store\"\n") + kCarrier;
    const std::string two =
        one + "[carrier.second]\nserver = \"mx\"\nsecurity = \"clear\"\nsender = \"a@b\"\n";
    EXPECT_EQ(Check(one), 0);
    EXPECT_THAT(Output(), Not(HasSubstr("Note: ")));
    EXPECT_EQ(Check(two), 0);
    EXPECT_THAT(Output(), HasSubstr("Note: driver.threadpool_size is not set"));
    EXPECT_EQ(Check("[driver]\nthreadpool_size = 4\n" + two.substr(two.find('['))), 0);
    EXPECT_THAT(Output(), Not(HasSubstr("threadpool_size")));
}

TEST_F(ConfigCheckCommandTest, AStoreThatCannotBeMadeIsAFault) {
    m_folder.write("file", "");
    EXPECT_EQ(Check(std::string("store = \"file/store\"\n") + kCarrier), 2);
    EXPECT_EQ(Error(), "kvhost: store: " + m_folder.path() + "/file is no folder; name another one\n");
}

/// The faults that a user finds who is not root, one a line. Root may write everywhere.
std::string FaultsForAnybody(const std::string& file) {
    int ends[2];
    if (::pipe(ends) != 0) {
        return "no pipe";
    }
    const pid_t child = ::fork();
    if (child == 0) {
        constexpr uid_t kNobody = 65534;
        std::string text;
        if (::geteuid() == 0 && ::setresuid(kNobody, kNobody, kNobody) != 0) {
            text = "root stays root";
        }
        for (const std::string& fault : kvhost::CheckConfig(file, "").faults) {
            text += fault + "\n";
        }
        ::_exit(::write(ends[1], text.data(), text.size()) == static_cast<ssize_t>(text.size()) ? 0 : 1);
    }
    ::close(ends[1]);
    std::string faults(4096, '\0');
    const ssize_t size = ::read(ends[0], faults.data(), faults.size());
    ::close(ends[0]);
    ::waitpid(child, nullptr, 0);
    return faults.substr(0, size > 0 ? static_cast<std::size_t>(size) : 0);
}

TEST_F(ConfigCheckCommandTest, AConfigurationThatThisUserMayNotReadSaysWhatToDo) {
    std::filesystem::permissions(m_folder.path(), std::filesystem::perms(0755));
    const std::string file = m_folder.write("kvhost.toml", "");
    std::filesystem::permissions(file, std::filesystem::perms(0));
    EXPECT_THAT(
        FaultsForAnybody(file),
        HasSubstr("Permission denied; give this user the right to read it, or run the command as one who has "
                  "it"));
}

TEST_F(ConfigCheckCommandTest, AFolderThatThisUserMayNotWriteIsAFault) {
    using std::filesystem::perms;
    const std::filesystem::path folder = m_folder.path();
    const std::filesystem::path closed = folder / "closed";
    std::filesystem::create_directory(closed);
    m_folder.write("closed/there.log", "");
    std::filesystem::permissions(closed, perms(0555));
    std::filesystem::permissions(folder, perms(0777));
    const std::string file = m_folder.write(
        "kvhost.toml", std::string("store = \"closed/store\"\n") + "[log]\nfile = \"closed/log\"\n" +
                           "[delivery_log]\nfile = \"closed/there.log\"\n");
    std::filesystem::permissions(file, perms(0444));
    EXPECT_EQ(FaultsForAnybody(file),
              "store: " + closed.string() + "/store cannot be made: this user may not write to " +
                  closed.string() + "; give it the right to, or run the check as the host's user\n" +
                  "log.file: this user may not write " + closed.string() +
                  "/log; give it the right to, or run the check as the host's user\n" +
                  "delivery_log.file: this user may not write " + closed.string() +
                  "/there.log; give it the right to, or run the check as the host's user\n");
    std::filesystem::permissions(closed, perms::owner_all);
}

TEST_F(ConfigCheckCommandTest, ALogWithoutItsFolderIsAFault) {
    EXPECT_EQ(Check(std::string("store = \"store\"\n[delivery_log]\nfile = \"logs/d.jsonl\"\n") + kCarrier),
              2);
    EXPECT_EQ(Error(),
              "kvhost: delivery_log.file: the folder " + m_folder.path() + "/logs does not exist; make it\n");
}

TEST_F(ConfigCheckCommandTest, AFolderIsNoLogFile) {
    EXPECT_EQ(Check(std::string("store = \"store\"\n[log]\nfile = \".\"\n") + kCarrier), 2);
    EXPECT_THAT(Error(), HasSubstr(" is a folder; name a file\n"));
}

TEST_F(ConfigCheckCommandTest, JsonHasFaultsNotesAndSettings) {
    EXPECT_EQ(Check(std::string("store = \"store\"\n") + kCarrier, {"--json"}), 0);
    EXPECT_EQ(Json()["ok"], true);
    EXPECT_EQ(Json()["store"], m_folder.path() + "/store");
    EXPECT_EQ(Json()["run"]["keep_ms"], 604800000);
    EXPECT_EQ(Json()["carriers"][0]["server"], "mx.example.org:2525");
    EXPECT_EQ(Check("run = 1\n", {"--json"}), 2);
    EXPECT_EQ(Json()["ok"], false);
    EXPECT_EQ(Json()["faults"].size(), 1U);
}

TEST_F(ConfigCheckCommandTest, AFileThatIsNotThereIsAFault) {
    EXPECT_EQ(RunProgram({KV_BINARY_DIR "/kvhost", "config", "check", "--config", m_folder.path() + "/none"}),
              2);
    EXPECT_THAT(Error(), HasSubstr("/none: expected a readable file"));
}

}  // namespace
}  // namespace kvhosttest
